// Device paths: their space, their links, and the opens that create and empty.
#include "kern/device/devicefile.h"

#include <gtest/gtest.h>

#include "kern/device/devicepath.h"
#include "kern/device/devicespace.h"
#include "kern/device/settings.h"
#include "kern/devinit/runstate.h"
#include "kern/devinit/target.h"
#include "tests/support/sandbox.h"

namespace {

namespace fs = std::filesystem;

TEST(DevicePath, DirnameAndLinks) {
  const char* dirnames[][2] = {{"", "."},    {"a/", "."},   {"/a", "/"},
                               {"///", "/"}, {"a//b", "a"}, {"/a/b//", "/a"}};
  for (const auto& [path, folder] : dirnames) EXPECT_EQ(get_dirname(path), folder) << path;

  const TempFolder folder;
  fs::create_directory(folder / "sub");
  fs::create_symlink("sub/two", folder / "one");
  fs::create_symlink("../three", folder / "sub/two");
  fs::create_symlink(folder / "gone", folder / "three");
  int error = -1;
  EXPECT_EQ(resolve_symlink(folder / "one", error), folder / "gone");
}

TEST(DeviceSpace, CountsWhatAFileHoldsAsFree) {
  const SmallFileSystem volume("1m");
  if (!volume.refusal.empty()) GTEST_SKIP() << "skipped: mount: " << volume.refusal;
  write_file(volume / "old", std::string(300000, 'x'));
  EXPECT_TRUE(has_space(volume / "old", 1048576 - 303104 + 300000));
  EXPECT_FALSE(has_space(volume / "old", 1048576 - 303104 + 300001));
}

TEST(DeviceSpace, SizesAreMeasuredWithoutAnyChange) {
  const TempFolder folder;
  write_file(folder / "file", std::string(1025, 'x'));
  EXPECT_EQ(findsize(folder / "file"), 1024);
  EXPECT_EQ(fs::file_size(folder / "file"), 1025U);
  EXPECT_EQ(findsize(folder / "absent"), 0);
  EXPECT_FALSE(fs::exists(folder / "absent"));
  const DeviceNode endless = zero_node();
  if (!endless.refusal.empty()) GTEST_SKIP() << "skipped: device node: " << endless.refusal;
  EXPECT_EQ(findsize(endless.path()), std::int64_t{1} << 62);
}

TEST(DeviceSpace, PayloadHeaderAndBitmap) {
  EXPECT_EQ(mox_phys_space(2147483647ULL << 20), 12288 + (549755813632 + 16776705) * 4096);
  EXPECT_EQ(mox_phys_space(UINT64_MAX), UINT64_MAX);
}

TEST(DeviceFile, ThatWasMadeIsNobodyElses) {
  const TempFolder folder;
  const std::string path = folder / "file";
  MadeFile made;
  int error = -1;
  ASSERT_TRUE(mox_create_file(path, error, &made));
  EXPECT_EQ(fs::status(path).permissions(), fs::perms{0600});
  write_file(path, "content");
  EXPECT_FALSE(mox_create_file(path, error, &made));
  EXPECT_EQ(error, EEXIST);
  EXPECT_EQ(read_file(path), "content");
  fs::rename(path, folder / "renamed");
  EXPECT_FALSE(mox_unlink(made));
  EXPECT_EQ(errno, ENOENT);
  write_file(path, "another");
  EXPECT_FALSE(mox_unlink(made));
  EXPECT_EQ(errno, ESTALE);
  fs::rename(folder / "renamed", path);
  EXPECT_TRUE(mox_unlink(made));
  EXPECT_FALSE(fs::exists(path));
}

TEST(DeviceFile, IsOpenedAsTheSettingsAsk) {
  const int always = O_LARGEFILE | O_CLOEXEC | O_NOCTTY;
  EXPECT_EQ(device_open_flags(), always | O_RDWR | O_CREAT | O_TRUNC);
  syncsz = -1;
  EXPECT_EQ(device_open_flags(), always | O_RDWR | O_CREAT | O_TRUNC | O_DSYNC);
  reset_run();
}

TEST(RunState, CleanupLeavesAStrangersFileAndStaysInTheFolderThatWasOpened) {
  const TempFolder folder;
  open_target(folder / "device");
  fs::rename(folder / "device", folder / "first");
  write_file(folder / "device", "");
  cleanup();
  EXPECT_TRUE(fs::exists(folder / "device"));

  for (const char* name : {"victim", "own"}) fs::create_directory(folder / name);
  open_target(folder / "own/device");
  fs::rename(folder / "own", folder / "moved");
  fs::create_directory_symlink("victim", folder / "own");
  fs::create_hard_link(folder / "moved/device", folder / "victim/device");
  cleanup();
  EXPECT_TRUE(fs::exists(folder / "victim/device"));
  EXPECT_FALSE(fs::exists(folder / "moved/device"));
}

}  // namespace
