// What becomes of a message on its way into a file, a pipe or a full disk; and which files are
// taken.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>

#include <csignal>
#include <thread>

#include "tests/support/runtime_fixture.h"

namespace {

namespace fs = std::filesystem;

class LogFile : public RuntimeTest {
 protected:
  static void log_to(const std::string& file, const char* message = "text\n") {
    logmsg.setFileNameAll(file.c_str());
    log(LEVEL_INF, message);
  }
  static std::string without_time(const std::string& text) {
    return std::regex_replace(text, std::regex("t:[0-9]+"), "T");
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
  return without_complaints(text);
}

TEST_F(LogFile, MessageLongerThanAnyPieceIsOneWrite) {
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, ends), 0);
  logmsg.setFileNameAll(("/proc/self/fd/" + std::to_string(ends[1])).c_str());
  logmsg.start(LEVEL_INF, "somewhere.cc", 7);
  for (int i = 0; i < 10; ++i) logmsg.txt(std::string(2000, 'x').c_str());
  logmsg.loggImmediate();
  close(ends[1]);
  EXPECT_EQ(plain(drained(ends[0])), "p:P " + std::string(20000, 'x'));  // one datagram
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
  EXPECT_EQ(without_time(printed([] { log(LEVEL_INF, "two\n"); })),
            "       WRN p:P T could not open file " + folder_.path() +
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
    EXPECT_EQ(plain(drained(ends[0])), "p:P one, p:P two\np:P three\n");
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
  const std::string told = printed([] {
    for (int i = 0; i < 3; ++i) log(LEVEL_INF, (std::string(3900, 'x') + "\n").c_str());
  });
  fs::remove(disk / "other");
  log(LEVEL_INF, "after\n");
  const std::string once =
      "       WRN p:P T could not write file " + (disk / "log") + ":No space left on device\n|";
  EXPECT_EQ(without_time(told), once);
  const std::string text = plain(without_complaints(read_file(disk / "log")));
  EXPECT_TRUE(text.ends_with("x\np:P after\n")) << text.substr(text.size() - 20);

  // The next time that the disk is full is reported again.
  EXPECT_EQ(without_time(printed([] {
              for (int i = 0; i < 20; ++i) log(LEVEL_INF, (std::string(3900, 'y') + "\n").c_str());
            })),
            once);
}

// The pipe holds less than the message: signals arrive while its rest waits for the reader; or
// another process has made the pipe return at once.
TEST_F(LogFile, WriteThatIsInterruptedOrWouldHaveToWaitIsContinued) {
  struct sigaction ignored {};
  ignored.sa_handler = [](int) {};
  ASSERT_EQ(sigaction(SIGALRM, &ignored, nullptr), 0);
  sigset_t alarms;
  sigemptyset(&alarms);
  sigaddset(&alarms, SIGALRM);
  for (const int flags : {0, O_NONBLOCK}) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    fcntl(ends[1], F_SETFL, flags);
    std::string received;
    pthread_sigmask(SIG_BLOCK, &alarms, nullptr);
    std::thread reader([&] {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      char part[4096];
      for (ssize_t n = 0; (n = ::read(ends[0], part, sizeof part)) > 0;) {
        received.append(part, static_cast<std::size_t>(n));
      }
    });
    pthread_sigmask(SIG_UNBLOCK, &alarms, nullptr);
    logmsg.setFileNameAll(("/proc/self/fd/" + std::to_string(ends[1])).c_str());
    const itimerval often{{0, 5000}, {0, 5000}};
    setitimer(ITIMER_REAL, &often, nullptr);
    logmsg.start(LEVEL_INF, "somewhere.cc", 7);
    for (int i = 0; i < 50; ++i) logmsg.txt(std::string(4000, 'x').c_str());
    logmsg.chr('\n');
    logmsg.logg();
    const itimerval never{};
    setitimer(ITIMER_REAL, &never, nullptr);
    logmsg.setMethodAll(LogMethod::NOWHERE);
    close(ends[1]);
    reader.join();
    close(ends[0]);
    EXPECT_EQ(plain(without_complaints(received)), "p:P " + std::string(200000, 'x') + "\n")
        << flags;
  }
  signal(SIGALRM, SIG_DFL);
}

TEST_F(LogFile, FileOfAnotherUserIsNotTakenInASharedFolder) {
  if (geteuid() != 0) GTEST_SKIP() << "skipped: only root makes files of another user";
  const std::string shared = folder_ / "shared";
  fs::create_directory(shared);
  fs::permissions(shared, fs::perms{01777});
  write_file(shared + "/theirs", "");
  write_file(shared + "/ours", "");
  if (chown((shared + "/theirs").c_str(), 12345, 12345) != 0) GTEST_SKIP() << "skipped: chown";
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
  EXPECT_EQ(plain(drained(ends[0])), "WRN p:P text\n");
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
