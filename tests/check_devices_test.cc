// CHECK and DELETE of device files, on file systems and loop devices of the tests' own.
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "tests/support/error_block.h"
#include "tests/support/fault.h"
#include "tests/support/ipc_namespace.h"
#include "tests/support/process.h"
#include "tests/support/sandbox.h"

namespace {

namespace fs = std::filesystem;

// The end of a CHECK that fails at a device.
std::string failed(int number, const std::string& text, int os_error = -1) {
  return error_block(number, 4, text, os_error) + "Error: check failed\n";
}

class Devices : public IpcTest {
 protected:
  // A CHECK of node 0 with the given devices; what it prints about them.
  std::string check(const std::string& devices) {
    const RunResult result =
        run_program({MOX_RES_MGR, "check", "node-0:", "ipcbase=10, " + devices});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(kernel_segments().empty());
    EXPECT_TRUE(kernel_sets().empty());
    const std::string head = "checking ipcbase 10\nnode-0:ipcbase=10\n";
    EXPECT_EQ(result.out.substr(0, head.size()), head);
    return result.out.substr(std::min(head.size(), result.out.size()));
  }

  static std::string device(int number, const std::string& path, int megabytes) {
    const std::string head = (number > 0 ? ", device-" : "device-") + std::to_string(number);
    return head + ".path=\"" + path + "\", device-" + std::to_string(number) +
           ".size=" + std::to_string(megabytes);
  }

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
  const std::string c = two / "c";

  const std::string removing = "removing file ";
  EXPECT_EQ(
      check(device(0, a, 100) + device(1, c, 100)),
      "create file " + a + "\ncreate file " + c + "\n" + removing + a + "\n" + removing + c + "\n");
  EXPECT_EQ(check(device(0, a, 100) + device(1, b, 100)), "create file " + a + "\ncreate file " +
                                                              b + "\n" + no_space(b) + removing +
                                                              a + "\n" + removing + b + "\n");
  EXPECT_EQ(check(device(0, a, 2147483647)),
            "create file " + a + "\n" + no_space(a) + removing + a + "\n");
  EXPECT_TRUE(fs::is_empty(fs::path(a).parent_path()));
  EXPECT_TRUE(fs::is_empty(fs::path(c).parent_path()));

  // Header and bitmap need room beside the payload: 150 MB do not fit into 150 MB.
  EXPECT_EQ(check(device(0, a, 150)),
            "create file " + a + "\n" + no_space(a) + removing + a + "\n");
  // An existing file takes the whole account of its file system, and is emptied.
  write_file(a, "old content");
  EXPECT_EQ(check(device(0, a, 1)), "create file " + a + "\n");
  EXPECT_EQ(fs::file_size(a), 0U);
  EXPECT_EQ(check(device(0, a, 1) + device(1, b, 0)),
            "create file " + a + "\ncreate file " + b + "\n" + removing + b + "\n");
  EXPECT_EQ(check(device(0, b, 1) + device(1, a, 1)),
            "create file " + b + "\ncreate file " + a + "\n" + no_space(a) + removing + b + "\n");
  EXPECT_TRUE(fs::exists(a));
}

TEST_F(Devices, FailWithTheReason) {
  const std::string absent = folder_ / "absent/file";
  const std::string fifo = folder_ / "fifo";
  const std::string ring = folder_ / "ring";
  const std::string long_path = folder_ / std::string(300, 'x');
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  fs::create_symlink("ring", ring);

  const auto no_information = [](const std::string& path, int os_error) {
    const std::string told = path.size() > 255 ? path.substr(0, 255) : path;
    return "Error: could not get info about device " + path + "\n" +
           failed(5507, "Operation on file \"" + told + "\" failed", os_error);
  };
  const std::pair<std::string, int> cases[] = {
      {"", 0},       {absent, ENOENT},         {fifo, ENOTSUP},
      {ring, ELOOP}, {folder_.path(), EISDIR}, {long_path, ENAMETOOLONG},
  };
  for (const auto& [path, os_error] : cases) {
    EXPECT_EQ(check(device(0, path, 1)), no_information(path, os_error)) << path;
  }
  EXPECT_EQ(check("device-0.path=" + (folder_ / "x")),
            "create file " + (folder_ / "x") + "\nError: device size must be specified\n" +
                failed(11640, "Invalid option"));
}

TEST_F(Devices, TheFirstThatFailsStopsTheCheck) {
  const std::string later = folder_ / "later";
  const std::string report = check(device(0, folder_ / "absent/file", 1) + device(1, later, 1));
  EXPECT_EQ(report.find(later), std::string::npos) << report;
}

// The site that failed, and the functions above it that passed the failure on.
TEST_F(Devices, TheLogTracesTheFailure) {
  const auto traced = [](const std::string& node) {
    const std::string log = run_program({MOX_RES_MGR, "check", "node-0: ipcbase=10, " + node}).err;
    std::string files;
    const std::regex position("'[^']*/(\\w+\\.cc)' line ");
    for (std::sregex_iterator found(log.begin(), log.end(), position), end; found != end; ++found) {
      files += (*found)[1].str() + " ";
    }
    return files;
  };
  EXPECT_EQ(traced(device(0, folder_ / "absent/file", 1)), "device_res.cc op.cc commands.cc ");
  EXPECT_EQ(traced("device-0.path=" + (folder_ / "x")),
            "device_res.cc device_res.cc op.cc commands.cc ");
}

TEST_F(Devices, TheLastFreeBlockMayBeTaken) {
  // 9 MB take 2304 blocks of 4096 bytes, one of the bitmap and three of the header.
  const SmallFileSystem exact(std::to_string(2308 * 4096));
  const SmallFileSystem lacking(std::to_string(2307 * 4096));
  if (!exact.refusal.empty()) GTEST_SKIP() << "skipped: no mount of its own: " << exact.refusal;
  EXPECT_EQ(check(device(0, exact / "a", 9)).find("Error:"), std::string::npos);
  EXPECT_NE(check(device(0, lacking / "a", 9)).find(no_space(lacking / "a")), std::string::npos);
}

TEST_F(Devices, FollowsLinksToTheFileThatItCreates) {
  const std::string link = folder_ / "link";
  fs::create_directory(folder_ / "below");
  fs::create_symlink("below/target", link);
  EXPECT_EQ(check(device(0, link, 1)), "create file " + link + "\nremoving file " + link + "\n");
  EXPECT_TRUE(fs::is_symlink(link));
  EXPECT_FALSE(fs::exists(folder_ / "below/target"));
}

TEST_F(Devices, MeasuresBlockDevicesAndLeavesThemAsTheyAre) {
  const std::string file = folder_ / "backing";
  const std::string content(8 << 20, 'x');
  for (const unsigned sector : {512U, 4096U}) {
    write_file(file, content);
    const LoopDevice loop(file, sector);
    if (!loop.refusal.empty()) GTEST_SKIP() << "skipped: no loop device: " << loop.refusal;
    EXPECT_EQ(check(device(0, loop.path(), 7)), "create file " + loop.path() + "\n");
    EXPECT_EQ(check(device(0, loop.path(), 8)),
              "create file " + loop.path() + "\n" + no_space(loop.path()));
    EXPECT_EQ(read_file(file), content);
  }
}

TEST_F(Devices, DeleteRemovesWhatThereIs) {
  const std::string first = folder_ / "first";
  const std::string second = folder_ / "second";
  const std::string link = folder_ / "link";
  write_file(second, "x");
  fs::create_symlink(second, link);
  const RunResult result = run_program(
      {MOX_RES_MGR, "delete",
       "node-0: device-0.path=" + first + ", device-1.path=" + link + ", device-2.path=" + second});
  const std::string report = "Error: delete of file " + first + " failed\n";
  EXPECT_EQ(result.out.find("Error: delete of file"), result.out.size() - report.size());
  EXPECT_TRUE(result.out.ends_with(report));
  EXPECT_NE(result.err.find("removing " + first + ": " + std::strerror(ENOENT)), std::string::npos);
  EXPECT_EQ(result.status, 0);
  EXPECT_TRUE(fs::is_empty(folder_.path()));
}

TEST_F(Devices, DeleteSaysWhenItRemovesADeviceNode) {
  const std::string null = folder_ / "null";
  const std::string loop = folder_ / "loop";
  if (mknod(null.c_str(), S_IFCHR | 0600, makedev(1, 3)) != 0 ||
      mknod(loop.c_str(), S_IFBLK | 0600, makedev(7, 200)) != 0) {
    GTEST_SKIP() << "skipped: no device nodes: " << std::strerror(errno);
  }
  write_file(folder_ / "file", "x");
  const RunResult result =
      run_program({MOX_RES_MGR, "delete",
                   "node-0: device-0.path=" + null + ", device-1.path=" + loop +
                       ", device-2.path=" + (folder_ / "file")});
  EXPECT_TRUE(fs::is_empty(folder_.path()));
  for (const std::string& line : {null + " (character device 1:3); the disk is unchanged\n",
                                  loop + " (block device 7:200); the disk is unchanged\n"}) {
    EXPECT_NE(result.err.find("removed the device node " + line), std::string::npos) << result.err;
  }
  EXPECT_EQ(result.err.find((folder_ / "file") + " ("), std::string::npos) << result.err;
}

TEST_F(Devices, TheLogTellsWhatWasEmptied) {
  const std::string full = folder_ / "full";
  write_file(full, "12345");
  const auto log = [&](const std::string& node) {
    return run_program({MOX_RES_MGR, "check", "node-0: ipcbase=10, " + node}).err;
  };
  const std::string emptied = "emptied " + full + ", which held 5 bytes\n";
  EXPECT_TRUE(log(device(0, full, 1)).ends_with(emptied));
  EXPECT_EQ(log(device(0, full, 1)), "");  // it is empty by now
  write_file(full, "12345");
  EXPECT_EQ(log("device-0.path=" + full).find("emptied"), std::string::npos);
  EXPECT_EQ(read_file(full), "12345");
}

TEST_F(Devices, AFileThatCannotBeEmptiedFails) {
  if (const std::string reason = why_no_faults(); !reason.empty()) GTEST_SKIP() << reason;
  write_file(folder_ / "full", "12345");
  bool struck = false;
  const RunResult result = run_with_fault(
      {MOX_RES_MGR, "check", "node-0: ipcbase=10, " + device(0, folder_ / "full", 1)},
      {"ftruncate", "error=ETXTBSY"}, 1, struck);
  EXPECT_TRUE(struck);
  const std::string text = "Opening file \"" + (folder_ / "full") + "\" failed";
  EXPECT_NE(result.out.find(error_block(5500, 4, text, ETXTBSY)), std::string::npos) << result.out;
  EXPECT_EQ(result.err.find("emptied"), std::string::npos) << result.err;
}

TEST_F(Devices, TheLogTellsWhySpaceIsLacking) {
  const SmallFileSystem volume("10m");
  if (!volume.refusal.empty()) GTEST_SKIP() << "skipped: no mount of its own: " << volume.refusal;
  fs::create_directory(volume / "sub");
  const std::string a = volume / "sub/a";
  const std::string b = volume / "b";
  write_file(b, "");
  const auto expect_told = [&](const std::string& devices, const std::string& path,
                               const std::string& figures) {
    const std::string log =
        run_program({MOX_RES_MGR, "check", "node-0: ipcbase=10, " + devices}).err;
    const std::string line = "not enough space for " + path + " on the file system of " +
                             volume.path() + ": " + figures + "\n";
    EXPECT_NE(log.find(line), std::string::npos) << log << "instead of\n" << line;
  };
  // 3 MB take 768 blocks, one of the bitmap and three of the header.
  expect_told(device(0, a, 3) + device(1, volume / "c", 8), volume / "c",
              "needed 8404992 bytes, free 10485760, given away by this run 3162112");
  expect_told(device(0, a, 3) + device(1, a, 3), a,
              "needed 3162112 bytes, free 10485760, given away by this run 3162112; the command "
              "names this path twice");
  expect_told(device(0, a, 3) + device(1, b, 1), b,
              "needed 1064960 bytes, free 10485760, given away by this run 3162112; a device that "
              "exists needs the account of its file system for itself");
}

TEST_F(Devices, ManyOfThemNeedNoMoreDescriptorsThanFolders) {
  std::string devices;
  for (int i = 0; i < 50; ++i) devices += device(i, folder_ / std::to_string(i), 0);
  const std::string command = "node-0: ipcbase=10, " + devices;
  const RunResult result = run_program(
      {"/bin/sh", "-c", "ulimit -n 12; exec \"$0\" check \"$1\"", MOX_RES_MGR, command});
  EXPECT_EQ(result.out.find("Error:"), std::string::npos) << result.out;
  EXPECT_TRUE(fs::is_empty(folder_.path()));
}

// The example of the README, where its two file systems are.
TEST_F(Devices, TheExampleOfTwoNodesPasses) {
  const SmallFileSystem srv("1m");
  if (!srv.refusal.empty()) GTEST_SKIP() << "skipped: no mount of its own: " << srv.refusal;
  fs::create_directories("/srv");
  ASSERT_EQ(mount("mox", "/srv", "tmpfs", 0, "size=1m"), 0) << std::strerror(errno);
  for (const char* place : {"/srv/mox/data", "/srv/mox/log"}) {
    fs::create_directories(place);
    ASSERT_EQ(mount("mox", place, "tmpfs", 0, "size=100m"), 0);
  }
  const RunResult result = run_program({MOX_RES_MGR, "-f", EXAMPLES "/check-devices.cmd"});
  EXPECT_EQ(result.out,
            "checking ipcbase 5000\nnode-1:ipcbase=5000\n"
            "create file /srv/mox/data/node-1\ncreate file /srv/mox/log/node-1\n"
            "checking ipcbase 5100\nnode-2:ipcbase=5100\n"
            "create file /srv/mox/data/node-2\ncreate file /srv/mox/log/node-2\n"
            "removing file /srv/mox/data/node-1\nremoving file /srv/mox/log/node-1\n"
            "removing file /srv/mox/data/node-2\nremoving file /srv/mox/log/node-2\n");
  EXPECT_EQ(result.err, "");
  for (const char* place : {"/srv/mox/data", "/srv/mox/log", "/srv"}) umount2(place, MNT_DETACH);
}

}  // namespace
