// CHECK and DELETE of device files, on file systems and loop devices of the tests' own.
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>

#include "tests/support/error_block.h"
#include "tests/support/fault.h"
#include "tests/support/ipc_namespace.h"
#include "tests/support/process.h"
#include "tests/support/sandbox.h"
#include "tests/support/session.h"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;

// The end of a CHECK that fails at a device.
std::string failed(int number, const std::string& text, int os_error = -1) {
  return error_block(number, 4, text, os_error) + "Error: check failed\n";
}

class Devices : public IpcTest {
 protected:
  static RunResult run(const std::string& command, const std::string& devices) {
    return run_program({MOX_RES_MGR, command, "node-0: ipcbase=10, " + devices});
  }

  // What a CHECK prints about the devices.
  static std::string check(const std::string& devices) {
    const RunResult result = run("check", devices);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(nothing_left());
    const std::string head = "checking ipcbase 10\nnode-0:ipcbase=10\n";
    EXPECT_THAT(result.out, testing::StartsWith(head));
    return result.out.substr(std::min(head.size(), result.out.size()));
  }

  static std::string device(int number, const std::string& path, int megabytes) {
    const std::string name = "device-" + std::to_string(number);
    return (number > 0 ? ", " : "") + name + ".path=\"" + path + "\", " + name +
           ".size=" + std::to_string(megabytes);
  }

  static std::string made(const std::string& path) { return "create file " + path + "\n"; }
  static std::string removed(const std::string& path) { return "removing file " + path + "\n"; }
  static std::string no_space(const std::string& path) {
    return "Error: not enough space on physical device for " + path + "\n" +
           failed(1521, "No space left on device");
  }

  TempFolder folder_;
};

TEST_F(Devices, NewFilesAddUpOnTheirFileSystemAndAreRemovedAgain) {
  const SmallFileSystem one("150m");
  const SmallFileSystem two("150m");
  if (!one.refusal.empty()) GTEST_SKIP() << "skipped: no mount of its own: " << one.refusal;
  const std::string a = one / "a";
  const std::string b = one / "b";
  const std::string c = folder_ / "link";
  fs::create_symlink(two / "c", c);
  EXPECT_EQ(check(device(0, a, 100) + device(1, c, 100)),
            made(a) + made(c) + removed(a) + removed(c));
  EXPECT_EQ(check(device(0, a, 100) + device(1, b, 100)),
            made(a) + made(b) + no_space(b) + removed(a) + removed(b));
  EXPECT_EQ(check(device(0, a, 2147483647)), made(a) + no_space(a) + removed(a));
  EXPECT_TRUE(fs::is_empty(one.path()));
  EXPECT_TRUE(fs::is_empty(two.path()));
  EXPECT_TRUE(fs::is_symlink(c));

  // An existing file takes the whole account of its file system, and is emptied.
  write_file(a, "old content");
  EXPECT_EQ(check(device(0, a, 1)), made(a));
  EXPECT_EQ(fs::file_size(a), 0U);
  EXPECT_EQ(check(device(0, a, 1) + device(1, b, 0)), made(a) + made(b) + removed(b));
  EXPECT_EQ(check(device(0, b, 1) + device(1, a, 1)), made(b) + made(a) + no_space(a) + removed(b));
}

TEST_F(Devices, FailWithTheReason) {
  const std::string absent = folder_ / "absent/file";
  const std::string fifo = folder_ / "fifo";
  const std::string ring = folder_ / "ring";
  const std::string long_path = folder_ / std::string(300, 'x');
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  fs::create_symlink("ring", ring);

  const std::pair<std::string, int> cases[] = {
      {"", 0},       {absent, ENOENT},         {fifo, ENOTSUP},
      {ring, ELOOP}, {folder_.path(), EISDIR}, {long_path, ENAMETOOLONG},
  };
  for (const auto& [path, os_error] : cases) {
    // The first device that fails stops the check.
    EXPECT_EQ(
        check(device(0, path, 1) + device(1, folder_ / "later", 1)),
        "Error: could not get info about device " + path + "\n" +
            failed(5507, "Operation on file \"" + path.substr(0, 255) + "\" failed", os_error));
  }
}

TEST_F(Devices, TheLastFreeBlockMayBeTaken) {
  // 9 MB take 2304 blocks of 4096 bytes, one of the bitmap and three of the header.
  const SmallFileSystem exact(std::to_string(2308 * 4096));
  const SmallFileSystem lacking(std::to_string(2307 * 4096));
  if (!exact.refusal.empty()) GTEST_SKIP() << "skipped: no mount of its own: " << exact.refusal;
  EXPECT_THAT(check(device(0, exact / "a", 9)), Not(HasSubstr("Error:")));
  EXPECT_THAT(check(device(0, lacking / "a", 9)), HasSubstr(no_space(lacking / "a")));
}

TEST_F(Devices, MeasuresBlockDevicesAndLeavesThemAsTheyAre) {
  const std::string file = folder_ / "backing";
  const std::string content(8 << 20, 'x');
  for (const unsigned sector : {512U, 4096U}) {
    write_file(file, content);
    const LoopDevice loop(file, sector);
    if (!loop.refusal.empty()) GTEST_SKIP() << "skipped: no loop device: " << loop.refusal;
    EXPECT_EQ(check(device(0, loop.path(), 7)), made(loop.path()));
    EXPECT_EQ(check(device(0, loop.path(), 8)), made(loop.path()) + no_space(loop.path()));
    EXPECT_EQ(read_file(file), content);
  }
}

TEST_F(Devices, DeleteRemovesWhatThereIsAndNamesTheDeviceNodes) {
  if (mknod((folder_ / "null").c_str(), S_IFCHR | 0600, makedev(1, 3)) != 0 ||
      mknod((folder_ / "loop").c_str(), S_IFBLK | 0600, makedev(7, 200)) != 0) {
    GTEST_SKIP() << "skipped: no device nodes: " << std::strerror(errno);
  }
  write_file(folder_ / "file", "x");
  fs::create_symlink("file", folder_ / "link");
  expect_session(R"(
$ mox_res_mgr delete node-0: device-0.path=@/absent, device-1.path=@/null, device-2.path=@/loop, \
device-3.path=@/link, device-4.path=@/file
5520 E3 Creating semaphore with key "5" failed: No such file or directory
Error: cannot attach to semaphore 5
no segment 1, 2, 3, 4, 5
Error: delete of file @/absent failed
log: removing @/absent: No such file or directory
log: removed the device node @/null (character device 1:3); the disk is unchanged
log: removed the device node @/loop (block device 7:200); the disk is unchanged
)",
                 folder_.path());
  EXPECT_TRUE(fs::is_empty(folder_.path()));
}

TEST_F(Devices, TheLogTellsWhatWasEmptied) {
  if (const std::string reason = why_no_faults(); !reason.empty()) GTEST_SKIP() << reason;
  write_file(folder_ / "full", "12345");
  expect_session(R"(
$ mox_res_mgr check node-0: ipcbase=10, device-0.path=@/full
node-0 at 10
create file @/full
Error: device size must be specified
11640 S4 Invalid option
Error: check failed
$ strace -qq -o /dev/null -e inject=ftruncate:error=ETXTBSY \
mox_res_mgr check node-0: ipcbase=10, device-0.size=1, device-0.path=@/full
node-0 at 10
create file @/full
Error: open of device @/full failed
5500 S4 Opening file "@/full" failed: Text file busy
Error: check failed
$ mox_res_mgr check node-0: ipcbase=10, device-0.size=2147483647, device-0.path=@/full 2>&1 | \
sed -n 's/.*WRN.*p:[0-9]* //; s/file system of .*: /.../; s/free [0-9]*/free some/; /emptied\|lacks\|some/p'
emptied @/full, which held 5 bytes
not enough space for @/full on the ...needed 2251868530032640 bytes, free some, \
given away by this run 0
)",
                 folder_.path());
}

TEST_F(Devices, TheLogTellsWhySpaceIsLacking) {
  const SmallFileSystem volume("10m");
  if (!volume.refusal.empty()) GTEST_SKIP() << "skipped: no mount of its own: " << volume.refusal;
  fs::create_directory(volume / "sub");
  const std::string a = volume / "sub/a";
  const std::string b = volume / "b";
  const std::string c = volume / "c";
  write_file(b, "");
  // 3 MB take 768 blocks, one of the bitmap and three of the header.
  const std::string given = " bytes, free 10485760, given away by this run 3162112";
  const struct {
    int megabytes;
    std::string path, told;
  } cases[] = {{8, c, "8404992" + given},
               {3, a, "3162112" + given + "; the command names this path twice"},
               {1, b,
                "1064960" + given +
                    "; a device that exists needs the account of its file system for itself"}};
  for (const auto& [megabytes, path, told] : cases) {
    EXPECT_THAT(run("check", device(0, a, 3) + device(1, path, megabytes)).err,
                HasSubstr("not enough space for " + path + " on the file system of " +
                          volume.path() + ": needed " + told + "\n"));
  }
}

TEST_F(Devices, ManyOfThemNeedNoMoreDescriptorsThanFolders) {
  std::string devices;
  for (int i = 0; i < 50; ++i) devices += device(i, folder_ / std::to_string(i), 0);
  const RunResult result = run_program({"/bin/sh", "-c", "ulimit -n 12; exec \"$0\" check \"$1\"",
                                        MOX_RES_MGR, "node-0: ipcbase=10, " + devices});
  EXPECT_THAT(result.out, Not(HasSubstr("Error:")));
  EXPECT_TRUE(fs::is_empty(folder_.path()));
}

}  // namespace
