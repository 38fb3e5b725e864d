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

// A message of several blocks of 1 KiB; its lines name the process and the message.
void log_block(int message) {
  logmsg.start(LEVEL_INF, "somewhere.cc", 7);
  for (int i = 0; i < 60; ++i) {
    logmsg.printInt("", getpid(), " ");
    logmsg.printInt("message ", message, " of this process, one of its lines\n");
  }
  logmsg.logg();
}

// 250 processes, 16 at a time, with 16 messages each.
void log_from_many_processes(const std::string& file) {
  logmsg.setFileNameAll(file.c_str());
  for (int started = 0; started < 250; ++started) {
    if (started >= 16) wait(nullptr);
    if (fork() != 0) continue;
    for (int message = 0; message < 16; ++message) log_block(message);
    _exit(0);
  }
  while (wait(nullptr) > 0) {
  }
}

// How many messages stand in the text, each in one piece and whole; on a busy host there are lines
// about slow writes between them.
int whole_messages(const std::string& text) {
  std::istringstream lines(text);
  std::string previous;
  int run = 0;
  int whole = 0;
  for (std::string line; std::getline(lines, line);) {
    if (line.find("took too long") != std::string::npos) continue;
    if (line.starts_with("p:")) line.erase(0, line.find(' ') + 1);
    run = line == previous ? run + 1 : 1;
    if (run == 60) ++whole;
    previous = line;
  }
  return whole;
}

TEST_F(LogFile, MessagesOfManyProcessesStayWhole) {
  log_from_many_processes(file_);
  EXPECT_EQ(whole_messages(read_file(file_)), 4000);
}

TEST_F(LogFile, MessagesStayWholeOnAFileSystemWithSmallBlocks) {
  const std::string image = folder_ / "image";
  write_file(image, "");
  fs::resize_file(image, 64 << 20);
  if (std::system(("mkfs.ext4 -q -b 1024 " + image + " 2>&1").c_str()) != 0) {
    GTEST_SKIP() << "skipped: no mkfs.ext4";
  }
  const SmallFileSystem own_mounts("1M");
  if (!own_mounts.refusal.empty()) GTEST_SKIP() << "skipped: " << own_mounts.refusal;
  const LoopDevice device(image, 512);
  if (!device.refusal.empty()) GTEST_SKIP() << "skipped: " << device.refusal;
  const std::string place = own_mounts / "ext4";
  fs::create_directory(place);
  if (mount(device.path().c_str(), place.c_str(), "ext4", 0, nullptr) != 0) {
    GTEST_SKIP() << "skipped: " << std::strerror(errno);
  }
  log_from_many_processes(place + "/log");
  logmsg.setMethodAll(LogMethod::NOWHERE);
  EXPECT_EQ(whole_messages(read_file(place + "/log")), 4000);
  EXPECT_EQ(umount2(place.c_str(), 0), 0);
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

TEST_F(LogFile, FileThatTwoLevelsNameIsOpenOnce) {
  set("logfile", file_);
  set("diagnosticfile", file_);
  log_at_all_levels();
  int open_files = 0;
  for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
    std::error_code error;
    if (fs::read_symlink(entry.path(), error) == file_) ++open_files;
  }
  EXPECT_EQ(open_files, 1);
  EXPECT_TRUE(read("log").ends_with("VSE p:P text\ntext\n")) << read("log");
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
    log_to(own, "one\n");
    log_to("/dev/fd/" + std::to_string(ends[1]), "two\n");
    log_to(folder_ / "link", "three\n");
    fs::remove(folder_ / "link");
    close(ends[1]);
    EXPECT_EQ(plain(drained(ends[0])), "p:P one\np:P two\np:P three\n");
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

// The pipe holds less than the message: signals arrive while its rest waits for the reader.
TEST_F(LogFile, InterruptedWriteIsContinued) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  struct sigaction ignored {};
  ignored.sa_handler = [](int) {};
  ASSERT_EQ(sigaction(SIGALRM, &ignored, nullptr), 0);
  const itimerval often{{0, 5000}, {0, 5000}};
  std::string received;
  sigset_t alarms;
  sigemptyset(&alarms);
  sigaddset(&alarms, SIGALRM);
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
  setitimer(ITIMER_REAL, &often, nullptr);
  logmsg.start(LEVEL_INF, "somewhere.cc", 7);
  for (int i = 0; i < 50; ++i) logmsg.txt(std::string(4000, 'x').c_str());
  logmsg.chr('\n');
  logmsg.logg();
  const itimerval never{};
  setitimer(ITIMER_REAL, &never, nullptr);
  signal(SIGALRM, SIG_DFL);
  logmsg.setMethodAll(LogMethod::NOWHERE);
  close(ends[1]);
  reader.join();
  close(ends[0]);
  EXPECT_EQ(plain(without_complaints(received)), "p:P " + std::string(200000, 'x') + "\n");
}

// As above, of a pipe that another process has made return at once.
TEST_F(LogFile, WriteThatWouldHaveToWaitIsContinued) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  fcntl(ends[1], F_SETFL, O_NONBLOCK);
  std::size_t received = 0;
  std::thread reader([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    char part[4096];
    for (ssize_t n = 0; (n = ::read(ends[0], part, sizeof part)) > 0;) {
      received += static_cast<std::size_t>(n);
    }
  });
  log_to("/proc/self/fd/" + std::to_string(ends[1]), std::string(3999, 'x').c_str());
  for (int i = 0; i < 49; ++i) log(LEVEL_INF, std::string(3999, 'x').c_str());
  logmsg.setMethodAll(LogMethod::NOWHERE);
  close(ends[1]);
  reader.join();
  close(ends[0]);
  EXPECT_GE(received, 50U * 3999);
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

TEST_F(LogFile, NoDescriptorOfTheLoggerIsLeftToAProgramThatIsExecuted) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  const std::string own = "/proc/self/fd/" + std::to_string(ends[1]);
  const std::string pipe = fs::read_symlink(own);
  log_to(file_);
  logmsg.setFileName(LEVEL_WRN, own.c_str());
  log_at_all_levels();
  for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
    const int fd = std::stoi(entry.path().filename());
    std::error_code error;
    const std::string target = fs::read_symlink(entry.path(), error);
    if (target != file_ && target != pipe) continue;
    EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0) << fd << " " << target;
  }
  close(ends[0]);
  close(ends[1]);
  const pid_t parent = getpid();
  log(LEVEL_INF, "parent\n");
  if (fork() == 0) {
    log(LEVEL_INF, "child\n");
    _exit(0);
  }
  int status = 0;
  const pid_t child = wait(&status);
  EXPECT_TRUE(read_file(file_).ends_with("p:" + std::to_string(parent) +
                                         " parent\np:" + std::to_string(child) + " child\n"))
      << read_file(file_);
}

}  // namespace
