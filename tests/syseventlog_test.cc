// The system log, as it arrives at a real socket, and the configuration of its map.
#include "common/syseventlog.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>

#include <regex>
#include <string>
#include <thread>

#include "common/logconfig.h"
#include "tests/own_system_log.h"
#include "tests/runtime_fixture.h"

namespace {

using SystemLog = RuntimeTest;

TEST_F(SystemLog, LinesArriveAtTheirPriorityAndFacility) {
  const std::string text = in_own_system_log([](int log_socket) {
    std::string result;
    logmsg.setMethodAll(LogMethod::SYSTEM_LOG_ONLY);
    log_at_all_levels("default 100%s\n");
    logmsg.start(LEVEL_ERR, "somewhere.cc", 7);
    logmsg.loggImmediate();
    logmsg.detach(LEVEL_ERR);
    log(LEVEL_ERR, "no destination");
    result += received(log_socket);

    const Captured err(stderr);
    set("loglevmap_dbg", "debug");
    set("loglevmap_err", "none");
    set("syslog_ident", "OTHER");
    set("syslog_facility", "cron");
    log(LEVEL_DBG, "mapped");
    log(LEVEL_ERR, "not mapped\n");
    result += received(log_socket);

    set("syslog_facility", "kern");
    log(LEVEL_WRN, "kernel\n");
    setenv("MOX_SYSLOG_FACILITY", "local7", 1);
    logmsg.newConfig();
    log(LEVEL_WRN, "local7\n");
    setenv("MOX_SYSLOG_FACILITY", "none", 1);
    logmsg.newConfig();
    log(LEVEL_WRN, "off\n");
    return result + received(log_socket) + err.text();
  });
  if (text == "skipped") GTEST_SKIP() << "skipped: no mount namespace of its own";
  EXPECT_EQ(text,
            "<132>KORV#]: WRN p# default 100%s\n"
            "<131>KORV#]: ERR p# default 100%s\n"
            "<129>KORV#]: VSE p# default 100%s\n"
            "<131>KORV#]: default 100%s\n"
            "<79>OTHER#]: DBG p# mapped\n"
            "<12>OTHER#]: WRN p# kernel\n"
            "<188>OTHER#]: WRN p# local7\n"
            "ERR p# not mapped\n"
            "WRN p# kernel\n"
            "p# MOX_SYSLOG_FACILITY=local7 overrides syslog_facility=kern\n"
            "WRN p# local7\n"
            "p# MOX_SYSLOG_FACILITY=none overrides syslog_facility=kern\n"
            "p# syslog logging disabled\n"
            "WRN p# off\n");
}

// The queue of the socket is full until its reader comes, 300 milliseconds late.
TEST_F(SystemLog, SlowReportingIsTold) {
  const std::string text = in_own_system_log([](int log_socket) {
    const Captured out(stdout);
    std::thread reader([log_socket] {
      std::this_thread::sleep_for(std::chrono::milliseconds(300));
      char buffer[64];
      while (recv(log_socket, buffer, sizeof buffer, 0) != 4 || buffer[0] != 'd') continue;
    });
    const sockaddr_un address = {AF_UNIX, "/dev/log"};
    const int filler = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const auto* raw = reinterpret_cast<const sockaddr*>(&address);
    while (sendto(filler, "x", 1, MSG_DONTWAIT, raw, sizeof address) == 1) continue;
    Status status;
    logmsgPrefix = "SLOW";
    logSysEvent(LEVEL_ERR, "late", status);
    sendto(filler, "done", 4, 0, raw, sizeof address);
    reader.join();
    return std::regex_replace(out.text(), std::regex("BEWARE .{16} "), "BEWARE T ");
  });
  if (text == "skipped") GTEST_SKIP() << "skipped: no mount namespace of its own";
  EXPECT_TRUE(std::regex_match(
      text, std::regex("SLOW BEWARE T Event reporting took too long \\([0-9]{3,} msecs\\)\n")))
      << text;
}

TEST_F(SystemLog, UnexpectedValuesAreLoggedAndLeaveTheDefault) {
  set("loglevmap_wrn", "");
  set("syslog_facility", "mail");
  setenv("MOX_SYSLOG_FACILITY", "moon", 1);
  Status status;
  const Output output = output_of([&] {
    set("loglevmap_vse", "loud");
    initLogLevMap(status);
  });
  const std::string lines = process_ + "initLogLevMap, ignoring unexpected value: loud\n" +
                            process_ + "MOX_SYSLOG_FACILITY=moon overrides syslog_facility=mail\n" +
                            process_ + "initLogLevMap, ignoring unexpected value: moon\n";
  EXPECT_EQ(output.err, lines + lines);
  EXPECT_STREQ(status.getText(), "KORV-S-11618: Invalid syntax in configuration file moon");
  EXPECT_EQ(getOSloglev(LEVEL_VSE), LOG_ALERT);
  EXPECT_EQ(getOSloglev(LEVEL_WRN), not_logged);
  EXPECT_EQ(getSyslogFacility(), LOG_MAIL);
}

}  // namespace
