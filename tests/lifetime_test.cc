// The runtime is there before any constructor of a program and after its last destructor.
#include <gtest/gtest.h>
#include <unistd.h>

#include <regex>

#include "tests/support/process.h"

namespace {

const std::string refused =
    ": KORV-S-00336: Value \"1\" of variable \"acktimeout\" is not in the range 100 to 5000\n";

std::string without_heads(const std::string& text) {
  return std::regex_replace(text, std::regex("(^|\n)WRN [^p]*p:[0-9]+ "), "$1");
}

TEST(Lifetime, RuntimeServesBeforeAndAfterMain) {
  const RunResult run = run_program({LIFETIME});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(without_heads(run.err),
            "before main" + refused + "main" + refused + "after main" + refused);
}

TEST(Lifetime, RuntimeUsesNoMemoryThatIsFreed) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "skipped: the sanitizer looks for the same in the test above";
#endif
  if (access("/usr/bin/valgrind", X_OK) != 0) GTEST_SKIP() << "skipped: no valgrind";
  const RunResult run =
      run_program({"/usr/bin/valgrind", "-q", "--leak-check=full", "--error-exitcode=9", LIFETIME});
  EXPECT_EQ(run.status, 0) << run.err;
}

}  // namespace
