// The resource manager end to end: what it prints, what it returns, and what the kernel then holds.
#include <gmock/gmock.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/error_block.h"
#include "tests/support/ipc_namespace.h"
#include "tests/support/process.h"
#include "tests/support/sandbox.h"

namespace {

using testing::HasSubstr;
using testing::Not;

const std::string usage_text =
    "Usage: " MOX_RES_MGR " <command>\n" + read_file(TEST_DATA "/usage.txt");
const std::string abnormal = "abnormal termination, exit(1)\n";

RunResult run(const std::string& line) {
  std::istringstream stream(line);
  std::vector<std::string> words{MOX_RES_MGR};
  for (std::string word; stream >> word;) words.push_back(word);
  return run_program(words);
}

RunResult shell(const std::string& script) {
  return run_program({"/bin/sh", "-c", script});
}

// Standard output of a run that ends with the given status.
std::string output(const std::string& line, int status) {
  const RunResult result = run(line);
  EXPECT_EQ(result.status, status) << line;
  return result.out;
}

void expect_logged(const std::string& line, const std::string& text) {
  EXPECT_THAT(run(line).err, HasSubstr(text));
}

// What a run says of a node that gets this base.
std::string given(int node, int base) {
  const std::string text = std::to_string(base);
  return "checking ipcbase " + text + "\nnode-" + std::to_string(node) + ":ipcbase=" + text + "\n";
}

std::string refused(const std::string& place) {
  return "Error: " + place + usage_text + abnormal;
}
const std::string nothing_read = refused("\\n\n\n^\n");

std::string create_failed(int elements) {
  return "Error: create failed, removing " + std::to_string(elements) + " elements\n" + abnormal;
}

std::string unreadable(const std::string& path, int os_error) {
  return error_block(5502, 4, "Reading file \"" + path + "\" failed", os_error);
}

std::string segment_error(int key, int os_error) {
  const std::string what = "Getting shared memory segment with key \"" + std::to_string(key);
  return error_block(5510, 4, what + "\" failed", os_error);
}

std::string set_error(int key, int os_error) {
  const std::string what = "Creating semaphore with key \"" + std::to_string(key);
  return error_block(5520, 3, what + "\" failed", os_error);
}

// What a DELETE says of the segments that it does not find.
std::string no_segments(const std::vector<int>& keys) {
  std::string text;
  for (const int key : keys) {
    text += segment_error(key, ENOENT) + "Error: delete of shared memory segment " +
            std::to_string(key) + " failed\n";
  }
  return text;
}

using ResourceManager = IpcTest;

TEST_F(ResourceManager, CreatesAndDeletesWhatANodeNeeds) {
  // Behind the largest key follows the smallest.
  const RunResult create =
      run("create node-0: ipcbase=100, databuf=1, tlogbuf=2, nlogbuf=3, sqlbuf=5, evbuf=7 "
          "node-9: ipcbase=2147483644");
  EXPECT_EQ(create.out, given(0, 100) + given(9, 2147483644));
  EXPECT_EQ(create.err, "");
  EXPECT_EQ(create.status, 0);
  const std::vector<std::string> segments = {
      "-2147483648 660 4194304 0", "101 660 1 0", "102 660 2 0", "103 660 3 0",
      "104 660 4194304 0",         "105 660 5 0", "107 660 7 0"};
  EXPECT_EQ(kernel_segments(), segments);
  EXPECT_EQ(kernel_sets(), (std::vector<std::string>{"-2147483647 660 8", "105 660 8"}));
  EXPECT_EQ(semctl(semget(105, 0, 0), 7, GETVAL), 1);

  output("delete node-9: ipcbase=2147483644", 0);
  EXPECT_EQ(output("delete node-0: ipcbase=100", 0), "");
  EXPECT_TRUE(nothing_left());
  EXPECT_EQ(output("delete node-0: ipcbase=100", 0), set_error(105, ENOENT) +
                                                         "Error: cannot attach to semaphore 105\n" +
                                                         no_segments({101, 102, 103, 104, 105}));
}

TEST_F(ResourceManager, UndoesTheWholeCreateWhenASegmentIsInTheWay) {
  const int stranger = shmget(2003, 10, IPC_CREAT | 0600);
  const std::string create =
      "create node-0: ipcbase=1000, evbuf=10 node-1: ipcbase=2000, databuf=10, nlogbuf=10";
  EXPECT_EQ(output(create, 1),
            given(0, 1000) + "checking ipcbase 2000\n" +
                error_block(5515, 4, "Shared memory segment with key \"2003\" exists already") +
                create_failed(4));
  expect_logged(create, "in the way: segment with key 2003: shmid " + std::to_string(stranger) +
                            ", owner uid ");
  EXPECT_EQ(segment_keys(), std::vector<int>{2003});
  EXPECT_TRUE(kernel_sets().empty());
}

TEST_F(ResourceManager, TakesOverAnExistingSemaphoreSet) {
  semget(1005, 8, IPC_CREAT | 0600);
  expect_logged("create node-0: ipcbase=1000", "taken over: semaphore set with key 1005: semid ");
  output("create node-1: ipcbase=1000", 1);
  // One that has fewer semaphores exists, too, but is of no use.
  const std::string few = "in the way: semaphore set with key 3005: semid " +
                          std::to_string(semget(3005, 2, IPC_CREAT | 0600));
  EXPECT_EQ(output("create node-2: ipcbase=3000", 1),
            "checking ipcbase 3000\n" + set_error(3005, EINVAL) + "Error: mutex creation failed\n" +
                set_error(3005, EINVAL) + create_failed(1));
  expect_logged("create node-2: ipcbase=3000",
                few + ", owner uid 0, creator uid 0, 2 semaphores\n");
  expect_logged("delete node-2: ipcbase=3000", few);
  EXPECT_EQ(segment_keys(), std::vector<int>{1004});
  EXPECT_EQ(set_keys(), (std::vector<int>{1005, 3005}));
}

TEST_F(ResourceManager, SearchesRoundKeysInUse) {
  for (const int key : {7, 3, 102, 109}) shmget(key, 10, IPC_CREAT | (key == 109 ? 0 : 0600));
  shmctl(shmget(7, 0, 0), IPC_RMID, nullptr);  // a hole in the kernel's table
  // Nameless segments have key 0, all of them.
  for (int i = 0; i < 3; ++i) shmget(IPC_PRIVATE, 10, 0600);
  semget(115, 1, IPC_CREAT | 0600);
  EXPECT_EQ(output("create --search node-0: ipcbase=100 node-1: ipcbase=100 node-2: evbuf=0", 0),
            given(0, 111) + given(1, 119) + given(2, 4));
}

TEST_F(ResourceManager, ChecksForTrialAndLeavesNothing) {
  EXPECT_EQ(output("check node-1: ipcbase=10, databuf=5 node-2: ipcbase=20", 0),
            given(1, 10) + given(2, 20));
  const std::string twice = "check node-1: ipcbase=10 node-2: ipcbase=10";
  EXPECT_EQ(output(twice, 0),
            given(1, 10) + "checking ipcbase 10\n" +
                error_block(5515, 4, "Shared memory segment with key \"14\" exists already") +
                "Error: check failed\n");
  expect_logged(twice, "in the way: this run made that segment for node 1, with ipcbase 10\n");
  // A stranger's segment among the keys of node 1, which has no data buffer itself.
  const int stranger = shmget(11, 10, IPC_CREAT | 0600);
  const std::string log = run("check node-1: ipcbase=10 node-2: ipcbase=8, nlogbuf=5").err;
  EXPECT_THAT(log, HasSubstr("in the way: segment with key 11: shmid "));
  EXPECT_THAT(log, Not(HasSubstr("this run made")));
  shmctl(stranger, IPC_RMID, nullptr);
  EXPECT_TRUE(nothing_left());
}

TEST_F(ResourceManager, DeletesWithoutABaseAndNamesWhatItRemoved) {
  const int segment = shmget(1, 10, IPC_CREAT | 0600);
  const int set = semget(5, 8, IPC_CREAT | 0600);
  shmget(6, 10, IPC_CREAT | 0600);
  const RunResult result = run("delete node-0: device-0.path=/nonexistent/file");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out,
            no_segments({2, 3, 4, 5}) + "Error: delete of file /nonexistent/file failed\n");
  const std::string removed = "removed for a node without ipcbase: ";
  EXPECT_THAT(result.err, HasSubstr(removed + "segment with key 1: shmid " +
                                    std::to_string(segment) + ", owner uid 0, 10 bytes"));
  EXPECT_THAT(result.err, HasSubstr(removed + "semaphore set with key 5: semid " +
                                    std::to_string(set) + ", owner uid 0"));
  EXPECT_EQ(segment_keys(), std::vector<int>{6});
  EXPECT_TRUE(set_keys().empty());
  // Under a base of its own, a removal is what was asked for.
  shmget(104, 10, IPC_CREAT | 0600);
  EXPECT_THAT(run("delete node-0: ipcbase=100").err, Not(HasSubstr("removed")));
}

TEST_F(ResourceManager, SearchesUpToTheLastKeyAndNotBeyond) {
  EXPECT_EQ(output("create --search node-0: ipcbase=2147483640", 0), given(0, 2147483640));
  for (const std::string base : {"2147483640", "2147483637", "2147483641", "2147483647"}) {
    EXPECT_EQ(output("create --search node-0: ipcbase=" + base, 1),
              "Error: search failed\n" + create_failed(0));
    expect_logged("check --search node-0: ipcbase=" + base,
                  "search of free keys: no eight keys in a row are free from " + base + " on");
  }
  EXPECT_EQ(output("create --search node-0: ipcbase=2147483632", 0), given(0, 2147483632));
}

TEST_F(ResourceManager, ExplainsWhatTheKernelRefuses) {
  const auto set = [](const std::string& name, const char* value) {
    std::ofstream("/proc/sys/kernel/" + name) << value;
  };
  const std::string create = "create node-0: ipcbase=10, databuf=5";
  if (access("/proc/sys/kernel/shmmni", W_OK) != 0) GTEST_SKIP() << "skipped: limits are fixed";
  set("shmmni", "1");
  EXPECT_EQ(output(create, 1),
            "checking ipcbase 10\n" + segment_error(14, ENOSPC) + create_failed(1));
  const std::string met = "kernel limit met: kernel.";
  expect_logged(create, met + "shmmni=1 segments, in use now 1; asked for 4194");
  set("shmmni", "9");
  set("shmmax", "4000000");
  expect_logged(create, met + "shmmax=4000000 bytes; asked for 4194304 bytes");
  set("shmmax", "5000000");
  set("sem", "32000 1024000000 500 0");
  expect_logged(create, met +
                            "sem=32000\t1024000000\t500\t0 (per set, in all, per operation, "
                            "sets), in use now 0 sets with 0 semaphores");
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
  EXPECT_THAT(version, testing::StartsWith("\nMox Database Server 1.0 Resource manager utility\n"
                                           "Version     : 1.0."));
  const std::string link = run("-V").out;
  EXPECT_THAT(link, testing::StartsWith(version + "link_time   : "));
  EXPECT_THAT(link, HasSubstr("\nlink_command: "));
  const std::string standard_options =
      "\nOption  (Mnemonic  ) Explanation     Environment variable\n"
      "    -h  (help      )\n    -v  (version   )\n    -V  (Version   )\n"
      "    -f: (input    f) <input file>\n";
  const std::string key_zero = "Error: illegal key 0\n" + segment_error(0, 0);
  std::string many = "create node-0:";
  for (int i = 0; i < 199; ++i) many += " ipcbase=1,";
  const struct {
    std::string line;
    std::string out;
    int status;
  } cases[] = {
      {"-v -V", version + link + nothing_read, 1},
      {"-h -f /nonexistent", usage_text + standard_options, 0},
      {"", nothing_read, 1},
      {"-n 3", "opt: ?\n" + refused("3\\n\n 3\n ^\n"), 1},
      {"-f /nonexistent create node-0:",
       error_block(5500, 4, "Opening file \"/nonexistent\" failed", ENOENT), 1},
      {"create --find node-0:", refused("find\n create --find\n             ^\n"), 1},
      {many, "Error: too many words for a command line, put the command into a file (-f)\n", 1},
      {"check --search node-0: ipcbase=100, device-0.path=/x",
       "Error: --search not allowed for devices\n" + abnormal, 1},
      {"create node-0: ipcbase=0", key_zero + create_failed(0), 1},
      {"check node-0:", key_zero + "Error: check failed\n", 0},
  };
  for (const auto& c : cases) EXPECT_EQ(output(c.line, c.status), c.out) << c.line;
}

TEST_F(ResourceManager, ReadsCommandFilesWholeOrNotAtAll) {
  const TempFolder folder;
  const std::string path = folder / "command";
  const auto output_of = [&](const std::string& text, int status) {
    write_file(path, text);
    return output("-f " + path + " these words do not count", status);
  };
  const std::string zero_byte = "Error: command file " + path + " holds a zero byte\n";
  EXPECT_EQ(output_of("create\tnode-0:\r\n  ipcbase=100\n", 0), given(0, 100));
  EXPECT_EQ(output_of("", 1), nothing_read);
  EXPECT_EQ(output_of(std::string("delete node-0: ipcbase=100\0 node-1:", 35), 1), zero_byte);
  EXPECT_EQ(segment_keys(), std::vector<int>{104});
  EXPECT_EQ(output("-f " + folder.path(), 1), unreadable(folder.path(), EISDIR));
  std::string million = "create";
  for (int i = 0; i < 1000000; ++i) million += " x";
  EXPECT_EQ(output_of(million, 1), refused("x\n create x\n        ^\n"));
  // Holes are refused before they fill the memory.
  truncate(path.c_str(), 3L << 30);
#ifdef __SANITIZE_ADDRESS__  // which needs the address space for itself
  const std::string limit;
#else
  const std::string limit = "ulimit -v 1000000; ";
#endif
  EXPECT_EQ(shell(limit + "exec " MOX_RES_MGR " -f " + path).out, zero_byte);
  truncate(path.c_str(), 1L << 32);
  EXPECT_EQ(output("-f " + path, 1), unreadable(path, EFBIG));
}

TEST_F(ResourceManager, ReadsPipesToTheirEnd) {
  const TempFolder folder;
  const std::string fifo = folder / "fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const std::string text = "(printf create; sleep 0.3; printf ' node-0: ipcbase=100')";
  EXPECT_EQ(shell("(sleep 0.3; " + text + " >" + fifo + ") & " MOX_RES_MGR " -f " + fifo).out,
            given(0, 100));
  // A pipe that nobody writes to is empty.
  EXPECT_EQ(output("-f " + fifo, 1), nothing_read);
  EXPECT_EQ(shell("yes | " MOX_RES_MGR " -f /dev/stdin").out, unreadable("/dev/stdin", EFBIG));
}

TEST_F(ResourceManager, ExplainsSyntaxErrorsInTheLog) {
  const TempFolder folder;
  const std::string path = folder / "command";
  const std::string plain = ": sizes are plain bytes: ";
  const struct {
    std::string text;
    std::string place;
    std::string advice;
  } cases[] = {
      {"create\nnode-1: ipcbase=5,\n\tdatabfu=5\n", "line 3, column 2", ": did you mean databuf?"},
      {"\n\nCREATE node-1:", "line 3, column 1", ": keywords are lower case: create"},
      {"create node-1: databuf=12M", "line 1, column 26", plain + "12M is 12582912"},
      {"create node-1: databuf=2KiB,\n", "line 1, column 25", plain + "2KiB is 2048"},
      {"check node-1: device-0.size = 10M", "line 1, column 33",
       ": the size of a device is a plain number of MB"},
      {"create node-1: dataf=7", "line 1, column 16", ""},
      {"create\n  node-1\n\n", "line 4, column 1", ""},
      {"create node-1: ipcbase=1,\r\n ipcbase=7", "line 2, column 9", ""},
  };
  for (const auto& [text, place, advice] : cases) {
    SCOPED_TRACE(text);
    write_file(path, text);
    const std::string message = " syntax error in " + path + ", " + place + advice + "\n";
    EXPECT_THAT(run("-f " + path).err, testing::EndsWith(message));
    const std::string on_the_line = run_program({MOX_RES_MGR, text}).err;
    EXPECT_EQ(on_the_line.empty(), advice.empty());
    EXPECT_THAT(on_the_line, HasSubstr(advice.empty() ? "" : " syntax error" + advice + "\n"));
  }
}

// The report may be lost; what the command did, and what its status says of it, may not.
TEST_F(ResourceManager, SurvivesAClosedOrFullStandardOutput) {
  const TempFolder folder;
  // As large as the limit on the size of files allows.
  write_file(folder / "full", std::string(64 * 512, 'x'));
  for (const std::string& redirection : {std::string(">&-"), ">>" + (folder / "full")}) {
    SCOPED_TRACE(redirection);
    const auto mute = [&](const std::string& command) {
      return shell("ulimit -f 64; " MOX_RES_MGR " " + command + " " + redirection);
    };
    const RunResult create = mute("create node-0: ipcbase=10 node-1: ipcbase=20");
    EXPECT_EQ(create.status, 0);
    EXPECT_THAT(create.err, HasSubstr("standard output could not be written"));
    EXPECT_THAT(create.err, Not(HasSubstr("ipcbase=")));
    EXPECT_EQ(segment_keys(), (std::vector<int>{14, 24}));
    EXPECT_EQ(mute("check node-0: ipcbase=10").status, 1);
    EXPECT_EQ(mute("create node-2: ipcbase=30 node-0: ipcbase=10").status, 1);
    EXPECT_EQ(mute("delete node-0: ipcbase=10 node-1: ipcbase=20").status, 1);
    EXPECT_TRUE(nothing_left());
    // The bases that a search has found stand nowhere else.
    const RunResult search = mute("create --search node-1: ipcbase=10 node-7: ipcbase=10");
    EXPECT_EQ(search.status, 0);
    EXPECT_THAT(search.err, HasSubstr(" node-1:ipcbase=10\n"));
    EXPECT_THAT(search.err, HasSubstr(" node-7:ipcbase=18\n"));
    run("delete node-1: ipcbase=10 node-7: ipcbase=18");
  }
}

}  // namespace
