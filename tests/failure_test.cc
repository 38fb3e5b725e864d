// One system call after the other is made to fail, or a signal to arrive at it; one allocation
// after the other is refused. Whatever happens: all or nothing, as the kernel tells it, and what
// cannot be undone is named.
#include <gmock/gmock.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/sem.h>
#include <sys/shm.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/fault.h"
#include "tests/support/ipc_namespace.h"
#include "tests/support/sandbox.h"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using Command = std::vector<std::string>;

bool contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

class Failures : public IpcTest {
 protected:
  void SetUp() override {
    IpcTest::SetUp();
    if (const std::string reason = why_no_faults(); !reason.empty()) GTEST_SKIP() << reason;
  }

  static bool everything_there() {
    return segment_keys() == std::vector<int>{1001, 1004, 1007, 2004} &&
           set_keys() == std::vector<int>{1005, 2005};
  }

  // A line of the report for each object that is still there.
  static void expect_leftovers_named(const RunResult& result, const std::string& before_set) {
    for (const int key : segment_keys()) {
      EXPECT_THAT(result.out, HasSubstr("memory segment " + std::to_string(key) + " failed\n"));
    }
    for (const int key : set_keys()) {
      EXPECT_THAT(result.out, HasSubstr(before_set + std::to_string(key)));
    }
  }

  void clean_up() {
    run_program(del);
    fs::remove(file);
    ASSERT_TRUE(nothing_left());
  }

  Trial trial(const Command& command, const std::function<void()>& prepare,
              const std::function<void(const RunResult&, const Strike&)>& verify) {
    return {command, prepare, verify, [this] { clean_up(); }};
  }

  TempFolder folder;
  const std::string file = folder / "device";
  const Command create = {MOX_RES_MGR, "create", "node-1: ipcbase=1000, databuf=10, evbuf=7",
                          "node-2: ipcbase=2000"};
  const Command check = {MOX_RES_MGR, "check", "node-1: ipcbase=1000, databuf=10",
                         ", device-0.size=1, device-0.path=" + file, "node-2: ipcbase=2000"};
  const Command del = {MOX_RES_MGR, "delete",
                       "node-1: ipcbase=1000, device-0.path=" + file + " node-2: ipcbase=2000"};
  static constexpr auto no_preparation = [] {};
};

const std::vector<std::string> faults = {"error=EPERM", "error=ENOMEM", "signal=SIGTERM"};

TEST_F(Failures, CreateIsAllOrNothingWhateverCallFails) {
  trial(create, no_preparation, [](const RunResult& result, const Strike& strike) {
    EXPECT_EQ(result.signal != 0, result.status != 0 && strike.fault.starts_with("signal"));
    if (result.status == 0) {
      EXPECT_TRUE(everything_there());
    } else if (strike.lasting) {  // then the undo fails as well
      expect_leftovers_named(result, "semaphores with ");
    } else {
      EXPECT_TRUE(nothing_left());
    }
  }).strike_everywhere(faults);
}

class Signals : public Failures {
 protected:
  // A CREATE, begun by the words in front of it and struck by the signal at the second segment.
  RunResult struck_create(int signal, Command words = {}) {
    words.insert(words.end(), create.begin(), create.end());
    bool struck = false;
    const RunResult result =
        run_with_fault(words, {"shmget", "signal=" + std::to_string(signal)}, 2, struck);
    EXPECT_TRUE(struck);
    return result;
  }
};

// Those whose default ends a process and that a process can catch, but for those of a fault.
TEST_F(Signals, EveryOneThatEndsAProcessUndoesACreateFirst) {
  for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGUSR1, SIGUSR2, SIGALRM, SIGTERM, SIGSTKFLT,
                           SIGXCPU, SIGVTALRM, SIGPROF, SIGPOLL, SIGPWR, SIGRTMIN, SIGRTMAX}) {
    SCOPED_TRACE(signal);
    const RunResult result = struck_create(signal);
    EXPECT_EQ(result.signal, signal);
    EXPECT_THAT(result.out,
                HasSubstr("Error: interrupted by signal " + std::to_string(signal) + "\n"));
    EXPECT_TRUE(nothing_left());
  }
}

TEST_F(Signals, ThoseThatEndNoProcessOrThatTheCallerIgnoresChangeNothing) {
  for (const int signal :
       {SIGCHLD, SIGCONT, SIGURG, SIGWINCH, SIGPIPE, SIGXFSZ, SIGHUP, SIGINT, SIGUSR1}) {
    SCOPED_TRACE(signal);
    const bool ignored = signal == SIGHUP || signal == SIGINT || signal == SIGUSR1;
    const std::string trap = ignored ? "trap '' " + std::to_string(signal) + "; " : "";
    EXPECT_EQ(struck_create(signal, {"/bin/sh", "-c", trap + "exec \"$@\"", "sh"}).status, 0);
    EXPECT_TRUE(everything_there());
    clean_up();
  }
}

// The undo has calls of its own, which a CREATE that succeeds does not make.
TEST_F(Failures, FailedUndoIsNamed) {
  const auto stranger = [] { shmget(2004, 10, IPC_CREAT | 0600); };
  trial(create, stranger, [](const RunResult& result, const Strike& /*strike*/) {
    EXPECT_NE(result.status, 0);
    EXPECT_EQ(shmctl(shmget(2004, 0, 0), IPC_RMID, nullptr), 0);
    expect_leftovers_named(result, "semaphores with ");
  }).strike_everywhere({"error=EPERM"});
}

TEST_F(Failures, CheckLeavesNothingWhateverCallFails) {
  trial(check, no_preparation, [this](const RunResult& result, const Strike& /*strike*/) {
    expect_leftovers_named(result, "semaphores with ");
    if (contains(result.out, "interrupted by signal")) {
      EXPECT_EQ(result.signal, SIGTERM);
      EXPECT_FALSE(contains(result.out, "check failed"));
    }
    const std::string report = "undo of device " + file + " create failed";
    EXPECT_TRUE(!fs::exists(file) || contains(result.out, report));
  }).strike_everywhere(faults);
}

TEST_F(Failures, DeleteGoesOnWhateverCallFails) {
  const auto create_all = [this] {
    run_program(create);
    write_file(file, "x");
  };
  trial(del, create_all, [this](const RunResult& result, const Strike& /*strike*/) {
    if (result.status != 0) return;  // it did not even begin, and says so
    expect_leftovers_named(result, "emaphore ");
    const std::string report = "Error: delete of file " + file + " failed\n";
    EXPECT_TRUE(!fs::exists(file) || contains(result.out, report));
  }).strike_everywhere({"error=EPERM"});
}

TEST_F(Failures, DeleteCleansUpAfterAKill) {
  trial(create, no_preparation, [](const RunResult& result, const Strike& /*strike*/) {
    EXPECT_EQ(result.signal, SIGKILL);
    // Every line is out when what follows it begins.
    EXPECT_TRUE(segment_keys().empty() || result.out.starts_with("checking ipcbase 1000\n"));
  }).strike_everywhere({"signal=SIGKILL"});
}

TEST_F(Failures, OfASystemCallNeverPassForAnInitialisedDevice) {
  const Command initialise = {DEVINIT, "-p", "-b", "1100", "-s", "1024", "-S", "1", "-f", file};
  run_program(initialise);
  const std::string content = read_file(file);
  const Command verify = {DEVINIT, "-V", "-b", "1100", "-f", file};
  const std::string report = run_program(verify).out;
  const auto put_device = [&] { write_file(file, content); };
  trial(verify, put_device, [&](const RunResult& result, const Strike& /*strike*/) {
    EXPECT_EQ(result.status == 0, result.out == report);
  }).strike_everywhere({"error=EIO"});
  trial(initialise, no_preparation, [&](const RunResult& result, const Strike& /*strike*/) {
    const std::string device = read_file(file);
    // The creation time apart.
    const bool good = device.size() > 8204 && device.substr(8204) == content.substr(8204);
    EXPECT_TRUE(good || result.signal == SIGTERM || contains(result.err, "DEVINIT-ERROR"));
    EXPECT_TRUE(good || !fs::exists(file) || contains(result.err, file));
    EXPECT_TRUE(good || result.status != 0);
  }).strike_everywhere({"error=EIO", "signal=SIGTERM"});
}

TEST_F(Failures, EveryCommandIsAllOrNothingWhateverAllocationFails) {
  const Command initialise = {DEVINIT, "-b", "100", "-f", file};
  for (const Command& command : {create, check, initialise}) {
    trial(command, no_preparation, [&](const RunResult& result, const Strike& /*strike*/) {
      const bool made = command == create && result.status == 0;
      EXPECT_TRUE(made ? everything_there() : nothing_left());
      EXPECT_TRUE(result.status == 0 || contains(result.out + result.err, "memory"));
      EXPECT_EQ(fs::exists(file), command == initialise && result.status == 0);
    }).refuse_every_allocation();
  }
}

// What mox_node says is true, and what it makes or removes is all or nothing or named.
class NodeFailures : public Failures {
 protected:
  void SetUp() override {
    Failures::SetUp();
    if (IsSkipped()) return;
    const bool own = unshare(CLONE_NEWNS) == 0 &&
                     mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                     mount("none", "/run/lock", "tmpfs", 0, nullptr) == 0;
    if (!own) GTEST_SKIP() << "skipped: no mounts of its own: " << std::strerror(errno);
    shmget(stranger_key, 10, IPC_CREAT | 0600);
    down[1] = "down";
  }

  static std::vector<int> segments() {
    std::vector<int> keys = segment_keys();
    EXPECT_EQ(std::erase(keys, stranger_key), 1U) << "the stranger's segment";
    return keys;
  }
  static bool nothing_left() { return segments().empty() && set_keys().empty(); }
  static bool everything_there() {
    return segments() == std::vector<int>{1001, 1004, 2004} &&
           set_keys() == std::vector<int>{1005, 2005};
  }

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

  void make_all() const { run_program(up); }
  void make_some() const {
    make_all();
    shmctl(shmget(1004, 0, 0), IPC_RMID, nullptr);
  }

  static constexpr int stranger_key = 1003;
  const Command up = {MOX_NODE, "up", "create", "node-1: ipcbase=1000, databuf=10",
                      "node-2: ipcbase=2000"};
  Command down = up;
};

TEST_F(NodeFailures, OfALookAreToldOrMadeGood) {
  for (const char* verb : {"status", "plan"}) {
    Command command = up;
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
  Trial{up, [] {}, verify, clean_up}.strike_everywhere(
      {"error=EPERM", "error=ENOMEM", "signal=SIGINT", "signal=SIGTERM", "signal=SIGQUIT",
       "signal=SIGUSR1", "signal=SIGALRM"});
}

TEST_F(NodeFailures, OfACallLeaveARepairAllOrNothing) {
  Command repair = up;
  repair.insert(repair.begin() + 2, "--repair");
  const auto verify = [](const RunResult& result, const Strike& strike) {
    const bool made = everything_there();
    EXPECT_TRUE(made || segments() == (std::vector<int>{1001, 2004}));
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
  Trial{down, [this] { make_all(); }, verify, clean_up}.strike_everywhere(
      {"error=EPERM", "error=EINVAL", "signal=SIGINT", "signal=SIGTERM", "signal=SIGHUP"});
}

TEST_F(NodeFailures, OfACallLeaveAnOutputFileWhole) {
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
  for (const Command& command : {up, down}) {
    const bool makes = command == up;
    const auto prepare = [&] {
      if (!makes) make_all();
    };
    const auto verify = [&](const RunResult& result, const Strike& /*strike*/) {
      EXPECT_TRUE(result.status != 0 || (makes ? everything_there() : nothing_left()));
      // What was made stays when only its report could not be put together.
      EXPECT_TRUE(!makes || everything_there() || nothing_left());
      EXPECT_TRUE(result.status == 0 || contains(result.err, "out of memory") ||
                  contains(result.err, "Cannot allocate memory"));
    };
    Trial{command, prepare, verify, clean_up}.refuse_every_allocation();
  }
}

}  // namespace
