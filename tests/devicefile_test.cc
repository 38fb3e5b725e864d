// Device paths: their space, their links, and the opens that create and empty.
#include "kern/devicefile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <filesystem>

#include "kern/devicepath.h"
#include "kern/devicespace.h"
#include "kern/initstate.h"
#include "tests/support/sandbox.h"

namespace {

namespace fs = std::filesystem;
using testing::ExitedWithCode;

struct Info {
  bool success;
  std::uint32_t device = 0;
  bool exists = false;
  std::uint64_t space = 0;
  int error = -1;
};

Info info_of(const std::string& path) {
  Info info{};
  info.success = device_info(path, info.device, info.exists, info.space, info.error);
  return info;
}

TEST(DevicePath, DirnameAndLinks) {
  const char* dirnames[][2] = {{"a", "."},     {"/a", "/"}, {"/a/b", "/a"}, {"a//b", "a"},
                               {"a/b//", "a"}, {"/", "/"},  {"///", "/"},   {"//a", "/"},
                               {"", "."},      {"a/", "."}};
  for (const auto& [path, folder] : dirnames) EXPECT_EQ(get_dirname(path), folder) << path;

  const TempFolder folder;
  fs::create_directory(folder / "sub");
  fs::create_symlink("sub/two", folder / "one");
  fs::create_symlink("../three", folder / "sub/two");
  fs::create_symlink(folder / "gone", folder / "three");
  fs::create_symlink("ring2", folder / "ring1");
  fs::create_symlink("ring1", folder / "ring2");
  int error = -1;
  EXPECT_EQ(resolve_symlink(folder / "one", error), folder / "gone");
  EXPECT_EQ(error, 0);
  resolve_symlink(folder / "ring1", error);
  EXPECT_EQ(error, ELOOP);
  EXPECT_EQ(info_of(folder / "ring1").error, ELOOP);
  EXPECT_EQ(info_of(folder / "one").success, true);

  ASSERT_TRUE(mox_create_file(folder / "one", error));
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(folder / "gone")));
}

TEST(DeviceInfo, RegularFilesAndFoldersToBe) {
  const TempFolder folder;
  write_file(folder / "old", "content");
  struct stat status {};
  ASSERT_EQ(stat(folder.path().c_str(), &status), 0);
  for (const bool exists : {true, false}) {
    const Info info = info_of(folder / (exists ? "old" : "new"));
    EXPECT_TRUE(info.success);
    EXPECT_EQ(info.exists, exists);
    EXPECT_EQ(info.device, status.st_dev);
    EXPECT_EQ(info.error, 0);
    EXPECT_EQ(fs::exists(folder / "new"), false);
  }
  EXPECT_EQ(read_file(folder / "old"), "content");
}

TEST(DeviceInfo, RefusesWhatCannotHoldADevice) {
  const TempFolder folder;
  write_file(folder / "file", "");
  ASSERT_EQ(mkfifo((folder / "fifo").c_str(), 0600), 0);
  sockaddr_un address{AF_UNIX, {}};
  (folder / "socket").copy(address.sun_path, sizeof address.sun_path - 1);
  const int listener = socket(AF_UNIX, SOCK_STREAM, 0);
  ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  close(listener);
  const struct {
    std::string path;
    int error;
  } cases[] = {{"", 0},
               {folder.path(), EISDIR},
               {folder / "fifo", ENOTSUP},
               {folder / "socket", ENOTSUP},
               {folder / "absent/new", ENOENT},
               {folder / "file/new", ENOTDIR},
               {folder / std::string(300, 'x'), ENAMETOOLONG}};
  for (const auto& c : cases) {
    const Info info = info_of(c.path);
    EXPECT_FALSE(info.success) << c.path;
    EXPECT_EQ(info.error, c.error) << c.path;
  }
  EXPECT_EXIT(has_space(folder / "file/new", 0), ExitedWithCode(1),
              "^\nDEVINIT-ERROR: Cannot stat\n$");
  EXPECT_EXIT(is_device(folder / "new"), ExitedWithCode(1), "^\nDEVINIT-ERROR: Cannot stat\n$");
}

TEST(DeviceInfo, BlockDevices) {
  const TempFolder folder;
  for (const unsigned sector : {512U, 4096U}) {
    const std::int64_t size = 3 * 1048576 + 7 * 4096;
    write_file(folder / "disk", "");
    fs::resize_file(folder / "disk", size);
    const LoopDevice device(folder / "disk", sector);
    if (!device.refusal.empty()) GTEST_SKIP() << "skipped: loop device: " << device.refusal;
    EXPECT_EQ(findsize(device.path()), size);
    EXPECT_EQ(info_of(device.path()).space, size);
    EXPECT_TRUE(info_of(device.path()).exists);
    EXPECT_TRUE(has_space(device.path(), size));
    EXPECT_FALSE(has_space(device.path(), size + 1));
    EXPECT_TRUE(is_device(device.path()));
  }
}

TEST(DeviceInfo, CharacterDevicesWithoutEndOrContent) {
  EXPECT_EQ(findsize("/dev/zero"), std::int64_t{1} << 62);
  EXPECT_EQ(findsize("/dev/null"), 0);
  EXPECT_EQ(findsize("/absent"), 0);
  const int terminal = posix_openpt(O_RDWR | O_NOCTTY);
  ASSERT_GE(terminal, 0);
  ASSERT_EQ(unlockpt(terminal), 0);
  EXPECT_EQ(findsize(ptsname(terminal)), 0);
  close(terminal);
  EXPECT_TRUE(is_device("/dev/null"));
}

TEST(DeviceSpace, CountsWhatAFileHoldsAsFree) {
  const SmallFileSystem volume("1m");
  if (!volume.refusal.empty()) GTEST_SKIP() << "skipped: mount: " << volume.refusal;
  EXPECT_TRUE(has_space(volume / "new", 1048576));
  EXPECT_FALSE(has_space(volume / "new", 1048577));
  write_file(volume / "old", std::string(300000, 'x'));
  EXPECT_TRUE(has_space(volume / "old", 1040000));
  EXPECT_FALSE(has_space(volume / "new", 1040000));
  EXPECT_EQ(info_of(volume / "old").space, 1048576U - 303104);
  readVerify = 1;
  EXPECT_TRUE(has_space(volume / "new", UINT64_MAX));
  readVerify = 0;
}

TEST(DeviceSpace, PayloadHeaderAndBitmap) {
  constexpr std::uint64_t block = 4096;
  const std::uint64_t cases[][2] = {
      {0, 12288},
      {1, 12288 + 2 * block},
      {32769 * block, 12288 + 32770 * block},
      {32769 * block + 1, 12288 + 32772 * block},
      {2147483647ULL * 256 * block, 12288 + (2147483647ULL * 256 + 16776705) * block},
      {UINT64_MAX, UINT64_MAX}};
  for (const auto& [payload, on_disk] : cases) EXPECT_EQ(mox_phys_space(payload), on_disk);
}

TEST(DeviceFile, OpensCreateAndEmptyUnlessVerifying) {
  const TempFolder folder;
  umask(022);
  int error = -1;
  EXPECT_TRUE(mox_create_file(folder / "new", error));
  EXPECT_EQ(error, 0);
  EXPECT_EQ(fs::status(folder / "new").permissions(), fs::perms{0600});
  write_file(folder / "old", "content");
  readVerify = 1;
  EXPECT_TRUE(mox_test_open_file(folder / "old", error));
  EXPECT_FALSE(mox_create_file(folder / "absent", error));
  EXPECT_EQ(error, ENOENT);
  readVerify = 0;
  EXPECT_EQ(mox_file_size(folder / "old", error), 7);
  EXPECT_TRUE(mox_test_open_file(folder / "old", error));
  EXPECT_EQ(mox_file_size(folder / "old", error), 0);
  EXPECT_TRUE(mox_unlink(folder / "old"));
  EXPECT_FALSE(mox_unlink(folder / "old"));
  EXPECT_EQ(mox_file_size(folder / "old", error), -1);
  EXPECT_EQ(error, ENOENT);
}

TEST(InitState, CleanupLeavesAStrangersFile) {
  const TempFolder folder;
  for (const bool stranger : {false, true}) {
    clean_name = folder / "device";
    clean_fd = open(clean_name.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600);
    ASSERT_GE(clean_fd, 0);
    if (stranger) fs::rename(folder / "device", folder / "moved");
    if (stranger) write_file(folder / "device", "");
    cleanup();
    EXPECT_EQ(fs::exists(folder / "device"), stranger);
  }
}

}  // namespace
