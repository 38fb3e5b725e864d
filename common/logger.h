// The logger. Every message goes through the one object `logmsg`: start writes the head of the
// line, txt, chr and the print operations append, logg ends the message and writes it to the
// destination of its level. Works without any configuration: INF, WRN, ERR and VSE go to standard
// error, the other levels to no stream. Its own failures never end the program. One thread at a
// time may use it; it exists before the first constructor and after the last destructor.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <memory>
#include <string>
#include <string_view>

#include "common/base/sourceposition.h"
#include "common/loglevel.h"
#include "common/logmethod.h"
#include "common/logtrouble.h"

class LogMsg {
 public:
  static constexpr int max_message = 4000;  // characters of one piece

  constexpr LogMsg() = default;
  LogMsg(const LogMsg&) = delete;
  LogMsg& operator=(const LogMsg&) = delete;

  // file is constant text, not owned. A message that was started and not written is lost.
  void start(LogLevel level, const char* file, int line);

  // Append to the message, which may become longer than any piece. Absent texts (null) are allowed
  // everywhere; a piece above max_message is refused.
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
  void flush();          // what the program has printed on streams that are destinations

  // A whole message: the text, of any length, and a line end. Leaves the message that is being
  // built as it is.
  void interject(LogLevel level, std::string_view text, SourcePosition at);

  // Destinations. Levels that are set together, attached, or given the same file name share one; a
  // level without one drops its messages. A file is opened at its first message and once it was
  // renamed; it must be one that openForAppending takes.
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

  // What is being built between start and logg.
  struct Message {
    bool started = false;
    LogLevel level = LEVEL_INF;
    const char* file = "";
    int line = 0;
    std::string text;
  };

  // What only an object that is in use has: the object itself is there before any constructor runs.
  struct State {
    Message message;
    int time_kind = 2;
    std::string time_format;
    std::time_t stamp_second = -1;  // of stamp
    std::string stamp;              // the time stamp of that second, without its fraction
  };

  void configureOnce();
  Destination* destination(LogLevel level);
  std::shared_ptr<LogMethod> fileMethod(const std::string& name) const;
  void setAll(const std::shared_ptr<LogMethod>& method);
  void append(std::string_view piece);
  void appendTimeStamp();
  void appendFixed(const char* before, std::string_view digits, unsigned width, unsigned char fill);
  void end(bool to_system_log);
  void writeOut(bool to_system_log);

  std::array<Destination, log_level_count> destinations_{
      {{}, {nullptr, false}, {}, {}, {}, {}, {}}};
  std::unique_ptr<State> state_;  // null: not configured yet
};

extern LogMsg& logmsg;

// logmsg.interject from where it is called.
void logLine(LogLevel level, std::string_view text, SourcePosition at = SourcePosition::here());
