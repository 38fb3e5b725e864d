// An IPC namespace of the test's own, and what the kernel says it holds.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

struct KernelSegment {
  int key;
  int shmid;
  std::string permissions;  // octal
  long size;                // bytes
  int attached;
  bool operator==(const KernelSegment&) const = default;
};

struct KernelSet {
  int key;
  int semid;
  std::string permissions;
  int semaphores;
  bool operator==(const KernelSet&) const = default;
};

std::vector<KernelSegment> kernel_segments();  // by ascending key
std::vector<KernelSet> kernel_sets();

// The keys alone.
std::vector<int> segment_keys();
std::vector<int> set_keys();

// Each test begins in an empty namespace, and leaves nothing behind.
class IpcTest : public ::testing::Test {
 protected:
  void SetUp() override;
};
