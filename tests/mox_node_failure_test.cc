// One system call of mox_node after the other is made to fail, or a signal to arrive at it; one
// allocation after the other is refused. What it then says is true, and what it makes or removes is
// all or nothing or named.
#include <sched.h>
#include <sys/mount.h>
#include <sys/sem.h>
#include <sys/shm.h>

#include <filesystem>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "tests/support/fault.h"
#include "tests/support/ipc_namespace.h"
#include "tests/support/sandbox.h"

namespace {

namespace fs = std::filesystem;
using Command = std::vector<std::string>;
using Verify = std::function<void(const RunResult&, bool lasting)>;

const std::vector<int> all_segments = {1001, 1004, 2004};
const std::vector<int> all_sets = {1005, 2005};
constexpr int stranger_key = 1003;

bool contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

class NodeFailures : public IpcTest {
 protected:
  void SetUp() override {
    IpcTest::SetUp();
    if (IsSkipped()) return;
    const std::string reason = why_no_faults();
    if (!reason.empty()) GTEST_SKIP() << reason;
    const bool own = unshare(CLONE_NEWNS) == 0 &&
                     mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                     mount("none", "/run/lock", "tmpfs", 0, nullptr) == 0;
    if (!own) GTEST_SKIP() << "skipped: no mounts of its own: " << std::strerror(errno);
    shmget(stranger_key, 10, IPC_CREAT | 0600);
    create = {MOX_NODE, "up", "create", "node-1: ipcbase=1000, databuf=10 node-2: ipcbase=2000"};
    remove = create;
    remove[1] = "down";
  }

  static std::vector<int> segments() {
    std::vector<int> keys = segment_keys();
    EXPECT_EQ(std::erase(keys, stranger_key), 1U) << "the stranger's segment";
    return keys;
  }
  static bool nothing_left() { return segments().empty() && set_keys().empty(); }
  static bool everything_there() { return segments() == all_segments && set_keys() == all_sets; }

  static void clean_up() {
    for (const int key : segments()) shmctl(shmget(key, 0, 0), IPC_RMID, nullptr);
    for (const int key : set_keys()) semctl(semget(key, 0, 0), 0, IPC_RMID);
    fs::remove("/run/lock/mox_node.lock");
  }

  // Every object that is left has its key in the report or in the errors.
  static void expect_leftovers_named(const RunResult& result) {
    for (const auto& keys : {segments(), set_keys()}) {
      for (const int key : keys) EXPECT_TRUE(contains(result.err, std::to_string(key))) << key;
    }
  }

  // Runs the command with a fault in each of the system calls that it makes when it is left alone.
  void strike_everywhere(const Command& command, const std::string& what,
                         const std::function<void()>& prepare, const Verify& verify) {
    prepare();
    const auto calls = calls_of(command);
    clean_up();
    EXPECT_GT(calls.size(), 15U);
    for (const auto& [call, n] : calls) {
      for (const bool lasting : {false, true}) {
        bool struck = false;
        prepare();
        const RunResult result = run_with_fault(command, {call, what, lasting}, n, struck);
        SCOPED_TRACE(call + ":" + what + ":when=" + std::to_string(n) + (lasting ? "+\n" : "\n") +
                     result.out + result.err);
        EXPECT_TRUE(struck);
        verify(result, lasting);
        clean_up();
        if (HasFailure()) return;
      }
    }
  }

  void make_all() const { run_program(create); }
  void make_some() const {
    make_all();
    shmctl(shmget(1004, 0, 0), IPC_RMID, nullptr);
  }

  TempFolder folder;
  Command create;
  Command remove;
};

TEST_F(NodeFailures, OfALookAreToldOrMadeGood) {
  for (const char* verb : {"status", "plan"}) {
    Command command = create;
    command[1] = verb;
    // The same objects with the same identifiers for every run.
    make_some();
    const RunResult truth = run_program(command);
    EXPECT_EQ(truth.status, 3);
    const auto calls = calls_of(command);
    for (const std::string what : {"error=EPERM", "error=EINVAL", "error=EIO"}) {
      for (const auto& [call, n] : calls) {
        for (const bool lasting : {false, true}) {
          bool struck = false;
          const RunResult result = run_with_fault(command, {call, what, lasting}, n, struck);
          SCOPED_TRACE(call + ":" + what + ":when=" + std::to_string(n) + (lasting ? "+\n" : "\n") +
                       result.out + result.err);
          EXPECT_TRUE(struck);
          const bool told = contains(result.out, "unknown") || !result.err.empty();
          EXPECT_TRUE(result.status == 1 || result.status == 3);
          EXPECT_TRUE(told || result.out == truth.out || call == "write");
        }
      }
      if (HasFailure()) return;
    }
    clean_up();
  }
}

TEST_F(NodeFailures, OfACallLeaveAnUpAllOrNothing) {
  for (const std::string what : {"error=EPERM", "error=ENOMEM", "signal=SIGINT", "signal=SIGTERM",
                                 "signal=SIGQUIT", "signal=SIGUSR1", "signal=SIGALRM"}) {
    strike_everywhere(
        create, what, [] {},
        [&](const RunResult& result, bool lasting) {
          if (result.status == 0) {
            EXPECT_TRUE(everything_there());
          } else if (contains(result.err, "writing standard output") || result.err.empty()) {
            EXPECT_TRUE(everything_there() || nothing_left());
          } else if (lasting) {  // then the undo fails as well
            expect_leftovers_named(result);
          } else {
            EXPECT_TRUE(nothing_left());
          }
          EXPECT_EQ(result.signal != 0, result.status == -1);
          EXPECT_TRUE(result.signal == 0 || nothing_left());
          EXPECT_TRUE(result.signal == 0 || contains(what, "signal"));
        });
  }
}

TEST_F(NodeFailures, OfACallLeaveARepairAllOrNothing) {
  Command repair = create;
  repair.insert(repair.begin() + 2, "--repair");
  std::vector<int> some = all_segments;
  std::erase(some, 1004);
  for (const std::string what : {"error=EPERM", "signal=SIGTERM"}) {
    strike_everywhere(
        repair, what, [this] { make_some(); },
        [&](const RunResult& result, bool lasting) {
          EXPECT_EQ(set_keys(), all_sets);
          const bool made = segments() == all_segments;
          EXPECT_TRUE(made || segments() == some);
          EXPECT_TRUE(result.status != 0 || made);
          EXPECT_TRUE(result.signal == 0 || !made || lasting);
        });
  }
}

TEST_F(NodeFailures, OfACallInADownAreNamed) {
  for (const std::string what :
       {"error=EPERM", "error=EINVAL", "signal=SIGINT", "signal=SIGTERM", "signal=SIGHUP"}) {
    strike_everywhere(
        remove, what, [this] { make_all(); },
        [&](const RunResult& result, bool /*lasting*/) {
          EXPECT_TRUE(result.status != 0 || nothing_left());
          const bool lost_report = result.err.empty() || contains(result.err, "writing standard");
          // Who was stopped before it began has nothing to say about objects.
          if (!everything_there() && !lost_report) expect_leftovers_named(result);
          EXPECT_TRUE(result.signal == 0 || contains(what, "signal"));
          if (result.signal != 0 && !everything_there()) {
            EXPECT_TRUE(contains(result.err, "interrupted by signal "));
          }
        });
  }
}

TEST_F(NodeFailures, OfACallLeaveAnOutputFileWhole) {
  const std::string file = folder / "out";
  Command command = {MOX_NODE, "status", "--output-file", file, "create", "node-1: ipcbase=1000"};
  run_program(command);
  const std::string after = read_file(file);
  ASSERT_FALSE(after.empty());
  for (const std::string what : {"error=ENOSPC", "signal=SIGTERM"}) {
    strike_everywhere(
        command, what, [&] { write_file(file, "before"); },
        [&](const RunResult& result, bool lasting) {
          const std::string content = read_file(file);
          EXPECT_TRUE(content == after || content == "before") << content;
          EXPECT_TRUE(result.status != 2 || content == after);
          const auto count = std::distance(fs::directory_iterator(folder.path()), {});
          EXPECT_TRUE(count == 1 || lasting);
          for (const auto& entry : fs::directory_iterator(folder.path())) {
            if (entry.path() != file) fs::remove(entry.path());
          }
        });
  }
}

#ifdef FAILING_MALLOC
TEST_F(NodeFailures, OfAnAllocationLeaveAllOrNothing) {
  const std::string mark = folder / "mark";
  for (const Command& command : {create, remove}) {
    for (const char* mode : {"FAILING_MALLOC_AT_ONLY=1", "FAILING_MALLOC_ON=1"}) {
      // The first allocation is the C++ library's reserve, without which it cannot throw bad_alloc.
      int strikes = 1;
      do {
        if (command == remove) make_all();
        fs::remove(mark);
        const std::string at = "FAILING_MALLOC_AT=" + std::to_string(++strikes);
        const RunResult result = run_program(
            command, {"LD_PRELOAD=" FAILING_MALLOC, at, "FAILING_MALLOC_MARK=" + mark, mode});
        SCOPED_TRACE(at + " " + mode + "\n" + result.out + result.err);
        EXPECT_EQ(result.signal, 0);
        const bool up = command == create;
        EXPECT_TRUE(result.status != 0 || (up ? everything_there() : nothing_left()));
        // What was made stays when only its report could not be put together.
        EXPECT_TRUE(!up || everything_there() || nothing_left());
        EXPECT_TRUE(result.status == 0 || contains(result.err, "out of memory") ||
                    contains(result.err, "Cannot allocate memory"));
        clean_up();
      } while (fs::exists(mark) && !HasFailure());
      EXPECT_GT(strikes, 20);
    }
  }
}
#endif

}  // namespace
