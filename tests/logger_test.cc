// The logger: lines, destinations, its own troubles, the system log, and the reports of a status.
#include "common/logger.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <thread>

#include "common/logconfig.h"
#include "tests/support/process.h"
#include "tests/support/runtime_fixture.h"

namespace {

using Logger = RuntimeTest;

TEST_F(Logger, HeadOfALine) {
  const std::string date = "[0-9]{4}(-[0-9]{2}){2} [0-9]{2}(:[0-9]{2}){2}";
  const std::tuple<const char*, std::string, const char*, int, LogLevel, std::string> cases[] = {
      {"0", "", nullptr, -1, LEVEL_INF, "p:P "},
      {"0", "", nullptr, -1, LEVEL_DIA, ""},
      {"0", "", nullptr, 0, LEVEL_WRN, "n:0 WRN p:P "},
      {"0", "", "X", 1, LEVEL_DIA, "Node-1 X "},
      {"1", "", "RESMGR", 1, LEVEL_ERR, "n:1 RESMGR ERR " + date + " p:P "},
      {"2", "", "X", -1, LEVEL_DBG, "X DBG " + date + "\\.[0-9]{3} p:P "},
      {"3", "day %d%%", "X", -1, LEVEL_TST, "X TST day [0-9]{2}%\\.[0-9]{6} p:P "},
      {"1", "a%nb", "X", -1, LEVEL_INF, "X a\\\\nb p:P "},
      {"4", std::string(255, 'a'), "X", -1, LEVEL_INF, "X a{255} p:P "},
      {"1", std::string(256, 'a'), "X", -1, LEVEL_INF, "X " + date + " p:P "}};
  for (const auto& [time, format, prefix, node, level, head] : cases) {
    set("historytime", time);
    set("timeformat", format);
    logmsgNodeno = node;
    logmsgPrefix = prefix;
    logmsg.setMethodAll(LogMethod::TO_STDOUT);
    const std::string line = printed([level = level] { log(level); });
    EXPECT_TRUE(std::regex_match(line, std::regex(head + "text\n\\|"))) << head << ": " << line;
  }
}

TEST_F(Logger, PiecesOfAMessage) {
  const std::string longest(4000, 'x');
  EXPECT_EQ(
      printed([&longest] {
        logmsg.start(LEVEL_INF, "somewhere.cc", 7);
        logmsg.printInt("<", -2147483647 - 1, ">");
        logmsg.printUInt("<", 4294967295, ">");
        logmsg.printInt64("<", INT64_MIN, ">");
        logmsg.printUInt64("<", UINT64_MAX, ">");
        logmsg.printIntX("<", 0xBEEF, ">");
        logmsg.printPtr("<", reinterpret_cast<void*>(0xF00), ">");
        logmsg.printFix("=", 42, 5, 0);
        logmsg.printFix("=", 42, 10, 1);
        logmsg.printFix("=", 12345, 4, 0);
        logmsg.printFixHex("=", 0xBEEF, 4, 1);
        logmsg.printFixHex("=", 0xBEEF, 11, 1);
        logmsg.debugByte("=", "\x0a\xff", 2);
        logmsg.txt(nullptr);
        logmsg.txt(nullptr, 7);
        logmsg.txt("abc", 2);
        logmsg.txt("abc", -1);
        logmsg.txt((longest + "x").c_str());
        logmsg.txt(longest.c_str());
        logmsg.logg();
      }),
      "BEWARE Bad length char[] to LogMsg::txt\nBEWARE Bad length char[] to LogMsg::txt\n|p:P "
      "<-2147483648><4294967295><-9223372036854775808><18446744073709551615><beef><0xf00>"
      "=   42=0000000042=BEWARE overflow=beef=BEWARE overflow= 0a ffab" +
          longest);
}

TEST_F(Logger, StartAndLoggOutOfOrderAreTold) {
  EXPECT_EQ(printed([] {
              logmsg.logg();
              logmsg.txt("dropped");
              logmsg.start(LEVEL_INF, "first.cc", 1);
              logmsg.txt("lost");
              log(LEVEL_INF);
              logmsgPrefix = "X";
              logmsg.logg();
            }),
            "BEWARE LogMsg::start not invoked (lmLog) in ?? \n"
            "BEWARE LogMsg::start invoked twice (lmStart)\n"
            "prev in file first.cc line 1, now in file somewhere.cc line 7\n"
            "BEWARE LogMsg::start not invoked (lmLog) in X \n|p:P text\n");
}

TEST_F(Logger, EachLevelHasItsDestination) {
  EXPECT_EQ(printed(log_at_all_levels), "|p:P text\nWRN p:P text\nERR p:P text\nVSE p:P text\n");
  logmsgNodeno = 0;
  set("logfile", folder_ / "log");
  set("diagnosticfile", folder_ / "dia");
  log_at_all_levels();
  EXPECT_EQ(read("log0"), "n:0 p:P text\nn:0 WRN p:P text\nn:0 ERR p:P text\nn:0 VSE p:P text\n");
  EXPECT_EQ(read("dia.0"), "Node-0 text\n");
  EXPECT_EQ(fs::status(folder_ / "log0").permissions(), fs::perms{0640});

  EXPECT_EQ(printed([] {
              logmsg.setMethodAll(LogMethod::TO_STDOUT);
              logmsg.setMethod(LEVEL_TST, static_cast<LogMethod::Kind>(9));
              logmsg.attach(LEVEL_ERR, LEVEL_TST);
              logmsg.detach(LEVEL_VSE);
              logmsg.showTag(LEVEL_INF, true);
              std::printf("first, ");
              for (const LogLevel level : {LEVEL_INF, LEVEL_ERR, LEVEL_VSE}) log(level);
              logmsg.turnOffExtraInf();
              log(LEVEL_WRN);
              for (int level = LEVEL_DBG; level <= LEVEL_TST; ++level) {
                logmsg.showTag(static_cast<LogLevel>(level), level != LEVEL_INF);
              }
            }),
            "first, n:0 INF p:P text\nn:0 p:P text\n|Illegal log-level");
}

TEST_F(Logger, HistoryFileIsNamedByKeyAndNode) {
  const std::tuple<const char*, int, int, const char*> cases[] = {
      {"nodeno", 0, 5, "h.0.s%d"},         {"nodenoshmkey", 2, 5, "h.2-5.s%d"},
      {"shmkeynodeno", 2, 0, "h.0-2.s%d"}, {"shmkeynodeno", -1, 5, "h.5.s%d"},
      {"nodenoshmkey", 2, -1, "h.2.s%d"},  {"shmkey", -1, 5, "h.5.s%d"}};
  for (const auto& [kind, node, key, file] : cases) {
    logmsgNodeno = node;
    set("historyfile", folder_ / "h.%d.s%d");
    set("historysubst", kind);
    logmsg.setMethod(LEVEL_WRN, LogMethod::TO_STDOUT);
    logmsg.detach(LEVEL_TST);
    EXPECT_TRUE(logmsg.tryHistoryfile(key)) << file;
    EXPECT_TRUE(logmsg.redirectHistoryFile(key)) << file;
    for (const LogLevel level : {LEVEL_ERR, LEVEL_WRN, LEVEL_TST}) log(level);
    const std::string head = node < 0 ? "" : "n:" + std::to_string(node) + " ";
    EXPECT_TRUE(read(file).ends_with(head + "ERR p:P text\n" + head + "WRN p:P text\n")) << file;
  }
  set("historyfile", folder_ / "missing/%n%s%d");
  EXPECT_FALSE(logmsg.redirectHistoryFile(1));
}

TEST_F(Logger, TroublesAreToldOnceAndTheProgramGoesOn) {
  const std::string fifo = folder_ / "fifo";
  mkfifo(fifo.c_str(), 0600);
  const std::pair<std::string, std::string> cases[] = {
      {"/missing/log", "open file /missing/log:No such file or directory"},
      {fifo, "open file " + fifo + ":No such device or address"},
      {"/dev/full", "write file /dev/full:No space left on device"}};
  for (const auto& [file, trouble] : cases) {
    logmsg.setFileNameAll(file.c_str());
    EXPECT_EQ(printed(log_at_all_levels), "       WRN p:P T could not " + trouble + "\n|");
  }
  // A configuration that is read again tries what could not be opened, also under the same name.
  const std::string late = folder_ / "late/log";
  EXPECT_EQ(printed([&] {
              set("logfile", late);
              log(LEVEL_INF);
            }),
            "       WRN p:P T could not open file " + late + ":No such file or directory\n|");
  mkdir((folder_ / "late").c_str(), 0700);
  logmsg.newConfig();
  log(LEVEL_INF);
  EXPECT_EQ(read("late/log"), "p:P text\n");
  for (const std::string target : {"", "/dev/full"}) {
    const std::string out = run_function([&target] {
                              close(STDERR_FILENO);
                              if (!target.empty()) open(target.c_str(), O_WRONLY);
                              logmsg.setMethodAll(LogMethod::TO_STDERR);
                              log_at_all_levels();
                              return 0;
                            }).out;
    EXPECT_EQ(out.substr(out.find(" could")),
              target.empty() ? " could not dup(stderr):Bad file descriptor\n"
                             : " could not write stderr:No space left on device\n");
  }
}

TEST_F(Logger, LinksAreFollowedOnlyWhereNobodyElseCanSetThem) {
  mkdir((folder_ / "open").c_str(), 01757);
  mkdir((folder_ / "group").c_str(), 0770);
  for (const std::string place : {"", "open/", "group/"}) {
    fs::create_symlink(folder_ / "target", folder_ / (place + "link"));
    fs::create_symlink(folder_.path(), folder_ / (place + "folder"));
  }
  fs::create_symlink("open/folder", folder_ / "detour");
  fs::create_symlink("ring", folder_ / "ring");
  const auto chain = [](int links) { return "chain" + std::to_string(links); };
  for (int links = 1; links <= 41; ++links) {
    fs::create_symlink(chain(links - 1), folder_ / chain(links));
  }
  const std::pair<const char*, bool> cases[] = {
      {"chain40", true},   {"chain41", false},   {"link", true},       {"folder/a", true},
      {"open/../b", true}, {"open/link", false}, {"detour/c", false},  {"open/folder/d", false},
      {"ring", false},     {"open/", false},     {"group/link", false}};
  for (const auto& [path, opened] : cases) {
    EXPECT_EQ(LogMethod(LogMethod::TO_FILE, folder_ / path).open(), opened) << path;
  }
}

// A pipe that is full until its reader comes, 300 milliseconds late.
TEST_F(Logger, SlowWritesAreTold) {
  const std::string fifo = folder_ / "fifo";
  mkfifo(fifo.c_str(), 0600);
  const int pipe = open(fifo.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
  std::string text;
  while (write(pipe, "x", 1) == 1) text += 'x';
  std::thread reader([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_EQ(::read(pipe, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  });
  logmsg.setFileNameAll(fifo.c_str());
  log(LEVEL_INF);
  reader.join();
  text.resize(static_cast<std::size_t>(::read(pipe, text.data(), text.size())));
  close(pipe);
  EXPECT_TRUE(std::regex_match(text, std::regex("p:[0-9]+ text\n" + complaint))) << text;
}

TEST_F(Logger, SystemLogGetsLinesAtTheirPriorityAndFacility) {
  const SmallFileSystem devices("1M");
  if (!devices.refusal.empty()) GTEST_SKIP() << "skipped: " << devices.refusal;
  ASSERT_EQ(mount((devices / "").c_str(), "/dev", nullptr, MS_BIND, nullptr), 0);
  // Under systemd, where standard error ends in the same journal as the system log.
  const auto log_to_journal = [] {
    logmsg.newConfig();  // opens standard error anew
    struct stat now {};
    fstat(STDERR_FILENO, &now);
    const std::string stream = std::to_string(now.st_dev) + ":" + std::to_string(now.st_ino);
    setenv("JOURNAL_STREAM", stream.c_str(), 1);
    log(LEVEL_INF);  // which does not go to the system log
    log(LEVEL_ERR);
    setenv("JOURNAL_STREAM", "1:1", 1);
    log(LEVEL_VSE);
    unsetenv("JOURNAL_STREAM");
  };
  EXPECT_EQ(printed(log_to_journal), "|p:P text\nERR p:P text\nVSE p:P text\n");  // no reader
  const int server = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const sockaddr_un address = {AF_UNIX, "/dev/log"};
  EXPECT_EQ(bind(server, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  EXPECT_EQ(printed(log_to_journal), "|p:P text\nVSE p:P text\n");
  const std::string ignoring = "p:P initLogLevMap, ignoring unexpected value: ";
  const std::string overrides = " overrides syslog_facility=cron\n";
  EXPECT_EQ(printed([] {
              logmsg.newConfig();
              log_at_all_levels();
              logmsg.start(LEVEL_ERR, "somewhere.cc", 7);
              for (int i = 0; i < 3; ++i) logmsg.txt(std::string(2000, 'x').c_str());
              logmsg.loggImmediate();
              set("loglevmap_dbg", "debug");
              set("loglevmap_err", "none");
              set("syslog_ident", "OTHER");
              set("syslog_facility", "cron");
              log(LEVEL_DBG, "100%s");
              log(LEVEL_ERR);
              for (const char* facility : {"local7", "none", "mo\non"}) {
                setenv("MOX_SYSLOG_FACILITY", facility, 1);
                set("loglevmap_vse", facility);
                log(LEVEL_VSE);
              }
            }),
            "|p:P text\nWRN p:P text\nERR p:P text\nVSE p:P text\nERR p:P " +
                std::string(6000, 'x') + "ERR p:P text\n" + ignoring +
                "local7\np:P MOX_SYSLOG_FACILITY=local7" + overrides +
                "VSE p:P text\np:P MOX_SYSLOG_FACILITY=none" + overrides +
                "p:P syslog logging disabled\nVSE p:P text\n" + ignoring +
                "mo\\non\np:P MOX_SYSLOG_FACILITY=mo\\non" + overrides + ignoring +
                "mo\\non\nVSE p:P text\n");
  std::string received;
  char datagram[100];
  for (ssize_t n = 0; (n = recv(server, datagram, sizeof datagram, MSG_DONTWAIT)) > 0;) {
    received.append(datagram, static_cast<std::size_t>(n)).append("\n");
  }
  EXPECT_EQ(
      plain(std::regex_replace(received, std::regex("[A-Z][a-z]{2} [ 0-9]{2} [0-9:]{8} "), "")),
      "<131>KORV[P]: ERR p:P text\n<129>KORV[P]: VSE p:P text\n<132>KORV[P]: WRN p:P text\n"
      "<131>KORV[P]: ERR p:P text\n<129>KORV[P]: VSE p:P text\n<131>KORV[P]: text\n"
      "<79>OTHER[P]: DBG p:P 100%s\n<185>OTHER[P]: VSE p:P text\n<73>OTHER[P]: VSE p:P text\n");
  close(server);
  umount2("/dev", MNT_DETACH);
  Status status;
  initLogLevMap(status);
  EXPECT_STREQ(status.getText(), "KORV-S-11618: Invalid syntax in configuration file mo\\non");
}

TEST_F(Logger, StatusIsReportedWhole) {
  const std::string os_message = "OS message: No such file or directory\n";
  const std::string text = "-05500: Opening file \"/a\" failed, OS status=2";
  const std::string place = text + "' (0x157c)\nSet in 'site.cc' line 42\n";
  const std::string level = "Level='systemerr' (0x4), Message='KORV-S" + place;
  const std::string diagnostic = os_message + "KORV-S" + text + "\n" + os_message;
  logmsg.setFileNameAll((folder_ / "log").c_str());
  Status status;
  status.set(SEV_SYSTEMERR, MOX_OPEN_FAILED, ENOENT, {"/a"}, {"site.cc", 42});
  Status error = status;
  error.severity = SEV_ERROR;
  error.report(nullptr);
  logmsg.start(LEVEL_INF, "somewhere.cc", 7);
  error.printSysError();
  logmsg.logg();
  EXPECT_EXIT(status.abort("gone"), testing::ExitedWithCode(1), "");
  EXPECT_EXIT(status.abort(nullptr), testing::ExitedWithCode(1), "");
  std::string trace;
  for (int i = 0; i < 20; ++i) {
    pushTraceStatus(&status, "up.cc", 7);
    trace += (i < 10 ? "    " : "   ") + std::to_string(i) + "  'up.cc' line 7\n";
  }
  pushTraceStatus(&status, "lost.cc", 7);
  status.report("opening");
  // Those that end are children with numbers of their own.
  EXPECT_EQ(std::regex_replace(read("log"), std::regex("p:[0-9]+"), "p:P"),
            "ERR p:P Level='error' (0x3), Message='KORV-E" + place + os_message +
                "p:P  (0x157c)   Message='KORV-E" + text + "'\n" + os_message +
                "ERR p:P System aborted with message: 'gone'\n" + level + diagnostic +
                "p:P exit(1)\nERR p:P System aborted:\n" + level + diagnostic +
                "p:P exit(1)\nERR p:P opening " + level + trace +
                "Trace tracecnt overflow (20).\n" + diagnostic);
}

}  // namespace
