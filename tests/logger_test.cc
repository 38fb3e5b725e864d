// The logger: lines, destinations, and its own troubles.
#include "common/logger.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>

#include <regex>
#include <string>
#include <thread>

#include "tests/runtime_fixture.h"

namespace {

class Logger : public RuntimeTest {
 protected:
  // What a message looks like in a file.
  std::string line(const std::function<void()>& append, LogLevel level = LEVEL_INF) {
    const std::string file = folder_ / "line";
    std::filesystem::remove(file);
    logmsg.setFileName(level, file.c_str());
    logmsg.start(level, "somewhere.cc", 7);
    append();
    logmsg.logg();
    return read_file(file);
  }
  static std::string without_time(const std::string& text) {
    return std::regex_replace(text, std::regex(" t:[0-9]+ "), " t:T ");
  }
};

TEST_F(Logger, HeadOfALine) {
  const struct {
    const char* prefix;
    int node;
    LogLevel level;
    std::string head;
  } cases[] = {
      {nullptr, -1, LEVEL_INF, process_},
      {nullptr, -1, LEVEL_DIA, ""},
      {nullptr, 0, LEVEL_WRN, "n:0 WRN " + process_},
      {"RESMGR", 1, LEVEL_ERR, "n:1 RESMGR ERR " + process_},
      {"RESMGR", 1, LEVEL_DIA, "Node-1 RESMGR "},
      {"RESMGR", -1, LEVEL_VSE, "RESMGR VSE " + process_},
      {"X", -1, LEVEL_DBG, "X DBG " + process_},
      {"X", -1, LEVEL_TST, "X TST " + process_},
  };
  for (const auto& c : cases) {
    logmsgNodeno = c.node;
    logmsgPrefix = c.prefix;
    EXPECT_EQ(line([] { logmsg.txt("text\n"); }, c.level), c.head + "text\n");
  }
  logmsg.turnOffExtraInf();
  EXPECT_EQ(line([] { logmsg.txt("text\n"); }, LEVEL_ERR), "X " + process_ + "text\n");
}

TEST_F(Logger, TimeStamps) {
  const std::string date = "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}";
  const struct {
    std::string kind, format, stamp;
  } cases[] = {
      {"1", "", date},
      {"2", "", date + "\\.[0-9]{3}"},
      {"3", "", date + "\\.[0-9]{6}"},
      {"4", "", date},
      {"2", "day %d%%", "day [0-9]{2}%\\.[0-9]{3}"},
      {"1", std::string(300, 'x'), date},
  };
  for (const auto& c : cases) {
    set("timeformat", c.format);
    set("historytime", c.kind);
    const std::string text = line([] {});
    EXPECT_TRUE(std::regex_match(text, std::regex(c.stamp + " " + process_))) << text;
  }
}

TEST_F(Logger, PiecesOfAMessage) {
  const std::string pieces = line([] {
    logmsg.txt(nullptr);
    logmsg.txt("abc", 2);
    logmsg.chr('!');
    logmsg.printInt("<", -2147483647 - 1, ">");
    logmsg.printUInt(nullptr, 4294967295U, nullptr);
    logmsg.printInt64(" ", INT64_MIN, "");
    logmsg.printUInt64(" ", UINT64_MAX, "");
    logmsg.printIntX(" 0x", 0xABCDEF01U, ".");
    logmsg.printFix("=", 42, 5, 0);
    logmsg.printFix("=", 42, 10, 1);
    logmsg.printFix("=", 12345, 4, 0);
    logmsg.printFix("=", 1, 11, 0);
    logmsg.printFixHex("=", 0xBEEF, 6, 1);
    logmsg.printPtr("@", reinterpret_cast<void*>(0x1F), "@");
    logmsg.printByte(0xA);
    logmsg.debugByte(":", "\xFF\x01", 2);
  });
  EXPECT_EQ(pieces, process_ +
                        "ab!<-2147483648>4294967295 -9223372036854775808 18446744073709551615 "
                        "0xabcdef01.=   42=0000000042=BEWARE overflow=BEWARE overflow=00beef"
                        "@0x1f@0a: ff 01");
}

TEST_F(Logger, MisuseIsToldOnStandardOutputAndLosesNothingElse) {
  std::string text;
  Output output = output_of([&] {
    text = line([] {
      log(LEVEL_INF, "");
      logmsg.start(LEVEL_INF, "first.cc", 1);
      logmsg.txt("lost");
      logmsg.start(LEVEL_INF, "second.cc", 2);
      logmsg.txt("kept");
      logmsg.txt("x", -1);
      logmsg.txt(std::string(4001, 'x').c_str());
    });
    logmsg.logg();
  });
  EXPECT_EQ(text, process_ + process_ + "kept");
  EXPECT_EQ(output.out,
            "BEWARE LogMsg::start invoked twice (lmStart)\n"
            "prev in file somewhere.cc line 7, now in file somewhere.cc line 7\n"
            "BEWARE LogMsg::start invoked twice (lmStart)\n"
            "prev in file first.cc line 1, now in file second.cc line 2\n"
            "BEWARE Bad length char[] to LogMsg::txt\n"
            "BEWARE Bad length char[] to LogMsg::txt\n"
            "BEWARE LogMsg::start not invoked (lmLog) in ?? \n");
  EXPECT_EQ(output.err, "");
}

TEST_F(Logger, LongMessagesArriveWhole) {
  const std::string piece(1999, 'x');
  const std::string lines = line([&] {
    for (int i = 0; i < 5; ++i) logmsg.txt((piece + "\n").c_str());
  });
  EXPECT_EQ(lines.size(), process_.size() + std::size_t{5} * 2000);
}

TEST_F(Logger, DefaultDestinations) {
  const Output output = logged([] { log_at_all_levels("text\n"); });
  EXPECT_EQ(output.out, "");
  EXPECT_EQ(output.err, process_ + "text\nWRN " + process_ + "text\nERR " + process_ +
                            "text\nVSE " + process_ + "text\n");
}

TEST_F(Logger, ConfiguredFilesCarryTheNodeNumber) {
  umask(0);
  logmsgNodeno = 12;
  set("logfile", folder_ / "log");
  set("diagnosticfile", folder_ / "dia");
  for (const LogLevel level : {LEVEL_INF, LEVEL_DIA, LEVEL_ERR, LEVEL_DBG}) log(level, "text\n");
  EXPECT_EQ(read_file(folder_ / "log12"),
            "n:12 " + process_ + "text\nn:12 ERR " + process_ + "text\n");
  EXPECT_EQ(read_file(folder_ / "dia.12"), "Node-12 text\n");

  struct stat info {};
  ASSERT_EQ(::stat((folder_ / "log12").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0640U);
}

TEST_F(Logger, LevelsShareAndChangeDestinations) {
  const std::string one = folder_ / "one";
  const std::string two = folder_ / "two";
  const Output output = output_of([&] {
    logmsg.setFileNameAll(one.c_str());
    EXPECT_EQ(LogMethod::liveCount(), 1);
    logmsg.setFileName(LEVEL_ERR, two.c_str());
    logmsg.attach(LEVEL_DIA, LEVEL_ERR);
    EXPECT_EQ(LogMethod::liveCount(), 2);
    logmsg.detach(LEVEL_WRN);
    logmsg.setMethod(LEVEL_VSE, LogMethod::TO_STDOUT);
    logmsg.setMethod(LEVEL_TST, static_cast<LogMethod::Kind>(9));
    std::printf("before\n");
    log_at_all_levels("text\n");
    log(static_cast<LogLevel>(7), "dropped");
    logmsg.setMethodAll(LogMethod::NOWHERE);
    log(LEVEL_ERR, "nowhere");
    EXPECT_EQ(LogMethod::liveCount(), 1);
  });
  EXPECT_EQ(read_file(one), "DBG " + process_ + "text\n" + process_ + "text\n");
  EXPECT_EQ(read_file(two), "ERR " + process_ + "text\ntext\n");
  EXPECT_EQ(output.out, "before\nVSE " + process_ + "text\n");
  EXPECT_EQ(output.err, "Illegal log-level");
}

TEST_F(Logger, TroublesAreToldOnceAndTheProgramGoesOn) {
  const std::string missing = folder_ / "missing/log";
  const std::string fifo = folder_ / "fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const struct {
    std::string file, trouble;
  } cases[] = {
      {missing, "could not open file " + missing + ":No such file or directory"},
      {"/dev/full", "could not write file /dev/full:No space left on device"},
      {fifo, "could not open file " + fifo + ":No such device or address"},
  };
  for (const auto& c : cases) {
    const Output output = output_of([&] {
      logmsg.setFileName(LEVEL_ERR, c.file.c_str());
      for (int i = 0; i < 3; ++i) log(LEVEL_ERR, "text\n");
    });
    EXPECT_EQ(without_time(output.out), "       WRN " + process_ + "t:T " + c.trouble + "\n");
  }
  logmsgPrefix = "RESMGR";
  const Output closed = output_of([&] {
    logmsg.setMethod(LEVEL_ERR, LogMethod::TO_STDERR);
    ::close(STDERR_FILENO);
    for (int i = 0; i < 3; ++i) log(LEVEL_ERR, "text\n");
  });
  EXPECT_EQ(without_time(closed.out),
            "RESMGR WRN " + process_ + "t:T could not dup(stderr):Bad file descriptor\n");
}

TEST_F(Logger, LinksAreFollowedOnlyWhereNobodyElseCanSetThem) {
  namespace fs = std::filesystem;
  for (const char* name : {"open", "ours", "open/sub", "target"})
    fs::create_directory(folder_ / name);
  ::chmod((folder_ / "open").c_str(), 01757);
  ::chmod((folder_ / "ours").c_str(), 0755);
  fs::create_symlink("../target/log", folder_ / "open/link");
  fs::create_symlink("../target/log", folder_ / "ours/link");
  fs::create_symlink(folder_ / "target", folder_ / "open/folder");
  fs::create_symlink(folder_ / "target", folder_ / "ours/folder");
  fs::create_symlink("../open/folder", folder_ / "ours/detour");
  fs::create_symlink("ring", folder_ / "ours/ring");
  const struct {
    const char* path;
    bool opened;
  } cases[] = {{"open/link", false},       {"ours/link", true},        {"open/folder/log", false},
               {"ours/folder/log", true},  {"ours/detour/log", false}, {"ours/ring", false},
               {"open/sub/../file", true}, {"open/sub/", false}};
  for (const auto& c : cases) {
    LogMethod method(LogMethod::TO_FILE, folder_ / c.path);
    const Output output = output_of([&] { EXPECT_EQ(method.open(), c.opened) << c.path; });
    EXPECT_EQ(output.out.empty(), c.opened);
  }
}

// A pipe that is full until its reader comes, 300 milliseconds late.
TEST_F(Logger, SlowWritesAreTold) {
  const struct {
    const char *text, *what;
  } cases[] = {{"line\n", "fputs"}, {"no line end", "flush"}};
  for (const auto& c : cases) {
    const std::string fifo = folder_ / c.what;
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const int pipe = open(fifo.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    logmsg.setFileName(LEVEL_ERR, fifo.c_str());
    while (write(pipe, "x", 1) == 1) continue;
    std::string received;
    std::thread reader([&] {
      std::this_thread::sleep_for(std::chrono::milliseconds(300));
      char buffer[4096];
      pollfd readable = {pipe, POLLIN, 0};
      while (received.find("msecs)\n") == std::string::npos && poll(&readable, 1, 5000) > 0) {
        const ssize_t length = read(pipe, buffer, sizeof buffer);
        if (length > 0) received.append(buffer, static_cast<std::size_t>(length));
      }
    });
    log(LEVEL_ERR, c.text);
    reader.join();
    close(pipe);
    const std::regex told("x+ERR " + process_ + c.text + "       BEWARE .{16} Last " + c.what +
                          " took too long \\([0-9]{3,} msecs\\)\n");
    EXPECT_TRUE(std::regex_match(received.substr(received.find_last_of('x')), told))
        << received.substr(received.find_last_of('x'));
  }
}

TEST_F(Logger, HistoryFile) {
  const struct {
    const char* kind;
    int key, node;
    const char* file;
  } cases[] = {
      {"nodeno", 5, 2, "h.2.s%d"},         {"shmkey", 5, 2, "h.5.s%d"},
      {"shmkeynodeno", 5, 2, "h.5-2.s%d"}, {"shmkeynodeno", 5, -1, "h.5.s%d"},
      {"shmkey", -1, 2, "h..s%d"},
  };
  for (const auto& c : cases) {
    logmsgNodeno = c.node;
    set("historyfile", folder_ / "h.%d.s%d");
    set("historysubst", c.kind);
    std::filesystem::remove(folder_ / c.file);
    EXPECT_TRUE(logmsg.tryHistoryfile(c.key));
    EXPECT_TRUE(std::filesystem::exists(folder_ / c.file)) << c.file;
  }
  logmsgNodeno = -1;
  logmsg.setFileName(LEVEL_ERR, (folder_ / "own").c_str());
  ASSERT_TRUE(logmsg.redirectHistoryFile(77));
  for (const LogLevel level : {LEVEL_INF, LEVEL_ERR, LEVEL_DBG}) log(level, "text\n");
  EXPECT_EQ(read_file(folder_ / "h.77.s%d"), process_ + "text\n");
  EXPECT_EQ(read_file(folder_ / "own"), "ERR " + process_ + "text\n");

  const Output output = output_of([&] {
    set("historyfile", folder_ / "missing/%n%s%d");
    EXPECT_FALSE(logmsg.tryHistoryfile(1));
    EXPECT_FALSE(logmsg.redirectHistoryFile(1));
    log(LEVEL_INF, "still here\n");
  });
  EXPECT_EQ(output.err, process_ + "still here\n");
}

}  // namespace
