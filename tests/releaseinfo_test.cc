// The release block and the link information.
#include "common/releaseinfo.h"

#include <gtest/gtest.h>

#include <cstring>
#include <regex>
#include <string>

#include "tests/scratch.h"

namespace {

const std::string long_notice =
    "Copyright (c) The Mox Authors. All rights reserved.\n"
    "This program comes without any warranty, to the extent that the law permits.";

// The data are the process's own and writable.
class ReleaseInfo : public testing::Test {
 protected:
  ~ReleaseInfo() override {
    tag_.copy(buildTag, sizeof buildTag);
    target_.copy(buildTarget, sizeof buildTarget);
    buildVersion[2] = 0;
  }

 private:
  const std::string tag_{buildTag, sizeof buildTag};
  const std::string target_{buildTarget, sizeof buildTarget};
};

TEST_F(ReleaseInfo, TheBuildSetsTagAndTarget) {
  EXPECT_TRUE(std::regex_match(
      buildTag, std::regex("\\[V1-0-0-0 [0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2} "
                           "[^ \\]]+\\]")))
      << buildTag;
  EXPECT_TRUE(std::regex_match(buildTarget, std::regex("Linux_[0-9]+\\.[0-9]+_\\w+")));
}

TEST_F(ReleaseInfo, BlockOfEachProgram) {
  std::strcpy(buildTag, "[tag]");
  std::strcpy(buildTarget, "Linux_6.1_x86_64");
  buildVersion[2] = 7;
  const struct {
    int program;
    const char* description;
    std::string notice;
  } cases[] = {
      {16, "Device setup utility", long_notice},
      {38, "Resource manager utility", long_notice},
      {0, "", long_notice},
      {12, "", "Copyright (c) The Mox Authors."},
      {13, "", "Copyright (c) The Mox Authors."},
      {42, "", long_notice},
      {-1, "", long_notice},
  };
  for (const auto& c : cases) {
    const std::string block = "\nMox Database Server 1.0 " + std::string(c.description) +
                              "\nVersion     : 1.0.7.0 [tag]  (Linux_6.1_x86_64) \n\n" + c.notice +
                              "\n\n";
    EXPECT_EQ(output_of([&c] { printVersionInfo(stdout, c.program); }).out, block);
    EXPECT_EQ(output_of([&c] { printLinkInfo(stdout, c.program, nullptr, nullptr); }).out, block);
    EXPECT_EQ(output_of([&c] { printLinkInfo(stdout, c.program, "now", "c++ %s"); }).out,
              block + "link_time   : now\nlink_command: c++ %s\n");
  }
}

TEST_F(ReleaseInfo, VersionTextIsCutAtItsBuffer) {
  std::memset(buildTag, 'x', sizeof buildTag - 1);
  EXPECT_EQ(getVersionInfo(), "1.0.0.0 " + std::string(91, 'x'));
}

}  // namespace
