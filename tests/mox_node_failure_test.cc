// One system call of mox_node after the other is made to fail, or a signal to arrive at it; one
// allocation after the other is refused. What it then says is true, and what it makes or removes is
// all or nothing or named.
#include <sched.h>
#include <sys/mount.h>
#include <sys/sem.h>
#include <sys/shm.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "tests/support/fault.h"
#include "tests/support/ipc_namespace.h"
#include "tests/support/sandbox.h"

namespace {

namespace fs = std::filesystem;
using Command = std::vector<std::string>;

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

  void make_all() const { run_program(create); }
  void make_some() const {
    make_all();
    shmctl(shmget(1004, 0, 0), IPC_RMID, nullptr);
  }

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
    const auto verify = [&](const RunResult& result, const Strike& /*strike*/) {
      const bool unknown = contains(result.out, "unknown");
      if (result.status == 3) {
        EXPECT_TRUE(result.out == truth.out || unknown);
      } else {
        EXPECT_EQ(result.status, 1);
        EXPECT_TRUE(unknown || !result.err.empty() || truth.out.starts_with(result.out));
      }
    };
    Trial{command, [] {}, verify, [] {}}.strike_everywhere(
        {"error=EPERM", "error=EINVAL", "error=EIO"});
    clean_up();
  }
}

TEST_F(NodeFailures, OfACallLeaveAnUpAllOrNothing) {
  const auto verify = [](const RunResult& result, const Strike& strike) {
    if (result.status == 0) {
      EXPECT_TRUE(everything_there());
    } else if (contains(result.err, "writing standard output") || result.err.empty()) {
      EXPECT_TRUE(everything_there() || nothing_left());
    } else if (strike.lasting) {  // then the undo fails as well
      expect_leftovers_named(result);
    } else {
      EXPECT_TRUE(nothing_left());
    }
    EXPECT_TRUE(result.signal == 0 || nothing_left());
  };
  Trial{create, [] {}, verify, clean_up}.strike_everywhere(
      {"error=EPERM", "error=ENOMEM", "signal=SIGINT", "signal=SIGTERM", "signal=SIGQUIT",
       "signal=SIGUSR1", "signal=SIGALRM"});
}

TEST_F(NodeFailures, OfACallLeaveARepairAllOrNothing) {
  Command repair = create;
  repair.insert(repair.begin() + 2, "--repair");
  std::vector<int> some = all_segments;
  std::erase(some, 1004);
  const auto verify = [&](const RunResult& result, const Strike& strike) {
    EXPECT_EQ(set_keys(), all_sets);
    const bool made = segments() == all_segments;
    EXPECT_TRUE(made || segments() == some);
    EXPECT_TRUE(result.status != 0 || made);
    EXPECT_TRUE(result.signal == 0 || !made || strike.lasting);
  };
  Trial{repair, [this] { make_some(); }, verify, clean_up}.strike_everywhere(
      {"error=EPERM", "signal=SIGTERM"});
}

TEST_F(NodeFailures, OfACallInADownAreNamed) {
  const auto verify = [](const RunResult& result, const Strike& /*strike*/) {
    EXPECT_TRUE(result.status != 0 || nothing_left());
    const bool lost_report = result.err.empty() || contains(result.err, "writing standard");
    // Who was stopped before it began has nothing to say about objects.
    if (everything_there()) return;
    if (!lost_report) expect_leftovers_named(result);
    EXPECT_TRUE(result.signal == 0 || contains(result.err, "interrupted by signal "));
  };
  Trial{remove, [this] { make_all(); }, verify, clean_up}.strike_everywhere(
      {"error=EPERM", "error=EINVAL", "signal=SIGINT", "signal=SIGTERM", "signal=SIGHUP"});
}

TEST_F(NodeFailures, OfACallLeaveAnOutputFileWhole) {
  const TempFolder folder;
  const std::string file = folder / "out";
  const Command command = {MOX_NODE, "status", "--output-file",
                           file,     "create", "node-1: ipcbase=1000"};
  run_program(command);
  const std::string after = read_file(file);
  ASSERT_FALSE(after.empty());
  const auto verify = [&](const RunResult& result, const Strike& strike) {
    const std::string content = read_file(file);
    EXPECT_TRUE(content == after || content == "before") << content;
    EXPECT_TRUE(result.status != 2 || content == after);
    const auto count = std::distance(fs::directory_iterator(folder.path()), {});
    EXPECT_TRUE(count == 1 || strike.lasting);
  };
  const auto prepare = [&] {
    for (const auto& entry : fs::directory_iterator(folder.path())) fs::remove(entry.path());
    write_file(file, "before");
  };
  Trial{command, prepare, verify, [] {}}.strike_everywhere({"error=ENOSPC", "signal=SIGTERM"});
}

TEST_F(NodeFailures, OfAnAllocationLeaveAllOrNothing) {
  for (const Command& command : {create, remove}) {
    const bool up = command == create;
    const auto prepare = [&] {
      if (!up) make_all();
    };
    const auto verify = [&](const RunResult& result, const Strike& /*strike*/) {
      EXPECT_TRUE(result.status != 0 || (up ? everything_there() : nothing_left()));
      // What was made stays when only its report could not be put together.
      EXPECT_TRUE(!up || everything_there() || nothing_left());
      EXPECT_TRUE(result.status == 0 || contains(result.err, "out of memory") ||
                  contains(result.err, "Cannot allocate memory"));
    };
    Trial{command, prepare, verify, clean_up}.refuse_every_allocation();
  }
}

}  // namespace
