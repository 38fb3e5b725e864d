// What other users and other runs can do to a CREATE, CHECK or DELETE of root at the wrong moment.
#include <gmock/gmock.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/error_block.h"
#include "tests/support/fault.h"
#include "tests/support/ipc_namespace.h"
#include "tests/support/sandbox.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::Not;

const std::string no_strangers = "skipped: cannot give files away";

// To another user; a link itself, not what it leads to.
bool give_away(const std::string& path) {
  return lchown(path.c_str(), 65534, 65534) == 0;
}

class Attacks : public IpcTest {
 protected:
  static RunResult run(const std::string& command, const std::string& node) {
    return run_program({MOX_RES_MGR, command, node});
  }
  static std::string device(const std::string& path) {
    return "node-1: ipcbase=10, device-0.path=" + path;
  }
  static std::string check(const std::string& path) {
    return run("check", device(path) + ", device-0.size=1").out;
  }

  static void wait_until(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + 60s;
    while (!condition() && std::chrono::steady_clock::now() < end) {
      std::this_thread::sleep_for(10ms);
    }
  }

  TempFolder folder;
};

class TimedAttacks : public Attacks {
 protected:
  void SetUp() override {
    Attacks::SetUp();
    if (const std::string reason = why_no_faults(); !reason.empty()) GTEST_SKIP() << reason;
  }

  // A run that is stopped for a time at the n-th call of that name, and what happens meanwhile.
  static RunResult attacked(std::vector<std::string> words, const Fault& delay, int n,
                            const std::function<void()>& attack) {
    words.insert(words.begin(), MOX_RES_MGR);
    RunResult result;
    bool struck = false;
    std::thread victim([&] { result = run_with_fault(words, delay, n, struck); });
    attack();
    victim.join();
    return result;
  }

  // A CHECK that is stopped in front of its undo, once it has made the file.
  static RunResult attacked_check(const std::string& path, const std::function<void()>& attack) {
    return attacked({"check", device(path) + ", device-0.size=1"}, {"shmdt", "delay_enter=2000000"},
                    1, [&] {
                      wait_until([&] { return fs::exists(path); });
                      attack();
                    });
  }
};

TEST_F(TimedAttacks, AnExchangedFolderDoesNotLeadTheUndoToAnotherFile) {
  fs::create_directory(folder / "data");
  fs::create_directory(folder / "victim");
  write_file(folder / "victim/n1", "precious");
  const RunResult check = attacked_check(folder / "data/n1", [&] {
    fs::rename(folder / "data", folder / "moved");
    fs::create_symlink("victim", folder / "data");
  });
  EXPECT_EQ(check.status, 0);
  EXPECT_EQ(read_file(folder / "victim/n1"), "precious");
  EXPECT_FALSE(fs::exists(folder / "moved/n1"));
}

TEST_F(TimedAttacks, AnExchangedFileIsNotUndone) {
  const std::string file = folder / "n1";
  const RunResult check = attacked_check(file, [&] {
    write_file(folder / "other", "precious");
    fs::rename(folder / "other", file);
  });
  EXPECT_THAT(check.out, testing::EndsWith("removing file " + file + "\nError: undo of device " +
                                           file + " create failed\n"));
  EXPECT_THAT(check.err, HasSubstr("removing " + file + ": " + std::strerror(ESTALE)));
  EXPECT_EQ(read_file(file), "precious");
}

TEST_F(Attacks, LinksOfOtherUsersAreNotFollowed) {
  const std::string victim = folder / "victim";
  write_file(victim, "precious");
  fs::create_directory(folder / "root");
  write_file(folder / "root/n1", "precious");
  const std::string links = folder / "theirs";
  fs::create_directory(links);
  fs::create_symlink(folder / "created", links + "/new");
  fs::create_symlink(victim, links + "/old");
  fs::create_symlink(folder / "root", links + "/data");
  for (const std::string name : {"", "/new", "/old", "/data"}) {
    if (!give_away(links + name)) GTEST_SKIP() << no_strangers;
  }
  // The folder is ours, but its group may put links there.
  fs::create_directory(folder / "group");
  fs::permissions(folder / "group", fs::perms{0770});
  fs::create_symlink(victim, folder / "group/old");
  give_away(folder / "group/old");
  for (const std::string& path :
       {links + "/new", links + "/old", folder / "group/old", links + "/data/n1"}) {
    const bool is_new = path.ends_with("/new");
    const std::string what = (is_new ? "Operation on" : "Opening") + (" file \"" + path);
    EXPECT_THAT(check(path),
                HasSubstr(error_block(is_new ? 5507 : 5500, 4, what + "\" failed", ELOOP)));
  }
  EXPECT_FALSE(fs::exists(folder / "created"));
  EXPECT_EQ(read_file(victim), "precious");
  EXPECT_THAT(run("delete", device(links + "/data/n1")).out,
              HasSubstr("Error: delete of file " + links + "/data/n1 failed\n"));
  EXPECT_EQ(read_file(folder / "root/n1"), "precious");
  // The caller's own link in the same folder is followed, and a link itself can be deleted.
  fs::create_symlink(victim, links + "/mine");
  EXPECT_THAT(check(links + "/mine"), Not(HasSubstr("Error:")));
  run("delete", device(links + "/old"));
  EXPECT_FALSE(fs::is_symlink(links + "/old"));
  EXPECT_TRUE(fs::exists(victim));
}

TEST_F(Attacks, AFileOfAnotherUserInAnOpenFolderIsNotEmptied) {
  const std::string place = folder / "open";
  fs::create_directory(place);
  fs::permissions(place, fs::perms::all | fs::perms::sticky_bit);
  write_file(place + "/theirs", "precious");
  write_file(folder / "ours", "precious");
  fs::create_hard_link(folder / "ours", place + "/linked");
  if (!give_away(place + "/theirs")) GTEST_SKIP() << no_strangers;
  for (const std::string& path : {place + "/theirs", place + "/linked"}) {
    EXPECT_THAT(check(path), HasSubstr("Error: open of device " + path + " failed\n"));
    EXPECT_EQ(read_file(path), "precious");
  }
}

TEST_F(Attacks, APathForgesNoLineOfTheReport) {
  const std::string forged = "node-7:ipcbase=9999";
  const std::string command = device("\"" + (folder / ("a\n" + forged + "\n\x1b[2J\"")));
  const std::string shown = folder / ("a\\n" + forged + "\\n\\x1b[2J");
  for (const std::string rest : {", device-0.size=1", "", " wrong\x1b[2J"}) {
    const RunResult check = run("check", command + rest);
    EXPECT_THAT(check.out, HasSubstr(shown));
    for (const std::string& output : {check.out, check.err}) {
      EXPECT_THAT(output, Not(HasSubstr("\n" + forged)));
      EXPECT_THAT(output, Not(HasSubstr("\x1b")));
    }
  }
  const RunResult del = run("delete", command);
  EXPECT_THAT(del.out, HasSubstr("Error: delete of file " + shown + " failed\n"));
  EXPECT_THAT(del.err, HasSubstr("removing " + shown + ": "));
}

// Whatever is given is shown in one line and in plain characters, by whichever program.
TEST_F(Attacks, NothingThatIsGivenForgesALine) {
  const std::string evil = "a\nforged\x1b[2J";
  const std::string path = folder / evil;
  const std::string link = folder / ("link" + evil), node = folder / ("node" + evil);
  fs::create_symlink(MOX_RES_MGR, link);
  ASSERT_TRUE(mknod(node.c_str(), S_IFCHR | 0600, makedev(1, 7)) == 0 || errno == EPERM);
  write_file(folder / ("full" + evil), "x");
  const std::string full = "\"" + (folder / ("full" + evil)) + "\"", end = ", device-0.size=";
  const std::string status = "node-1: ipcbase=1";
  const std::vector<std::string> given[] = {
      {MOX_RES_MGR, "-f", path},
      {link, "-h"},
      {MOX_RES_MGR, "check", device(full) + end + "1"},
      {MOX_RES_MGR, "check", device(full) + end + "2147483647"},
      {MOX_RES_MGR, "delete", device("\"" + node + "\"")},
      {DEVINIT, "-b", evil},
      {DEVINIT, evil},
      {DEVINIT, "-b", "5", "-f", path + "/x"},
      {MOX_NODE, "status", "-f", path},
      {MOX_NODE, "status", "-o", evil, "create", status},
      {MOX_NODE, "status", "-u", evil, "create", status},
      {MOX_NODE, "status", "--" + evil, "create", status},
      {MOX_NODE, "down", "--wait", evil, "create", status},
      {MOX_NODE, "status", "--output-file", path + "/x", "create", status},
      {MOX_NODE, "plan", "check", device("\"" + path + "\"") + end + "1"},
      {MOX_NODE, evil}};
  for (const std::vector<std::string>& words : given) {
    const RunResult run = run_program(words);
    SCOPED_TRACE(testing::PrintToString(words) + run.out + run.err);
    EXPECT_THAT(run.out + run.err, HasSubstr("a\\nforged\\x1b[2J"));
    EXPECT_THAT(run.out + run.err, Not(HasSubstr("\x1b")));
    EXPECT_THAT(run.out + run.err, Not(HasSubstr("\nforged")));
  }
}

TEST_F(TimedAttacks, ASetThatARollbackRemovesIsMissed) {
  // Another user may not even ask whether the process of the other run still lives.
  for (const std::string prefix : {"", "setpriv --reuid=65534 --keep-groups "}) {
    if (run_program({"/bin/sh", "-c", prefix + MOX_RES_MGR " -h"}).status != 0) continue;
    // The other run has made node 1, fails at node 2, and stops in front of the removal of the set.
    run("create", "node-2: ipcbase=2000");
    RunResult create;
    attacked({"create", "node-1: ipcbase=1000 node-2: ipcbase=2000"},
             {"semctl", "delay_enter=1000000"}, 2, [&] {
               wait_until([] { return set_keys().size() == 2; });
               wait_until([] { return segment_keys().size() == 1; });
               create =
                   run_program({"/bin/sh", "-c",
                                "exec " + prefix + MOX_RES_MGR " create node-1: ipcbase=1000"});
             });
    EXPECT_EQ(create.status, 1);
    EXPECT_THAT(
        create.out,
        HasSubstr(error_block(5521, 3, "Operation on semaphore with key \"1005\" failed", EIDRM)));
    EXPECT_EQ(segment_keys(), std::vector<int>{2004});
    EXPECT_EQ(set_keys(), std::vector<int>{2005});
    run("delete", "node-2: ipcbase=2000");
  }
}

// Somebody takes base 100 while the search looks at the set: before the look, so that the search
// steps to a base in the midst of the other node; or behind it, so that the creation fails.
TEST_F(TimedAttacks, ASearchGoesOnWhenItsBaseIsTakenMeanwhile) {
  const struct {
    const char* delay;
    std::string tried;
  } cases[] = {{"delay_enter=1000000", "checking ipcbase 101\n"},
               {"delay_exit=1000000", "checking ipcbase 100\n"}};
  for (const auto& [delay, tried] : cases) {
    SCOPED_TRACE(delay);
    // Node 0, which is complete by then, has taken three looks at its set.
    const RunResult search = attacked(
        {"create", "--search", "node-0: ipcbase=50 node-1: ipcbase=100"}, {"semget", delay}, 4, [] {
          std::this_thread::sleep_for(500ms);
          run("create", "node-2: ipcbase=100");
        });
    EXPECT_EQ(search.out, std::string("checking ipcbase 50\nnode-0:ipcbase=50\n") + tried +
                              "checking ipcbase 105\nnode-1:ipcbase=105\n");
    EXPECT_EQ(search.status, 0);
    EXPECT_EQ(segment_keys(), (std::vector<int>{54, 104, 109}));
    EXPECT_EQ(set_keys(), (std::vector<int>{55, 105, 110}));
    run("delete", "node-0: ipcbase=50 node-1: ipcbase=100 node-2: ipcbase=105");
  }
}

TEST_F(TimedAttacks, AKeyThatIsTakenBeforeANodeIsCompleteCostsThisNodeItsBase) {
  // Stopped in front of the dictionary of node 2.
  const RunResult search =
      attacked({"create", "--search", "node-1: ipcbase=100 node-2: ipcbase=100"},
               {"shmget", "delay_enter=1000000"}, 9, [] {
                 wait_until([] { return set_keys().size() == 1; });
                 std::this_thread::sleep_for(200ms);
                 shmget(112, 10, IPC_CREAT | 0600);
               });
  EXPECT_EQ(search.status, 0);
  EXPECT_EQ(search.out,
            "checking ipcbase 100\nnode-1:ipcbase=100\nchecking ipcbase 108\n"
            "checking ipcbase 113\nnode-2:ipcbase=113\n");
  EXPECT_EQ(segment_keys(), (std::vector<int>{104, 112, 117}));
}

}  // namespace
