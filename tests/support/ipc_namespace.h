// An IPC namespace of the test's own, and what the kernel says it holds.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

// By ascending key: "key permissions bytes attached", "key permissions semaphores".
std::vector<std::string> kernel_segments();
std::vector<std::string> kernel_sets();
// The keys alone.
std::vector<int> segment_keys();
std::vector<int> set_keys();
bool nothing_left();

// Each test begins in an empty namespace, and leaves nothing behind.
class IpcTest : public ::testing::Test {
 protected:
  void SetUp() override;
};
