// What becomes of a message on its way into a file, pipe or full disk; and which files are taken.
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/wait.h>

#include <csignal>
#include <thread>

#include "tests/support/process.h"
#include "tests/support/runtime_fixture.h"

namespace {

class LogFile : public RuntimeTest {
 protected:
  static void log_to(const std::string& file, const std::string& piece = "text\n", int pieces = 1) {
    logmsg.setFileNameAll(file.c_str());
    log(LEVEL_INF, piece, pieces);
  }

  const std::string file_ = folder_ / "log";
};

// What can be read from a descriptor now, which is closed then.
std::string drained(int fd) {
  std::string text(1 << 20, '\0');
  fcntl(fd, F_SETFL, O_NONBLOCK);
  const ssize_t count = ::read(fd, text.data(), text.size());
  text.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
  close(fd);
  return plain(text);
}

TEST_F(LogFile, MessageLongerThanAnyPieceIsOneWrite) {
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, ends), 0);
  log_to("/proc/self/fd/" + std::to_string(ends[1]), std::string(2000, 'x'), 10);
  close(ends[1]);
  EXPECT_EQ(drained(ends[0]), "p:P " + std::string(20000, 'x'));  // one datagram
}

TEST_F(LogFile, NextMessageAfterARenameGoesToANewFile) {
  fs::create_symlink("log", folder_ / "link");
  for (const std::string name : {"log", "link"}) {
    SCOPED_TRACE(name);
    log_to(folder_ / name, "one\n");
    fs::rename(file_, folder_ / "old");
    log(LEVEL_INF, "two\n");
    EXPECT_EQ(read("old"), "p:P one\n");
    EXPECT_EQ(read("log"), "p:P two\n");
    fs::remove(file_);
    log(LEVEL_INF, "three\n");
    EXPECT_EQ(read("log"), "p:P three\n");
    fs::remove(file_);
  }
}

TEST_F(LogFile, MessagesStayInTheRenamedFileWhileNoNewOneCanBeMade) {
  fs::create_directory(folder_ / "old");
  log_to(folder_ / "old/log", "one\n");
  fs::rename(folder_ / "old", folder_ / "new");
  EXPECT_EQ(printed([] { log(LEVEL_INF, "two\n"); }), "       WRN p:P T could not open file " +
                                                          folder_.path() +
                                                          "/old/log:No such file or directory\n|");
  EXPECT_EQ(read("new/log"), "p:P one\np:P two\n");
}

TEST_F(LogFile, PathThatLeadsToAnOwnDescriptorIsThatDescriptor) {
  int ends[2];
  for (const bool socket : {false, true}) {
    SCOPED_TRACE(socket ? "socket" : "pipe");
    ASSERT_EQ(socket ? socketpair(AF_UNIX, SOCK_STREAM, 0, ends) : pipe(ends), 0);
    const std::string own = "/proc/self/fd/" + std::to_string(ends[1]);
    fs::create_symlink(own, folder_ / "link");
    log_to(own, "one, ");
    log_to("/dev/fd/" + std::to_string(ends[1]), "two\n");
    log_to(folder_ / "link", "three\n");
    fs::remove(folder_ / "link");
    close(ends[1]);
    EXPECT_EQ(drained(ends[0]), "p:P one, p:P two\np:P three\n");
  }
}

TEST_F(LogFile, StandardOutputWhoseReaderHasGoneEndsNoProgram) {
  const auto log_to_nobody = [](bool socket) {
    signal(SIGPIPE, SIG_DFL);
    int ends[2];
    if ((socket ? socketpair(AF_UNIX, SOCK_STREAM, 0, ends) : pipe(ends)) != 0) _exit(2);
    close(ends[0]);
    dup2(ends[1], STDOUT_FILENO);
    for (const char* name : {"/dev/stdout", "/missing/log"}) log_to(name);
    logmsg.setMethodAll(LogMethod::TO_STDOUT);
    log(LEVEL_INF);
    sigset_t pending;
    sigpending(&pending);
    _exit(sigismember(&pending, SIGPIPE));
  };
  for (const bool socket : {false, true}) {
    EXPECT_EXIT(log_to_nobody(socket), testing::ExitedWithCode(0), "") << socket;
  }
}

TEST_F(LogFile, LimitOnTheSizeOfFilesEndsNoProgram) {
  const auto log_past_the_limit = [this] {
    const rlimit limit{10, RLIM_INFINITY};
    setrlimit(RLIMIT_FSIZE, &limit);
    log_to(file_);
    log(LEVEL_INF);
    _exit(0);
  };
  EXPECT_EXIT(log_past_the_limit(), testing::ExitedWithCode(0), "");
  EXPECT_EQ(fs::file_size(file_), 10U);
}

TEST_F(LogFile, MessageCutOffByAFullDiskIsEndedBeforeTheNextOne) {
  const SmallFileSystem disk("64K");
  if (!disk.refusal.empty()) GTEST_SKIP() << "skipped: " << disk.refusal;
  write_file(disk / "other", std::string(56 << 10, 'x'));
  logmsg.setFileNameAll((disk / "log").c_str());
  const auto log_often = [](int times) {
    for (int i = 0; i < times; ++i) log(LEVEL_INF, std::string(3900, 'x') + "\n");
  };
  const std::string once =
      "       WRN p:P T could not write file " + (disk / "log") + ":No space left on device\n|";
  EXPECT_EQ(printed([&] { log_often(3); }), once);
  fs::remove(disk / "other");
  log(LEVEL_INF, "after\n");
  const std::string text = plain(read_file(disk / "log"));
  EXPECT_TRUE(text.ends_with("x\np:P after\n")) << text.substr(text.size() - 20);
  // The next time that the disk is full is reported again.
  EXPECT_EQ(printed([&] { log_often(20); }), once);
}

// The pipe holds less than the message: signals arrive while its rest waits for the reader; or
// another process has made the pipe return at once.
TEST_F(LogFile, WriteThatIsInterruptedOrWouldHaveToWaitIsContinued) {
  for (const int flags : {0, O_NONBLOCK}) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    fcntl(ends[1], F_SETFL, flags);
    std::string received;
    std::thread reader([&] {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      received = plain(read_file("/proc/self/fd/" + std::to_string(ends[0])));
    });
    const RunResult writer = run_function([&] {
      struct sigaction noted {};
      noted.sa_handler = [](int) {};
      sigaction(SIGALRM, &noted, nullptr);
      const itimerval often{{0, 5000}, {0, 5000}};
      setitimer(ITIMER_REAL, &often, nullptr);
      log_to("/proc/self/fd/" + std::to_string(ends[1]), std::string(4000, 'x'), 30);
      return 0;
    });
    close(ends[1]);
    reader.join();
    close(ends[0]);
    EXPECT_EQ(writer.status, 0);
    EXPECT_EQ(received.substr(received.find(' ') + 1), std::string(120000, 'x')) << flags;
  }
}

TEST_F(LogFile, FileOfAnotherUserIsNotTakenInASharedFolder) {
  const std::string shared = folder_ / "shared";
  mkdir(shared.c_str(), 01777);
  write_file(shared + "/theirs", "");
  write_file(shared + "/ours", "");
  if (chown((shared + "/theirs").c_str(), 12345, 12345) != 0) GTEST_SKIP() << "skipped: no root";
  write_file(folder_ / "victim", "");
  fs::create_hard_link(folder_ / "victim", shared + "/second");
  ASSERT_EQ(mkfifo((shared + "/pipe").c_str(), 0666), 0);
  ASSERT_EQ(chown((shared + "/pipe").c_str(), 12345, 12345), 0);
  const int reader = open((shared + "/pipe").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  const std::pair<const char*, bool> cases[] = {
      {"ours", true}, {"new", true}, {"theirs", false}, {"second", false}, {"pipe", false}};
  for (const auto& [name, taken] : cases) {
    SCOPED_TRACE(name);
    LogMethod method(LogMethod::TO_FILE, shared + "/" + name);
    const std::string told = printed([&, taken = taken] { EXPECT_EQ(method.open(), taken); });
    EXPECT_EQ(told.find("Permission denied") == std::string::npos, taken) << told;
  }
  // A group shares its files, but nobody else's pipe may stop the writer.
  fs::permissions(shared, fs::perms{0770});
  EXPECT_TRUE(LogMethod(LogMethod::TO_FILE, shared + "/theirs").open());
  printed([&] { EXPECT_FALSE(LogMethod(LogMethod::TO_FILE, shared + "/pipe").open()); });
  close(reader);
}

TEST_F(LogFile, IsOpenOnceAndNeitherItNorAPipeIsLeftToAProgramThatIsExecuted) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  const std::string own = "/proc/self/fd/" + std::to_string(ends[1]);
  const std::string pipe = fs::read_symlink(own);
  set("logfile", file_);
  set("diagnosticfile", file_);
  logmsg.setFileName(LEVEL_WRN, own.c_str());
  log_at_all_levels();
  int open_files = 0;
  for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
    const int fd = std::stoi(entry.path().filename());
    std::error_code error;
    const std::string target = fs::read_symlink(entry.path(), error);
    if (target != file_ && target != pipe) continue;
    open_files += target == file_ ? 1 : 0;
    EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0) << fd << " " << target;
  }
  EXPECT_EQ(open_files, 1);
  close(ends[1]);
  EXPECT_EQ(drained(ends[0]), "WRN p:P text\n");
}

// Nobody's lines overwrite another's, and each line names its own process.
TEST_F(LogFile, IsSharedByProcesses) {
  log_to(file_, "parent\n");
  std::ofstream(file_, std::ios::app) << "stranger\n";
  if (fork() == 0) {
    log(LEVEL_INF, "child\n");
    _exit(0);
  }
  int status = 0;
  const std::string child = std::to_string(wait(&status));
  EXPECT_EQ(read("log"), "p:P parent\nstranger\np:" + child + " child\n");
}

}  // namespace
