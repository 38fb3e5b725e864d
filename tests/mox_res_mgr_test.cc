// The resource manager end to end: what it prints, what it returns, and what the kernel then holds.
#include <gmock/gmock.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "tests/support/fault.h"
#include "tests/support/ipc_namespace.h"
#include "tests/support/process.h"
#include "tests/support/sandbox.h"
#include "tests/support/session.h"

namespace {

using ResourceManager = IpcTest;

TEST_F(ResourceManager, CreatesAndDeletesWhatANodeNeeds) {
  // Behind the largest key follows the smallest.
  expect_session(R"(
$ mox_res_mgr create node-0: ipcbase=100, databuf=1, tlogbuf=2, nlogbuf=3, sqlbuf=5, \
evbuf=7 node-9: ipcbase=2147483644
node-0 at 100
node-9 at 2147483644
)");
  const std::vector<std::string> segments = {
      "-2147483648 660 4194304 0", "101 660 1 0", "102 660 2 0", "103 660 3 0",
      "104 660 4194304 0",         "105 660 5 0", "107 660 7 0"};
  EXPECT_EQ(kernel_segments(), segments);
  EXPECT_EQ(kernel_sets(), (std::vector<std::string>{"-2147483647 660 8", "105 660 8"}));
  EXPECT_EQ(semctl(semget(105, 0, 0), 7, GETVAL), 1);
  expect_session(R"(
$ mox_res_mgr delete node-9: ipcbase=2147483644 | tail -n 1
Error: delete of shared memory segment -2147483647 failed
$ mox_res_mgr delete node-0: ipcbase=100
)");
  EXPECT_TRUE(nothing_left());
}

TEST_F(ResourceManager, UndoesTheWholeCreateWhenASegmentIsInTheWay) {
  const int shmid = shmget(2003, 10, IPC_CREAT | 0600);
  shmid_ds segment{};
  shmctl(shmid, IPC_STAT, &segment);
  segment.shm_perm.uid = 1;
  // In a name space of one user there is nobody to give it to.
  const char* const owner = shmctl(shmid, IPC_SET, &segment) == 0 ? "1" : "0";
  expect_session(std::string(R"(
$ mox_res_mgr create node-0: ipcbase=1000, evbuf=10 node-1: ipcbase=2000, databuf=9, nlogbuf=10
node-0 at 1000
checking ipcbase 2000
5515 S4 Shared memory segment with key "2003" exists already
Error: create failed, removing 4 elements; abnormal
log: in the way: segment with key 2003: shmid 0, owner uid )") +
                 owner + R"(, 10 bytes, \
attached 0 times, created by pid me
)");
  EXPECT_EQ(segment_keys(), std::vector<int>{2003});
  EXPECT_TRUE(kernel_sets().empty());
}

TEST_F(ResourceManager, TakesOverAnExistingSemaphoreSet) {
  semid_ds set{};
  semctl(semget(1005, 8, IPC_CREAT | 0600), 0, IPC_STAT, &set);
  set.sem_perm.uid = 1;
  if (semctl(semget(1005, 0, 0), 0, IPC_SET, &set) != 0) GTEST_SKIP() << "skipped: one user alone";
  // One that has fewer semaphores exists, too, but is of no use.
  semget(3005, 2, IPC_CREAT | 0600);
  expect_session(R"(
$ mox_res_mgr create node-0: ipcbase=1000
node-0 at 1000
log: taken over: semaphore set with key 1005: semid 0, owner uid 1, creator uid 0, 8 semaphores
$ mox_res_mgr create node-1: ipcbase=1000 > /dev/null 2>&1
= 1
$ mox_res_mgr create node-2: ipcbase=3000
checking ipcbase 3000
5520 E3 Creating semaphore with key "3005" failed: Invalid argument
Error: mutex creation failed
5520 E3 Creating semaphore with key "3005" failed: Invalid argument
Error: create failed, removing 1 elements; abnormal
log: in the way: semaphore set with key 3005: semid 1, owner uid 0, creator uid 0, 2 semaphores
$ mox_res_mgr delete node-2: ipcbase=3000
5520 E3 Creating semaphore with key "3005" failed: Invalid argument
Error: cannot attach to semaphore 3005
no segment 3001, 3002, 3003, 3004, 3005
log: in the way: semaphore set with key 3005: semid 1, owner uid 0, creator uid 0, 2 semaphores
)");
  EXPECT_EQ(segment_keys(), std::vector<int>{1004});
  EXPECT_EQ(set_keys(), (std::vector<int>{1005, 3005}));
}

TEST_F(ResourceManager, SearchesRoundKeysInUseUpToTheLastAndNotBeyond) {
  for (const int key : {7, 3, 102, 109}) shmget(key, 10, IPC_CREAT | (key == 109 ? 0 : 0600));
  shmctl(shmget(7, 0, 0), IPC_RMID, nullptr);  // a hole in the kernel's table
  // Nameless segments have key 0, all of them.
  for (int i = 0; i < 3; ++i) shmget(IPC_PRIVATE, 10, 0600);
  semget(115, 1, IPC_CREAT | 0600);
  expect_session(R"(
$ mox_res_mgr create --search node-0: ipcbase=100 node-1: ipcbase=100, databuf=5 node-2: evbuf=0
node-0 at 111
node-1 at 119
node-2 at 4
$ mox_res_mgr create --search node-0: ipcbase=2147483640
node-0 at 2147483640
$ mox_res_mgr create --search node-0: ipcbase=2147483632
node-0 at 2147483632
)");
  for (const std::string base : {"2147483632", "2147483640", "2147483641", "2147483647"}) {
    expect_session("$ mox_res_mgr create --search node-0: ipcbase=" + base +
                   "\nError: search failed\nError: create failed, removing 0 elements; abnormal\n"
                   "log: search of free keys: no eight keys in a row are free from " +
                   base + " on\n");
  }
}

// Root's objects are in the way of everybody, whatever may be asked about them.
TEST_F(ResourceManager, SeesAndSparesWhatBelongsToOthers) {
  const RunResult trial =
      run_program({"/usr/bin/setpriv", "--reuid=65534", "--clear-groups", MOX_RES_MGR, "-h"});
  if (trial.status != 0) GTEST_SKIP() << "skipped: no other user may run this: " << trial.err;
  semget(113, 8, IPC_CREAT | 0600);
  shmget(107, 9, IPC_CREAT | 0600);
  expect_session(R"(
$ setpriv --reuid=65534 --clear-groups mox_res_mgr create --search node-0: ipcbase=100
node-0 at 109
$ setpriv --reuid=65534 --clear-groups mox_res_mgr create node-1: ipcbase=108
checking ipcbase 108
5520 E3 Creating semaphore with key "113" failed: Permission denied
Error: mutex creation failed
5520 E3 Creating semaphore with key "113" failed: Permission denied
Error: create failed, removing 1 elements; abnormal
log: in the way: semaphore set with key 113: semid 0, owner uid 0, creator uid 0, 8 semaphores
$ setpriv --reuid=65534 --clear-groups mox_res_mgr delete node-1: ipcbase=100
5520 E3 Creating semaphore with key "105" failed: No such file or directory
Error: cannot attach to semaphore 105
no segment 101, 102, 103, 104, 105
5511 S4 Removing shared memory segment with key "0" failed: Operation not permitted
Error: delete of shared memory segment 107 failed
)");
}

TEST_F(ResourceManager, ChecksForTrialAndLeavesNothing) {
  expect_session(R"(
$ mox_res_mgr check node-1: ipcbase=10, databuf=5 node-2: ipcbase=10
node-1 at 10
checking ipcbase 10
5515 S4 Shared memory segment with key "14" exists already
Error: check failed
log: in the way: segment with key 14: shmid 1, owner uid 0, 4194304 bytes, attached 1 times, \
created by pid ?
log: in the way: this run made that segment for node 1, with ipcbase 10
)");
  EXPECT_TRUE(nothing_left());
}

TEST_F(ResourceManager, DeletesWithoutABaseAndNamesWhatItRemoved) {
  shmget(1, 10, IPC_CREAT | 0600);
  semget(5, 8, IPC_CREAT | 0600);
  shmget(6, 10, IPC_CREAT | 0600);
  expect_session(R"(
$ mox_res_mgr delete node-0: device-0.path=/nonexistent/file
no segment 2, 3, 4, 5
Error: delete of file /nonexistent/file failed
log: removed for a node without ipcbase: semaphore set with key 5: semid 0, owner uid 0, \
creator uid 0, 8 semaphores
log: removed for a node without ipcbase: segment with key 1: shmid 0, owner uid 0, 10 bytes, \
attached 0 times, created by pid me
log: removing /nonexistent/file: No such file or directory
)");
  EXPECT_EQ(segment_keys(), std::vector<int>{6});
  EXPECT_TRUE(set_keys().empty());
}

TEST_F(ResourceManager, ExplainsWhatTheKernelRefuses) {
  if (access("/proc/sys/kernel/shmmni", W_OK) != 0) GTEST_SKIP() << "skipped: limits are fixed";
  void* address = shmat(shmget(24, 10, IPC_CREAT | 0600), nullptr, 0);
  expect_session(R"(
$ cd /proc/sys/kernel; echo 2 > shmmni; mox_res_mgr create --search node-0: ipcbase=10, databuf=5
checking ipcbase 10
5510 S4 Getting shared memory segment with key "14" failed: No space left on device
Error: create failed, removing 1 elements; abnormal
log: kernel limit met: kernel.shmmni=2 segments, in use now 2; asked for 4194304 bytes
$ cd /proc/sys/kernel; echo 9 > shmmni; echo 1000 > shmall; mox_res_mgr create node-0: ipcbase=10
checking ipcbase 10
5510 S4 Getting shared memory segment with key "14" failed: No space left on device
Error: create failed, removing 0 elements; abnormal
log: kernel limit met: kernel.shmall=1000 pages, in use now 1; asked for 4194304 bytes
$ cd /proc/sys/kernel; echo 4000000 > shmmax; mox_res_mgr create node-0: ipcbase=10 | wc -l
4
log: kernel limit met: kernel.shmmax=4000000 bytes; asked for 4194304 bytes
$ cd /proc/sys/kernel; echo 9999 > shmall; echo 5000000 > shmmax; echo 9 8 7 0 > sem
$ mox_res_mgr create node-0: ipcbase=10 | wc -l
6
log: kernel limit met: kernel.sem=9	8	7	0 (per set, in all, per operation, sets), in use now \
0 sets with 0 semaphores
$ cd /proc/sys/kernel; echo 9 8 7 6 > sem; echo 1 > shm_rmid_forced
$ mox_res_mgr create node-0: ipcbase=10
node-0 at 10
log: kernel.shm_rmid_forced=1: the segments will vanish when this program ends, unless somebody \
attaches them first
$ mox_res_mgr delete node-0: ipcbase=20 | tail -n 1
Error: delete of shared memory segment 25 failed
log: removed while in use, and gone with the last detach: segment with key 24: shmid 0, \
owner uid 0, 10 bytes, attached 1 times, created by pid me
)");
  shmdt(address);
}

TEST_F(ResourceManager, TellsWhatItCannotLookAtFromWhatIsNotThere) {
  if (const std::string reason = why_no_faults(); !reason.empty()) GTEST_SKIP() << reason;
  const RunResult trial = run_program(
      {"/usr/bin/unshare", "--mount", "/bin/mount", "--bind", "/dev/null", "/proc/sysvipc/shm"});
  if (trial.status != 0) GTEST_SKIP() << "skipped: no mounts of its own: " << trial.err;
  expect_session(R"(
$ strace -qq -o /dev/null -e inject=semget:error=EIO mox_res_mgr create --search node-0: ipcbase=1
Error: search failed
Error: create failed, removing 0 elements; abnormal
log: search of free keys: Level='error' (0x3), Message='KORV-E-05520: Creating semaphore with key \
"6" failed, OS status=5' (0x1590)
$ unshare --mount sh -c 'mount --bind /dev/null /proc/sysvipc/shm; exec strace -qq -o /dev/null \
-e inject=shmctl:error=EPERM mox_res_mgr create --search node-0: ipcbase=100'
Error: get_shm_list failed while getting nkeys
Error: search failed
Error: create failed, removing 0 elements; abnormal
log: listing the shared memory segments of the host failed: Operation not permitted
$ strace -qq -o /dev/null -e inject=shmget:error=ENOMEM mox_res_mgr create node-0: ipcbase=1 2>&1 | \
sed -n "s/ [0-9]* kB; / some kB; /; s/.*memory=.*CommitLimit $(awk '/^CommitL/ {print $2}' \
/proc/meminfo) /LIMIT /p"
LIMIT kB, in use now some kB; asked for 4194304 bytes
$ mox_res_mgr create node-0: ipcbase=100
node-0 at 100
$ strace -qq -o /dev/null -e inject=shmctl:error=EPERM:when=1 mox_res_mgr create --search \
node-1: ipcbase=100
node-1 at 105
)");
}

TEST_F(ResourceManager, OptionsAndTheirExitStatus) {
  const std::string version = run_program({MOX_RES_MGR, "-v"}).out;
  EXPECT_THAT(version, testing::StartsWith("\nMox Database Server 1.0 Resource manager utility\n"
                                           "Version     : 1.0."));
  const std::string link = run_program({MOX_RES_MGR, "-V"}).out;
  EXPECT_THAT(link, testing::StartsWith(version + "link_time   : "));
  EXPECT_THAT(link, testing::HasSubstr("\nlink_command: "));
  std::string many = "$ mox_res_mgr create node-0:";
  for (int i = 0; i < 199; ++i) many += " ipcbase=1,";
  expect_session("$ mox_res_mgr -v -V\n" + version + link + R"(Error: \n

^
usage; abnormal
$ mox_res_mgr -h -f /nonexistent
usage

Option  (Mnemonic  ) Explanation     Environment variable
    -h  (help      )
    -v  (version   )
    -V  (Version   )
    -f: (input    f) <input file>
$ mox_res_mgr check --search node-0: ipcbase=100, device-0.path=/x
Error: --search not allowed for devices; abnormal
$ mox_res_mgr create --search node-0: evbuf=0
Error: illegal key 0
5510 S4 Getting shared memory segment with key "0" failed, OS status=0
Error: create failed, removing 0 elements; abnormal
)" + many + R"(
Error: too many words for a command line, put the command into a file (-f)
= 1
)");
}

TEST_F(ResourceManager, ReadsCommandFilesWholeOrNotAtAll) {
  const TempFolder folder;
#ifdef __SANITIZE_ADDRESS__  // which needs the address space for itself
  const std::string limit = "true";
#else
  const std::string limit = "ulimit -v 1000000";
#endif
  expect_session(R"(
$ printf 'create\tnode-0:\r\n  ipcbase=100\n' > @/a; mox_res_mgr -f @/a these words do not count
node-0 at 100
$ : its size is not what it holds; mox_res_mgr -f /proc/version
5502 S4 Reading file "/proc/version" failed, OS status=0
= 1
$ : holes are refused before they fill the memory; truncate -s 4294967295 @/a
$ )" + limit + R"(; mox_res_mgr -f @/a
Error: command file @/a holds a zero byte
= 1
$ truncate -s 4294967296 @/a; mox_res_mgr -f @/a
5502 S4 Reading file "@/a" failed: File too large
= 1
$ mkfifo @/fifo; (sleep 0.3; (printf create; sleep 0.3; printf ' node-0: ipcbase=90') > @/fifo) & \
mox_res_mgr -f @/fifo
node-0 at 90
$ yes | mox_res_mgr -f /dev/stdin
5502 S4 Reading file "/dev/stdin" failed: File too large
= 1
)",
                 folder.path());
  EXPECT_EQ(segment_keys(), (std::vector<int>{94, 104}));
}

TEST_F(ResourceManager, ExplainsSyntaxErrorsInTheLog) {
  const TempFolder folder;
  const std::string path = folder / "command";
  const std::string plain = ": sizes are plain bytes: ";
  const struct {
    std::string text, place, advice;
  } cases[] = {
      {"create\nnode-1: ipcbase=5,\n\tdatabfu=5\n", "3, column 2", ": did you mean databuf?"},
      {"\n\nCREATE node-1:", "3, column 1", ": keywords are lower case: create"},
      {"create node-1: databuf=12M", "1, column 26", plain + "12M is 12582912"},
      {"create node-1: databuf=2KiB,\n", "1, column 25", plain + "2KiB is 2048"},
      {"create node-1: databuf=999999Tb,", "1, column 30",
       plain + "999999Tb is 1099510528264372224"},
      {"create node-1: databuf=1000000t,", "1, column 31", ""},
      {"check node-1: device-0.size = 10M", "1, column 33",
       ": the size of a device is a plain number of MB"},
      {"create node-1: dataf=7", "1, column 16", ""},
      {"create\n  node-1\n\n", "4, column 1", ""},
      {"create node-1: ipcbase=1,\r\n ipcbase=7", "2, column 9", ""},
  };
  for (const auto& [text, place, advice] : cases) {
    SCOPED_TRACE(text);
    write_file(path, text);
    const std::string head = "sed -n 's/^RESMGR.* p:[0-9]* //p'";
    expect_session("$ mox_res_mgr -f @ 2>&1 >/dev/null | " + head + "\nsyntax error in @, line " +
                       place + advice + "\n$ mox_res_mgr \"$(cat @)\" 2>&1 >/dev/null | " + head +
                       "\n" + (advice.empty() ? "" : "syntax error" + advice + "\n"),
                   path);
  }
}

// The report may be lost; what the command did, and what its status says of it, may not.
TEST_F(ResourceManager, SurvivesAClosedOrFullStandardOutput) {
  const TempFolder folder;
  // As large as the limit on the size of files allows.
  write_file(folder / "full", std::string(64 * 512, 'x'));
  for (const char* const redirection : {" >&-", " >> @/full"}) {
    const auto mute = [&](const std::string& words, int status, const std::string& log = "") {
      expect_session("$ ulimit -f 64; mox_res_mgr " + words + redirection +
                         "\nlog: standard output could not be written, a part of the reports is "
                         "lost\n" +
                         log + (status == 0 ? "" : "= 1\n"),
                     folder.path());
    };
    mute("create node-0: ipcbase=10 node-1: ipcbase=20", 0);
    EXPECT_EQ(segment_keys(), (std::vector<int>{14, 24}));
    mute("check node-0: ipcbase=30", 1);
    mute("create node-2: ipcbase=30 node-0:", 1);
    mute("delete node-0: ipcbase=10 node-1: ipcbase=20", 1);
    EXPECT_TRUE(nothing_left());
    for (const char* option : {"-v", "-V", "-h"}) mute(option, 1);
    // The bases that a search has found stand nowhere else.
    mute("create --search node-1: ipcbase=10 node-7: ipcbase=10", 0,
         "log: node-1:ipcbase=10\nlog: node-7:ipcbase=18\n");
    run_program({MOX_RES_MGR, "delete", "node-1: ipcbase=10 node-7: ipcbase=18"});
  }
}

}  // namespace
