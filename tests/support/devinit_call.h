// The device initialiser called as a function, with its system calls in the test's hands.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <climits>
#include <iterator>

#include "kern/devinit/devinit.h"
#include "kern/devinit/runstate.h"
#include "tests/support/calls.h"
#include "tests/support/device_image.h"
#include "tests/support/process.h"
#include "tests/support/sandbox.h"

namespace fs = std::filesystem;

inline int call_devinit(const std::string& options) {
  std::istringstream stream("devinit " + options);
  std::vector<std::string> words{std::istream_iterator<std::string>(stream), {}};
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  return devinit(static_cast<int>(words.size()), argv.data());
}

class DevinitTest : public testing::Test {
 protected:
  // A "-f" among the options names another file.
  RunResult run(const std::string& options, const CallHook& hook = nullptr) const {
    return run_function([&] {
      call_hook = hook;
      return call_devinit("-f " + file + " " + options);
    });
  }

  const TempFolder folder;
  const std::string file = folder / "device";
};
