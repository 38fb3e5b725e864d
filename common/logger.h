// The logger. Every message goes through the one object `logmsg`: start writes the head of the
// line, txt, chr and the print operations append, logg ends the message and writes it to the
// destination of its level. Works without any configuration: INF, WRN, ERR and VSE go to standard
// error, the other levels to no stream. Troubles of the logger never stop the program.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "common/base/sourceposition.h"
#include "common/loglevel.h"
#include "common/logmethod.h"
#include "common/logtrouble.h"

class LogMsg {
 public:
  static constexpr int max_message = 4000;  // characters of one piece, and of one write

  constexpr LogMsg() = default;
  LogMsg(const LogMsg&) = delete;
  LogMsg& operator=(const LogMsg&) = delete;

  // file is constant text, not owned. A message that was started and not written is lost.
  void start(LogLevel level, const char* file, int line);

  // Append to the message. Absent texts (null) are allowed everywhere; a piece above max_message is
  // refused; what does not fit any more is written first.
  void txt(const char* text);
  void txt(const char* text, int length);
  void chr(char c);
  void printInt(const char* before, int value, const char* after);
  void printUInt(const char* before, unsigned value, const char* after);
  void printInt64(const char* before, std::int64_t value, const char* after);
  void printUInt64(const char* before, std::uint64_t value, const char* after);
  void printIntX(const char* before, unsigned value, const char* after);
  // Right-aligned in width (at most 10) characters, filled with zeros or, when fill is 0, blanks;
  // "BEWARE overflow" in the place of a number that does not fit.
  void printFix(const char* before, unsigned value, unsigned width, unsigned char fill);
  void printFixHex(const char* before, unsigned value, unsigned width, unsigned char fill);
  void printPtr(const char* before, const void* value, const char* after);
  void printByte(unsigned char value);                                     // two hexadecimal digits
  void debugByte(const char* before, const void* bytes, unsigned length);  // " 0a 0b ..."

  void logg();
  void loggImmediate();  // without the system log
  void flush();          // of all destinations

  // Destinations. Levels that are set together, or attached, share one; a level without one drops
  // its messages. A file is opened at its first line, see openForAppending.
  void setFileName(LogLevel level, const char* name);
  void setMethod(LogLevel level, LogMethod::Kind kind);
  void setFileNameAll(const char* name);
  void setMethodAll(LogMethod::Kind kind);
  void attach(LogLevel level, LogLevel to);  // writes from now on to the destination of `to`
  void detach(LogLevel level);               // has no destination from now on

  void showTag(LogLevel level, bool show);  // at first INF alone carries no tag
  void turnOffExtraInf();                   // no level carries its tag

  // The kind of time stamp (0 none, 1 seconds, 2 milliseconds, 3 microseconds; others as 1) and its
  // strftime format; an empty one, or one above 255 characters, stands for "%Y-%m-%d %H:%M:%S".
  void setTimeStamp(int kind, const std::string& format);

  // Reads the configuration variables again and builds destinations, time stamp and system-log map
  // anew. The first message does so by itself. Defined in common/logconfig.cc, as the next two.
  void newConfig();
  // Opens the history file, whose name is made with the shared-memory key (negative: none), and
  // sends all levels there that write to a standard stream. False when it cannot be opened; then
  // nothing changes.
  bool redirectHistoryFile(int shm_key);
  // True when the history file can be opened (it is created when it is missing).
  bool tryHistoryfile(int shm_key);

 private:
  struct Destination {
    std::shared_ptr<LogMethod> method;  // null: messages are dropped
    bool show_tag = true;
  };

  void configureOnce();
  Destination* destination(LogLevel level);
  void setAll(const std::shared_ptr<LogMethod>& method);
  void append(std::string_view piece);
  void appendTimeStamp();
  void appendFixed(const char* before, std::string_view digits, unsigned width, unsigned char fill);
  void end(bool to_system_log);
  void writeOut(bool to_system_log);

  std::array<Destination, log_level_count> destinations_{
      {{}, {nullptr, false}, {}, {}, {}, {}, {}}};
  bool configured_ = false;
  int time_kind_ = 2;
  char time_format_[256] = "";  // empty: the default

  bool started_ = false;
  LogLevel level_ = LEVEL_INF;
  const char* file_ = "";
  int line_ = 0;
  std::size_t used_ = 0;
  char buffer_[max_message + 1] = {};
};

extern LogMsg logmsg;

// A message of one line: the text, of any length, and a line end.
void logLine(LogLevel level, std::string_view text, SourcePosition at = SourcePosition::here());
