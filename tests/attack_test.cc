// What other users and other runs can do to a CREATE, CHECK or DELETE of root at the wrong moment.
#include <fcntl.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
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

constexpr uid_t stranger = 65534;

class Attacks : public IpcTest {
 protected:
  static RunResult run(const std::string& command, const std::string& node) {
    return run_program({MOX_RES_MGR, command, node});
  }

  // The same, stopped for a second in front of the n-th call of that name.
  static RunResult run_delayed(const std::string& command, const std::string& node,
                               const std::string& call, int n) {
    bool struck = false;
    return run_with_fault({MOX_RES_MGR, command, node}, {call, "delay_enter=1000000"}, n, struck);
  }

  template <class Condition>
  static void wait_until(Condition condition) {
    for (int waits = 0; !condition(); ++waits) {
      ASSERT_LT(waits, 1000);
      std::this_thread::sleep_for(10ms);
    }
  }

  // A link of another user, in a folder of that user; false where no file can be given away.
  static bool plant_link(const std::string& link_folder, const std::string& name,
                         const std::string& target) {
    const std::string link = (fs::path(link_folder) / name).string();
    fs::create_directories(link_folder);
    fs::create_symlink(target, link);
    return chown(link_folder.c_str(), stranger, stranger) == 0 &&
           lchown(link.c_str(), stranger, stranger) == 0;
  }

  TempFolder folder;
};

TEST_F(Attacks, AnExchangedFolderDoesNotLeadTheUndoToAnotherFile) {
  if (const std::string reason = why_no_faults(); !reason.empty()) GTEST_SKIP() << reason;
  fs::create_directory(folder / "data");
  fs::create_directory(folder / "victim");
  write_file(folder / "victim/n1", "precious");
  RunResult check;
  std::thread run([&] {
    check = run_delayed(
        "check", "node-1: ipcbase=10, device-0.path=" + (folder / "data/n1") + ", device-0.size=1",
        "shmdt", 1);
  });
  wait_until([&] { return fs::exists(folder / "data/n1"); });
  fs::rename(folder / "data", folder / "moved");
  fs::create_symlink("victim", folder / "data");
  run.join();
  EXPECT_EQ(check.status, 0);
  EXPECT_EQ(read_file(folder / "victim/n1"), "precious");
  EXPECT_FALSE(fs::exists(folder / "moved/n1"));
}

TEST_F(Attacks, AnExchangedFileIsNotUndone) {
  if (const std::string reason = why_no_faults(); !reason.empty()) GTEST_SKIP() << reason;
  const std::string file = folder / "n1";
  RunResult check;
  std::thread run([&] {
    check = run_delayed("check", "node-1: ipcbase=10, device-0.path=" + file + ", device-0.size=1",
                        "shmdt", 1);
  });
  wait_until([&] { return fs::exists(file); });
  write_file(folder / "other", "precious");
  fs::rename(folder / "other", file);
  run.join();
  EXPECT_EQ(check.out, "checking ipcbase 10\nnode-1:ipcbase=10\ncreate file " + file +
                           "\nremoving file " + file + "\nError: undo of device " + file +
                           " create failed\n");
  EXPECT_NE(check.err.find("removing " + file + ": " + std::strerror(ESTALE)), std::string::npos);
  EXPECT_EQ(read_file(file), "precious");
}

TEST_F(Attacks, LinksOfOtherUsersAreNotFollowed) {
  const std::string victim = folder / "victim";
  write_file(victim, "precious");
  fs::create_directory(folder / "root");
  write_file(folder / "root/n1", "precious");
  const std::string links = folder / "theirs";
  if (!plant_link(links, "new", folder / "created") || !plant_link(links, "old", victim) ||
      !plant_link(links, "data", folder / "root")) {
    GTEST_SKIP() << "skipped: cannot give files away: " << std::strerror(errno);
  }
  const auto check = [&](const std::string& name) {
    return run("check", "node-1: ipcbase=10, device-0.path=" + links + name + ", device-0.size=1")
        .out;
  };
  const auto failed = [&](int number, const std::string& what, const std::string& name) {
    return error_block(number, 4, what + " \"" + links + name + "\" failed", ELOOP);
  };
  EXPECT_NE(check("/new").find(failed(5507, "Operation on file", "/new")), std::string::npos);
  EXPECT_FALSE(fs::exists(folder / "created"));
  EXPECT_NE(check("/old").find(failed(5500, "Opening file", "/old")), std::string::npos);
  EXPECT_NE(check("/data/n1").find(failed(5500, "Opening file", "/data/n1")), std::string::npos);
  EXPECT_EQ(read_file(victim), "precious");
  const RunResult del = run("delete", "node-1: ipcbase=10, device-0.path=" + links + "/data/n1");
  EXPECT_NE(del.out.find("Error: delete of file " + links + "/data/n1 failed\n"),
            std::string::npos);
  EXPECT_EQ(read_file(folder / "root/n1"), "precious");
  // The caller's own link in the same folder is followed, and a link itself can be deleted.
  fs::create_symlink(victim, links + "/mine");
  EXPECT_EQ(check("/mine").find("Error:"), std::string::npos);
  run("delete", "node-1: ipcbase=10, device-0.path=" + links + "/old");
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
  if (chown((place + "/theirs").c_str(), stranger, stranger) != 0) {
    GTEST_SKIP() << "skipped: cannot give files away: " << std::strerror(errno);
  }
  for (const char* name : {"/theirs", "/linked"}) {
    const std::string check =
        run("check", "node-1: ipcbase=10, device-0.path=" + place + name + ", device-0.size=1").out;
    EXPECT_NE(check.find("Error: open of device " + place + name + " failed\n"), std::string::npos);
    EXPECT_EQ(read_file(place + name), "precious");
  }
}

TEST_F(Attacks, APathForgesNoLineOfTheReport) {
  const std::string forged = "node-7:ipcbase=9999";
  const std::string path = folder / ("a\n" + forged + "\n\x1b[2J");
  const std::string shown = folder / ("a\\n" + forged + "\\n\\x1b[2J");
  for (const std::string rest : {", device-0.size=1", "", " wrong\x1b[2J"}) {
    const RunResult check =
        run("check", "node-1: ipcbase=10, device-0.path=\"" + path + "\"" + rest);
    SCOPED_TRACE(check.out + check.err);
    EXPECT_NE(check.out.find(shown), std::string::npos);
    for (const std::string& output : {check.out, check.err}) {
      EXPECT_EQ(output.find("\n" + forged), std::string::npos);
      EXPECT_EQ(output.find('\x1b'), std::string::npos);
    }
  }
  const RunResult del = run("delete", "node-1: ipcbase=10, device-0.path=\"" + path + "\"");
  EXPECT_NE(del.out.find("Error: delete of file " + shown + " failed\n"), std::string::npos);
  EXPECT_NE(del.err.find("removing " + shown + ": "), std::string::npos);
}

TEST_F(Attacks, ASetThatARollbackRemovesIsMissed) {
  if (const std::string reason = why_no_faults(); !reason.empty()) GTEST_SKIP() << reason;
  // The other run has made node 1, fails at node 2, and stops in front of the removal of the set.
  run("create", "node-2: ipcbase=2000");
  std::thread rollback(
      [&] { run_delayed("create", "node-1: ipcbase=1000 node-2: ipcbase=2000", "semctl", 2); });
  wait_until([] { return set_keys().size() == 2; });
  wait_until([] { return segment_keys().size() == 1; });
  const RunResult create = run("create", "node-1: ipcbase=1000");
  rollback.join();
  EXPECT_EQ(create.status, 1);
  EXPECT_NE(create.out.find(
                error_block(5521, 3, "Operation on semaphore with key \"1005\" failed", EIDRM)),
            std::string::npos)
      << create.out;
  EXPECT_EQ(segment_keys(), std::vector<int>{2004});
  EXPECT_EQ(set_keys(), std::vector<int>{2005});
}

// Somebody takes base 100 while the search looks at the set: before the look, so that the search
// steps to a base in the midst of the other node; or behind it, so that the creation fails.
TEST_F(Attacks, ASearchGoesOnWhenItsBaseIsTakenMeanwhile) {
  if (const std::string reason = why_no_faults(); !reason.empty()) GTEST_SKIP() << reason;
  const struct {
    const char* delay;
    const char* tried;
  } cases[] = {{"delay_enter=1000000", "checking ipcbase 101\n"},
               {"delay_exit=1000000", "checking ipcbase 100\n"}};
  for (const auto& [delay, tried] : cases) {
    SCOPED_TRACE(delay);
    RunResult search;
    std::thread run_search([&search, what = delay] {
      bool struck = false;
      // Node 0, which is complete by then, has taken three looks at its set.
      search = run_with_fault(
          {MOX_RES_MGR, "create", "--search", "node-0: ipcbase=50 node-1: ipcbase=100"},
          {"semget", what}, 4, struck);
    });
    std::this_thread::sleep_for(500ms);
    run("create", "node-2: ipcbase=100");
    run_search.join();
    EXPECT_EQ(search.out, std::string("checking ipcbase 50\nnode-0:ipcbase=50\n") + tried +
                              "checking ipcbase 105\nnode-1:ipcbase=105\n");
    EXPECT_EQ(search.status, 0);
    EXPECT_EQ(segment_keys(), (std::vector<int>{54, 104, 109}));
    EXPECT_EQ(set_keys(), (std::vector<int>{55, 105, 110}));
    run("delete", "node-0: ipcbase=50 node-1: ipcbase=100 node-2: ipcbase=105");
  }
}

TEST_F(Attacks, AKeyThatIsTakenBeforeANodeIsCompleteCostsThisNodeABase) {
  if (const std::string reason = why_no_faults(); !reason.empty()) GTEST_SKIP() << reason;
  RunResult search;
  std::thread run([&] {  // stops in front of the dictionary of node 2
    search = run_delayed("create", "--search node-1: ipcbase=100 node-2: ipcbase=100", "shmget", 9);
  });
  wait_until([] { return set_keys().size() == 1; });
  std::this_thread::sleep_for(200ms);
  shmget(112, 10, IPC_CREAT | 0600);
  run.join();
  EXPECT_EQ(search.status, 0);
  EXPECT_EQ(search.out,
            "checking ipcbase 100\nnode-1:ipcbase=100\nchecking ipcbase 108\n"
            "checking ipcbase 116\nnode-2:ipcbase=116\n");
  EXPECT_EQ(segment_keys(), (std::vector<int>{104, 112, 120}));
}

TEST_F(Attacks, TwoSearchesAtOnceBothFindABase) {
  constexpr int rounds = 15;
  for (int round = 0; round < rounds; ++round) {
    const std::string nodes = "node-1: ipcbase=100 node-2: ipcbase=100 node-3: ipcbase=100";
    const auto search = [&] { return run_program({MOX_RES_MGR, "create", "--search", nodes}); };
    std::array<RunResult, 2> runs;
    std::thread other([&] { runs[1] = search(); });
    runs[0] = search();
    other.join();
    for (const RunResult& result : runs) EXPECT_EQ(result.status, 0) << result.out << result.err;
    const std::vector<int> sets = set_keys();
    EXPECT_EQ(sets.size(), 6U);
    // No node has another one's dictionary among its keys.
    for (std::size_t i = 1; i < sets.size(); ++i) EXPECT_GE(sets[i] - sets[i - 1], 5);
    for (const int set : sets) run("delete", "node-1: ipcbase=" + std::to_string(set - 5));
    ASSERT_TRUE(kernel_segments().empty());
  }
}

}  // namespace
