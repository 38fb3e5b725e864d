// The resource manager end to end: what it prints, what it returns, and what the kernel then holds.
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/error_block.h"
#include "tests/support/ipc_namespace.h"
#include "tests/support/process.h"
#include "tests/support/sandbox.h"

namespace {

const std::string usage_text =
    "Usage: " MOX_RES_MGR " <command>\n" + read_file(TEST_DATA "/usage.txt");
const std::string abnormal = "abnormal termination, exit(1)\n";

std::vector<std::string> words(const std::string& line) {
  std::istringstream stream(line);
  std::vector<std::string> result{MOX_RES_MGR};
  for (std::string word; stream >> word;) result.push_back(word);
  return result;
}

RunResult run(const std::string& line) {
  return run_program(words(line));
}

// Standard output of a run that ends with the given status.
std::string output(const std::string& line, int status) {
  const RunResult result = run(line);
  EXPECT_EQ(result.status, status) << line;
  return result.out;
}

void expect_logged(const std::string& line, const std::string& text) {
  const RunResult result = run(line);
  EXPECT_NE(result.err.find(text), std::string::npos) << result.err;
}

std::string no_segment(int key) {
  const std::string text = std::to_string(key);
  return error_block(5510, 4, "Getting shared memory segment with key \"" + text + "\" failed",
                     ENOENT) +
         "Error: delete of shared memory segment " + text + " failed\n";
}

std::string no_set(int key) {
  const std::string text = std::to_string(key);
  return error_block(5520, 3, "Creating semaphore with key \"" + text + "\" failed", ENOENT) +
         "Error: cannot attach to semaphore " + text + "\n";
}

using ResourceManager = IpcTest;

TEST_F(ResourceManager, CreatesAndDeletesWhatANodeNeeds) {
  const RunResult create = run("create --search node-1: ipcbase=5000, databuf=1048576");
  EXPECT_EQ(create.out, "checking ipcbase 5000\nnode-1:ipcbase=5000\n");
  EXPECT_EQ(create.err, "");
  EXPECT_EQ(create.status, 0);
  const std::vector<std::string> segments = {"5001 660 1048576 0", "5004 660 4194304 0"};
  EXPECT_EQ(kernel_segments(), segments);
  EXPECT_EQ(kernel_sets(), std::vector<std::string>{"5005 660 8"});
  EXPECT_EQ(semctl(semget(5005, 0, 0), 7, GETVAL), 1);

  EXPECT_EQ(output("delete node-1: ipcbase=5000", 0),
            no_segment(5002) + no_segment(5003) + no_segment(5005));
  EXPECT_TRUE(kernel_segments().empty());
  EXPECT_TRUE(kernel_sets().empty());
  EXPECT_EQ(output("delete node-1: ipcbase=5000", 0), no_set(5005) + no_segment(5001) +
                                                          no_segment(5002) + no_segment(5003) +
                                                          no_segment(5004) + no_segment(5005));
}

TEST_F(ResourceManager, PutsEveryBufferOnItsKey) {
  output(
      "create node-0: ipcbase=100, databuf=1, tlogbuf=2, nlogbuf=3, sqlbuf=5, evbuf=7 "
      "node-9: ipcbase=2147483644",
      0);
  // Behind the largest key follows the smallest.
  const std::vector<std::string> segments = {
      "-2147483648 660 4194304 0", "101 660 1 0", "102 660 2 0", "103 660 3 0",
      "104 660 4194304 0",         "105 660 5 0", "107 660 7 0"};
  EXPECT_EQ(kernel_segments(), segments);
  EXPECT_EQ(set_keys(), (std::vector<int>{-2147483647, 105}));
}

TEST_F(ResourceManager, UndoesTheWholeCreateWhenASegmentIsInTheWay) {
  const int stranger = shmget(2003, 10, IPC_CREAT | 0600);
  const std::string create =
      "create node-0: ipcbase=1000, evbuf=10 node-1: ipcbase=2000, databuf=10, nlogbuf=10";
  EXPECT_EQ(output(create, 1),
            "checking ipcbase 1000\nnode-0:ipcbase=1000\nchecking ipcbase 2000\n" +
                error_block(5515, 4, "Shared memory segment with key \"2003\" exists already") +
                "Error: create failed, removing 4 elements\n" + abnormal);
  expect_logged(create, "in the way: segment with key 2003: shmid " + std::to_string(stranger) +
                            ", owner uid ");
  EXPECT_EQ(segment_keys(), std::vector<int>{2003});
  EXPECT_TRUE(kernel_sets().empty());
}

TEST_F(ResourceManager, OneOfTwoThatRaceForAKeyWins) {
  for (int round = 0; round < 30; ++round) {
    std::array<RunResult, 2> racers;
    std::thread other([&] { racers[1] = run("create node-1: ipcbase=100, evbuf=9"); });
    racers[0] = run("create node-1: ipcbase=100, evbuf=9");
    other.join();
    const RunResult& loser = racers[racers[0].status == 0 ? 1 : 0];
    EXPECT_EQ(racers[0].status + racers[1].status, 1);
    EXPECT_NE(loser.out.find("Error number 5515 severity 4"), std::string::npos) << loser.out;
    EXPECT_EQ(segment_keys(), (std::vector<int>{104, 107}));
    EXPECT_EQ(set_keys(), std::vector<int>{105});
    run("delete node-1: ipcbase=100");
  }
}

TEST_F(ResourceManager, TakesOverAnExistingSemaphoreSet) {
  semget(1005, 8, IPC_CREAT | 0600);
  expect_logged("create node-0: ipcbase=1000", "taken over: semaphore set with key 1005: semid ");
  output("create node-1: ipcbase=1000", 1);
  // One that has fewer semaphores exists, too, but is of no use.
  const int few = semget(3005, 2, IPC_CREAT | 0600);
  const std::string failure =
      error_block(5520, 3, "Creating semaphore with key \"3005\" failed", EINVAL);
  EXPECT_EQ(output("create node-2: ipcbase=3000", 1),
            "checking ipcbase 3000\n" + failure + "Error: mutex creation failed\n" + failure +
                "Error: create failed, removing 1 elements\n" + abnormal);
  expect_logged("create node-2: ipcbase=3000", "in the way: semaphore set with key 3005: semid " +
                                                   std::to_string(few) +
                                                   ", owner uid 0, creator uid 0, 2 semaphores\n");
  expect_logged("delete node-2: ipcbase=3000",
                "in the way: semaphore set with key 3005: semid " + std::to_string(few));
  EXPECT_EQ(segment_keys(), std::vector<int>{1004});
  EXPECT_EQ(set_keys(), (std::vector<int>{1005, 3005}));
}

TEST_F(ResourceManager, SearchesRoundKeysInUse) {
  for (const int key : {3, 102, 109}) shmget(key, 10, IPC_CREAT | (key == 109 ? 0 : 0600));
  // Nameless segments have key 0, all of them.
  for (int i = 0; i < 3; ++i) shmget(IPC_PRIVATE, 10, 0600);
  semget(115, 1, IPC_CREAT | 0600);
  EXPECT_EQ(output("create --search node-0: ipcbase=100 node-1: ipcbase=100 node-2: evbuf=0", 0),
            "checking ipcbase 111\nnode-0:ipcbase=111\nchecking ipcbase 119\nnode-1:ipcbase=119\n"
            "checking ipcbase 4\nnode-2:ipcbase=4\n");
}

TEST_F(ResourceManager, ChecksForTrialAndLeavesNothing) {
  const std::string first = "checking ipcbase 10\nnode-1:ipcbase=10\n";
  EXPECT_EQ(output("check node-1: ipcbase=10, databuf=5 node-2: ipcbase=20", 0),
            first + "checking ipcbase 20\nnode-2:ipcbase=20\n");
  EXPECT_EQ(output("check node-1: ipcbase=10 node-2: ipcbase=10", 0),
            first + "checking ipcbase 10\n" +
                error_block(5515, 4, "Shared memory segment with key \"14\" exists already") +
                "Error: check failed\n");
  expect_logged("check node-1: ipcbase=10 node-2: ipcbase=10",
                "in the way: this run made that segment for node 1, with ipcbase 10\n");
  // A stranger's segment among the keys of node 1, which has no data buffer itself.
  const int stranger = shmget(11, 10, IPC_CREAT | 0600);
  const std::string log = run("check node-1: ipcbase=10 node-2: ipcbase=8, nlogbuf=5").err;
  EXPECT_NE(log.find("in the way: segment with key 11: shmid "), std::string::npos) << log;
  EXPECT_EQ(log.find("this run made"), std::string::npos) << log;
  shmctl(stranger, IPC_RMID, nullptr);
  EXPECT_TRUE(kernel_segments().empty());
  EXPECT_TRUE(kernel_sets().empty());
  EXPECT_EQ(output("check --search node-0: ipcbase=100, device-0.path=/x", 1),
            "Error: --search not allowed for devices\n" + abnormal);
}

TEST_F(ResourceManager, RefusesToCreateOnKeyZero) {
  const std::string failure =
      "Error: illegal key 0\n" +
      error_block(5510, 4, "Getting shared memory segment with key \"0\" failed", 0);
  EXPECT_EQ(output("create node-0: ipcbase=0", 1),
            failure + "Error: create failed, removing 0 elements\n" + abnormal);
  EXPECT_EQ(output("check node-0:", 0), failure + "Error: check failed\n");
}

TEST_F(ResourceManager, DeletesWithoutABaseAndNamesWhatItRemoved) {
  const int segment = shmget(1, 10, IPC_CREAT | 0600);
  const int set = semget(5, 8, IPC_CREAT | 0600);
  shmget(6, 10, IPC_CREAT | 0600);
  const RunResult result = run("delete node-0: device-0.path=/nonexistent/file");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, no_segment(2) + no_segment(3) + no_segment(4) + no_segment(5) +
                            "Error: delete of file /nonexistent/file failed\n");
  for (const std::string& removed :
       {"segment with key 1: shmid " + std::to_string(segment) + ", owner uid 0, 10 bytes",
        "semaphore set with key 5: semid " + std::to_string(set) + ", owner uid 0"}) {
    EXPECT_NE(result.err.find("removed for a node without ipcbase: " + removed), std::string::npos)
        << result.err;
  }
  EXPECT_EQ(segment_keys(), std::vector<int>{6});
  EXPECT_TRUE(set_keys().empty());
  // Under a base of its own, a removal is what was asked for.
  shmget(104, 10, IPC_CREAT | 0600);
  EXPECT_EQ(run("delete node-0: ipcbase=100").err.find("removed"), std::string::npos);
}

TEST_F(ResourceManager, SearchesUpToTheLastKeyAndNotBeyond) {
  EXPECT_EQ(output("create --search node-0: ipcbase=2147483640", 0),
            "checking ipcbase 2147483640\nnode-0:ipcbase=2147483640\n");
  const std::string failure = "Error: search failed\nError: create failed, removing 0 elements\n";
  for (const std::string base : {"2147483640", "2147483637", "2147483641", "2147483647"}) {
    EXPECT_EQ(output("create --search node-0: ipcbase=" + base, 1), failure + abnormal) << base;
    expect_logged("check --search node-0: ipcbase=" + base,
                  "search of free keys: no eight keys in a row are free from " + base + " on");
  }
  EXPECT_EQ(output("create --search node-0: ipcbase=2147483632", 0),
            "checking ipcbase 2147483632\nnode-0:ipcbase=2147483632\n");
}

TEST_F(ResourceManager, ExplainsWhatTheKernelRefuses) {
  const auto set = [](const std::string& name, const char* value) {
    std::ofstream("/proc/sys/kernel/" + name) << value;
  };
  const std::string create = "create node-0: ipcbase=10, databuf=5";
  if (access("/proc/sys/kernel/shmmni", W_OK) != 0) GTEST_SKIP() << "skipped: limits are fixed";
  set("shmmni", "1");
  EXPECT_EQ(
      output(create, 1),
      "checking ipcbase 10\n" +
          error_block(5510, 4, "Getting shared memory segment with key \"14\" failed", ENOSPC) +
          "Error: create failed, removing 1 elements\n" + abnormal);
  expect_logged(create, "kernel limit met: kernel.shmmni=1 segments, in use now 1; asked for 4194");
  set("shmmni", "9");
  set("shmmax", "4000000");
  expect_logged(create, "kernel limit met: kernel.shmmax=4000000 bytes; asked for 4194304 bytes");
  set("shmmax", "5000000");
  set("sem", "32000 1024000000 500 0");
  expect_logged(create,
                "kernel limit met: kernel.sem=32000\t1024000000\t500\t0 (per set, in all, per "
                "operation, sets), in use now 0 sets with 0 semaphores");
  EXPECT_TRUE(kernel_segments().empty());
  set("shm_rmid_forced", "1");
  expect_logged(create,
                "kernel.shm_rmid_forced=1: the segments will vanish when this program ends");
  void* address = shmat(shmget(14, 10, IPC_CREAT | 0600), nullptr, 0);
  expect_logged("delete node-0: ipcbase=10",
                "removed while in use, and gone with the last detach: segment with key 14: shmid ");
  shmdt(address);
}

TEST_F(ResourceManager, OptionsAndTheirExitStatus) {
  const std::string version = run("-v").out;
  EXPECT_EQ(version.find("\nMox Database Server 1.0 Resource manager utility\nVersion     : 1.0."),
            0U);
  const std::string standard_options =
      "\nOption  (Mnemonic  ) Explanation     Environment variable\n"
      "    -h  (help      )\n    -v  (version   )\n    -V  (Version   )\n"
      "    -f: (input    f) <input file>\n";
  const std::string nothing_read = "Error: \\n\n\n^\n" + usage_text + abnormal;
  const struct {
    const char* line;
    std::string out;
    int status;
  } cases[] = {
      {"-v", version, 0},
      {"-vV", version, 0},
      {"-h -f /nonexistent", usage_text + standard_options, 0},
      {"", nothing_read, 1},
      {"-n 3", "opt: ?\nError: 3\\n\n 3\n ^\n" + usage_text + abnormal, 1},
      {"-f /nonexistent create node-0:",
       error_block(5500, 4, "Opening file \"/nonexistent\" failed", ENOENT), 1},
      {"create --find node-0:",
       "Error: find\n create --find\n             ^\n" + usage_text + abnormal, 1},
  };
  for (const auto& c : cases) EXPECT_EQ(output(c.line, c.status), c.out) << c.line;
  const std::string link = run("-V").out;
  EXPECT_EQ(link.find(version + "link_time   : "), 0U);
  EXPECT_NE(link.find("\nlink_command: "), std::string::npos);
  EXPECT_EQ(run("-v -V").out, version + link + nothing_read);

  std::string many = "create node-0:";
  for (int i = 0; i < 199; ++i) many += " ipcbase=1,";
  EXPECT_EQ(output(many, 1),
            "Error: too many words for a command line, put the command into a file (-f)\n");
}

TEST_F(ResourceManager, ReadsCommandFilesWholeOrNotAtAll) {
  const TempFolder folder;
  const std::string path = folder / "command";
  const auto output_of = [&](const std::string& text, int status) {
    write_file(path, text);
    return output("-f " + path + " these words do not count", status);
  };
  EXPECT_EQ(output_of("create\tnode-0:\r\n  ipcbase=100\n", 0),
            "checking ipcbase 100\nnode-0:ipcbase=100\n");
  EXPECT_EQ(output_of("", 1), "Error: \\n\n\n^\n" + usage_text + abnormal);
  EXPECT_EQ(output_of(std::string("delete node-0: ipcbase=100\0 node-1:", 35), 1),
            "Error: command file " + path + " holds a zero byte\n");
  EXPECT_EQ(segment_keys(), std::vector<int>{104});
  EXPECT_EQ(output("-f " + folder.path(), 1),
            error_block(5502, 4, "Reading file \"" + folder.path() + "\" failed", EISDIR));
  std::string million = "create";
  for (int i = 0; i < 1000000; ++i) million += " x";
  EXPECT_EQ(output_of(million, 1), "Error: x\n create x\n        ^\n" + usage_text + abnormal);
  // Holes are refused before they fill the memory.
  truncate(path.c_str(), 3L << 30);
  EXPECT_EQ(
      run_program({"/bin/sh", "-c", "ulimit -v 1000000; exec " MOX_RES_MGR " -f " + path}).out,
      "Error: command file " + path + " holds a zero byte\n");
  truncate(path.c_str(), 1L << 32);
  EXPECT_EQ(output("-f " + path, 1),
            error_block(5502, 4, "Reading file \"" + path + "\" failed", EFBIG));
}

TEST_F(ResourceManager, ReadsPipesToTheirEnd) {
  const TempFolder folder;
  const std::string fifo = folder / "fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const std::string text = "(printf create; sleep 0.3; printf ' node-0: ipcbase=100')";
  const std::string commands[] = {
      text + " | " MOX_RES_MGR " -f /dev/stdin",
      "(sleep 0.3; " + text + " >" + fifo + ") & " MOX_RES_MGR " -f " + fifo};
  for (const std::string& command : commands) {
    EXPECT_EQ(run_program({"/bin/sh", "-c", command}).out,
              "checking ipcbase 100\nnode-0:ipcbase=100\n")
        << command;
    run("delete node-0: ipcbase=100");
  }
  // A pipe that nobody writes to is empty.
  EXPECT_EQ(output("-f " + fifo, 1), "Error: \\n\n\n^\n" + usage_text + abnormal);
  EXPECT_EQ(run_program({"/bin/sh", "-c", "yes | " MOX_RES_MGR " -f /dev/stdin"}).out,
            error_block(5502, 4, "Reading file \"/dev/stdin\" failed", EFBIG));
}

TEST_F(ResourceManager, ExplainsSyntaxErrorsInTheLog) {
  const TempFolder folder;
  const std::string path = folder / "command";
  const struct {
    const char* text;
    const char* place;
    const char* advice;
  } cases[] = {
      {"create\nnode-1: ipcbase=5000,\n\tdatabfu=5\n", "line 3, column 2",
       ": did you mean databuf?"},
      {"\n\nCREATE node-1:", "line 3, column 1", ": keywords are lower case: create"},
      {"create node-1: databuf=12M", "line 1, column 26",
       ": sizes are plain bytes: 12M is 12582912"},
      {"create node-1: databuf=2KiB,\n", "line 1, column 25",
       ": sizes are plain bytes: 2KiB is 2048"},
      {"check node-1: device-0.size = 10M", "line 1, column 33",
       ": the size of a device is a plain number of MB"},
      {"create node-1: frobnicate=7", "line 1, column 16", ""},
      {"create node-1: dataf=7", "line 1, column 16", ""},
      {"create node-1: 5 0", "line 1, column 16", ""},
      {"create\n  node-1\n\n", "line 4, column 1", ""},
      {"create node-1: ipcbase=1,\r\n ipcbase=7", "line 2, column 9", ""},
  };
  for (const auto& c : cases) {
    write_file(path, c.text);
    SCOPED_TRACE(c.text);
    const std::string head = "syntax error in " + path + ", " + c.place + c.advice + "\n";
    EXPECT_TRUE(run("-f " + path).err.ends_with(" " + head)) << run("-f " + path).err;
    const std::string on_the_line = run_program({MOX_RES_MGR, c.text}).err;
    const std::string advice = c.advice;
    EXPECT_EQ(on_the_line.empty(), advice.empty()) << on_the_line;
    EXPECT_TRUE(advice.empty() || on_the_line.ends_with(" syntax error" + advice + "\n"));
  }
}

// The report may be lost; what the command did, and what its status says of it, may not.
TEST_F(ResourceManager, SurvivesAClosedOrFullStandardOutput) {
  const TempFolder folder;
  const std::string pipe = folder / "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  const std::string reader_gone = "exec 3<>" + pipe + " 4>" + pipe + " 3>&-; ";
  // As large as the limit on the size of files allows.
  write_file(folder / "full", std::string(64 * 512, 'x'));
  const std::string beyond_limit = ">>" + (folder / "full");
  for (const std::string& redirection : {std::string(">&-"), std::string(">&4"), beyond_limit}) {
    const auto shell = [&](const std::string& command) {
      return run_program(
          {"/bin/sh", "-c",
           reader_gone + "ulimit -f 64; " + MOX_RES_MGR " " + command + " " + redirection});
    };
    const RunResult create = shell("create node-0: ipcbase=10 node-1: ipcbase=20");
    EXPECT_EQ(create.status, 0) << redirection;
    EXPECT_NE(create.err.find("standard output could not be written"), std::string::npos);
    EXPECT_EQ(create.err.find("ipcbase="), std::string::npos);
    EXPECT_EQ(segment_keys(), (std::vector<int>{14, 24})) << redirection;
    EXPECT_EQ(shell("check node-0: ipcbase=10").status, 1) << redirection;
    EXPECT_EQ(shell("create node-2: ipcbase=30 node-0: ipcbase=10").status, 1) << redirection;
    EXPECT_EQ(shell("delete node-0: ipcbase=10 node-1: ipcbase=20").status, 1) << redirection;
    EXPECT_TRUE(kernel_segments().empty()) << redirection;
    EXPECT_TRUE(kernel_sets().empty()) << redirection;
    // The bases that a search has found stand nowhere else.
    const RunResult search = shell("create --search node-1: ipcbase=10 node-7: ipcbase=10");
    EXPECT_EQ(search.status, 0) << redirection;
    EXPECT_NE(search.err.find(" node-1:ipcbase=10\n"), std::string::npos) << search.err;
    EXPECT_NE(search.err.find(" node-7:ipcbase=18\n"), std::string::npos) << search.err;
    run("delete node-1: ipcbase=10 node-7: ipcbase=18");
  }
}

}  // namespace
