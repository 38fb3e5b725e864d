// The device initialiser as a function, with its system calls in the test's hands: what it retries,
// what it does another way, and which failures it must not pass over.
#include <gmock/gmock.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>

#include <utility>

#include "kern/device/settings.h"
#include "kern/devinit/target.h"
#include "tests/support/devinit_call.h"

namespace {

using DevinitCalls = DevinitTest;

TEST_F(DevinitCalls, EveryCallStartsAfresh) {
  const RunResult result = run_function([this] {
    call_devinit("-D -S -1 -b 300 -f " + file);
    call_devinit("-V -V -F -b 300 -f " + file);
    signal(SIGTERM, SIG_DFL);
    const int status = call_devinit("-b 200 -p -f " + file);
    const bool fresh = nodio == 0 && syncsz == 32 && readVerify == 0 && devwritten == 200 * 8192;
    return signal(SIGTERM, SIG_DFL) == SIG_DFL && fresh ? status : 1;
  });
  EXPECT_EQ(result.status, 0) << result.err;
}

TEST_F(DevinitCalls, ASignalAtTheLastCallDoesWhatTheCallerWanted) {
  for (const auto& [action, ended_by] : {std::pair(SIG_DFL, SIGHUP), std::pair(SIG_IGN, 0)}) {
    signal(SIGHUP, action);
    const RunResult result = run("-b 10", raising("fsync", SIGHUP));
    EXPECT_EQ(result.signal, ended_by);
    EXPECT_NE(result.out.find("Device initialized successfully"), std::string::npos);
    EXPECT_TRUE(fs::exists(file));
  }
  signal(SIGHUP, SIG_DFL);
}

TEST_F(DevinitCalls, InterruptedTransfersAreRetriedNinetyNineTimes) {
  for (const char* transfer : {"pwrite", "pread"}) {
    for (const int interruptions : {99, 100}) {
      SCOPED_TRACE(std::string(transfer) + " " + std::to_string(interruptions));
      const RunResult result = run("-b 10 -p", [&, left = interruptions](const Call& call) mutable {
        return call.name == transfer && left-- > 0 ? fail(EINTR) : std::nullopt;
      });
      EXPECT_EQ(result.status, interruptions == 99 ? 0 : 1) << result.err;
    }
  }
}

TEST_F(DevinitCalls, WhatAPartialOrRefusedDirectTransferLeavesIsDoneToo) {
  const auto partly = [](const Call& call) -> std::optional<long> {
    const bool writes = call.name == "pwrite";
    if ((!writes && call.name != "pread") || call.bytes <= 4096) return {};
    return syscall(writes ? SYS_pwrite64 : SYS_pread64, call.fd, call.buffer, 4096, call.offset);
  };
  const auto only_cached = [](const Call& call) {
    const bool transfer = call.name == "pwrite" || call.name == "pread";
    const bool direct = transfer && (fcntl(call.fd, F_GETFL) & O_DIRECT) != 0;
    return direct ? fail(EINVAL) : std::nullopt;
  };
  for (const CallHook& hook : {CallHook(partly), CallHook(only_cached)}) {
    EXPECT_EQ(run("-b 300 -p", hook).err, "");
    EXPECT_TRUE(read_file(file).substr(12288, 299 * 8192) == pattern(299 * 8192));
    fs::remove(file);
  }
}

TEST_F(DevinitCalls, FailuresOfTheDiskAreErrors) {
  const struct {
    const char* call;
    int error;
    const char *text, *progress;
  } cases[] = {{"fsync", EIO, "fsync Input/output error", "\n"},
               {"fdatasync", EDQUOT, "fdatasync Disk quota exceeded", "\n       0 w"},
               {"openat", EMFILE, "open Too many open files", "bytes\n"},
               {"flock", EIO, "flock Input/output error", "bytes\n"},
               {"pread", EIO, "verify header Input/output error", ""},
               {"pwrite", EIO, "out of space, wrote 0 B of 9 MB Input/output error", ""}};
  for (const auto& row : cases) {
    const RunResult result = run("-S 2 -b 1200", failing(row.call, row.error));
    EXPECT_EQ(result.err.find("\nDEVINIT-ERROR: " + std::string(row.text) + "\n"), 0U);
    EXPECT_TRUE(result.out.ends_with(row.progress)) << result.out;
    EXPECT_EQ(result.status, 1);
    EXPECT_FALSE(fs::exists(file));
  }
  for (const int no_locks : {ENOLCK, EOPNOTSUPP, ENOSYS}) {
    EXPECT_EQ(run("-b 10", failing("flock", no_locks)).status, 0);
  }
  const RunResult twice = run("-b 10", [&](const Call& call) {
    return call.name == "fsync" || call.name == "unlinkat" ? fail(EPERM) : std::nullopt;
  });
  EXPECT_TRUE(twice.err.ends_with("\n\nDEVINIT-ERROR: the unfinished file cannot be removed: " +
                                  file + " Operation not permitted\n"));
}

// Between the look at a file and its open a stranger may have put another one in its place.
TEST_F(DevinitCalls, OnlyTheFileThatWasLookedAtIsOpened) {
  const DeviceNode any = zero_node();
  if (!any.refusal.empty()) GTEST_SKIP() << "skipped: device node: " << any.refusal;
  const auto link = [this] { fs::create_symlink("victim", file); };
  const auto fifo = [this] { mkfifo(file.c_str(), 0600); };
  const auto node = [this] { mknod(file.c_str(), S_IFCHR | 0600, makedev(1, 3)); };
  const auto other = [this] { write_file(file, "other"); };
  const struct {
    const char *options, *call;
    long long flags;
    std::function<void()> put;
    const char *error, *left;
  } cases[] = {
      {"-b 10", "openat", O_RDWR, link, "open Too many levels of symbolic links", "victim"},
      {"-V", "openat", O_RDONLY, fifo, "File must be regular file or raw device", ""},
      {"-b 10", "openat", O_RDWR, node, "open Stale file handle", ""},
      {"-b 10", "openat", O_CREAT, other, "open File exists", "other"},
      {"-b 10", "flock", 0, other, "open Stale file handle", "other"}};
  for (const auto& row : cases) {
    SCOPED_TRACE(std::string(row.options) + " " + row.error);
    fs::remove(file);
    write_file(folder / "victim", "victim");
    if (row.flags != O_CREAT) write_file(file, "first");
    const RunResult result = run(row.options, [&](const Call& call) -> std::optional<long> {
      if (call.name != row.call || (call.offset & row.flags) != row.flags) return {};
      fs::remove(file);
      row.put();
      return {};
    });
    EXPECT_EQ(result.err, "\nDEVINIT-ERROR: " + std::string(row.error) + "\n");
    EXPECT_EQ(read_file(folder / "victim"), "victim");
    EXPECT_EQ(fs::is_fifo(file) ? "" : read_file(file), row.left);
  }
}

TEST_F(DevinitCalls, ABlockDeviceIsHeldAndLosesItsHeaderWithEveryFailure) {
  write_file(file, std::string(4000000, '\0'));
  const LoopDevice device(file, 512);
  if (!device.refusal.empty()) GTEST_SKIP() << "skipped: loop device: " << device.refusal;
  const auto half_a_header = [&](const Call& call) -> std::optional<long> {
    if (call.name != "pwrite") return {};
    if (open(device.path().c_str(), O_RDONLY | O_EXCL | O_CLOEXEC) >= 0) _exit(7);
    if (call.offset == 8192 + 512) return fail(EIO);
    return syscall(SYS_pwrite64, call.fd, call.buffer, 512, call.offset);
  };
  std::string told =
      "DEVINIT-ERROR: the device may pass for an initialized one, its header cannot be "
      "overwritten: " +
      device.path() + " Input/output error\n";
  for (const CallHook& hook :
       {CallHook(half_a_header), failing("fdatasync", EIO), raising("fdatasync", SIGTERM)}) {
    const RunResult result = run("-D -S 1 -b 400 -f " + device.path(), hook);
    EXPECT_TRUE(result.err.ends_with(std::exchange(told, ""))) << result.err;
    EXPECT_TRUE(result.status == 1 || result.signal == SIGTERM) << result.err;
    EXPECT_EQ(read_file(file).substr(8192, 4096), std::string(4096, '\0'));
    put_at(file, 8192, "header");
  }
}

// Plants a fault on the disk when the cache is dropped, that is after the writing and before the
// comparison.
TEST_F(DevinitCalls, TheComparisonLooksAtEveryByteOnTheDisk) {
  for (const std::string options : {"-l -p -b 300", "-l -p -D -b 300"}) {
    for (const int place : {0, 8191, 8192, 1048575, 1048576, 300 * 8192 - 1}) {
      const auto plant = [&, written = false](const Call& call) mutable -> std::optional<long> {
        written = written || call.name == "fdatasync";
        if (call.name == "posix_fadvise" && written) put_at(file, 12288 + place, "\xa5");
        return {};
      };
      SCOPED_TRACE(options + " " + std::to_string(place));
      EXPECT_EQ(run(options, plant).err, "\nDEVINIT-ERROR: verify block\n");
    }
  }
}

TEST_F(DevinitCalls, Sigusr1AsksHowFarItIs) {
  const RunResult result = run("-l -S 1 -b 300", [](const Call& call) -> std::optional<long> {
    if (call.name == "fdatasync") raise(SIGUSR1);
    struct sigaction answer {};  // a report whose reader is slow must not end with EINTR
    sigaction(SIGUSR1, nullptr, &answer);
    return (answer.sa_flags & SA_RESTART) != 0 ? std::nullopt : fail(EINVAL);
  });
  const std::string speed = " bytes, [0-9]+\\.[0-9] MB/s, [0-9]+ s left\n";
  EXPECT_THAT(result.err,
              testing::MatchesRegex("128 of 300 blocks written, 1048576 of 2457600" + speed +
                                    "256 of 300 blocks written, 2097152 of 2457600" + speed +
                                    "300 of 300 blocks written, 2457600 of 2457600" + speed));
  EXPECT_EQ(result.out, run("-l -S 1 -b 300").out);
}

// The report goes to a file, and errors to a terminal, whose text is shown behind the report.
TEST_F(DevinitCalls, ATerminalShowsALineThatIsGoneAtTheEnd) {
  const RunResult result = run_function([&] {
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY);
    unlockpt(terminal);
    const int end = open(ptsname(terminal), O_RDWR | O_NOCTTY);
    dup2(end, STDERR_FILENO);
    close(end);
    call_hook = [](const Call& call) -> std::optional<long> {
      if (call.name == "pwrite" && call.offset >= 12288) usleep(1100000);
      return {};
    };
    const int status = call_devinit("-l -b 256 -f " + file);
    close(STDERR_FILENO);  // the other end is closed: what was written is readable to its end
    char text[1000];
    for (ssize_t count; (count = read(terminal, text, sizeof text)) > 0;) {
      std::printf("%.*s", static_cast<int>(count), text);
    }
    return status;
  });
  const std::string rate = " written, [0-9]+\\.[0-9] MB/s, [0-9]+ s left\x1b\\[K";
  // A busy host may show one of these lines twice.
  EXPECT_THAT(result.out.substr(result.out.find('\r')),
              testing::MatchesRegex("(\r\\[###############---------------\\]  50%" + rate +
                                    ")+(\r\\[##############################\\] 100%" + rate +
                                    ")+\r\x1b\\[K"));
}

TEST_F(DevinitCalls, OnlyWhatIsFreeToAllUsersIsSpace) {
  call_hook = [](const Call& call) -> std::optional<long> {
    auto* status = static_cast<struct statvfs64*>(call.buffer);
    if (call.name != "statvfs") return {};
    *status = {};
    status->f_bsize = 65536;
    status->f_frsize = 1024;
    status->f_bfree = 1000;
    status->f_bavail = 10;
    return 0;
  };
  EXPECT_TRUE(has_space(file, 10240));
  EXPECT_FALSE(has_space(file, 10241));
  call_hook = nullptr;
}

}  // namespace
