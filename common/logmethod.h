// One destination of log messages: a file, a standard stream, the system log alone, or nothing. The
// levels of the logger share destinations through shared pointers. Opened at the first message; a
// failure is printed on standard output once, until a write succeeds, and never ends the program.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

#include "common/base/descriptor.h"

class LogMethod {
 public:
  enum Kind : int {
    NOWHERE = 0,
    TO_FILE = 1,
    SYSTEM_LOG_ONLY = 2,
    TO_STDOUT = 3,
    TO_STDERR = 4,
  };

  // file_name is that of kind TO_FILE. Any other kind writes "Illegal log-level" to standard error
  // in the place of each message.
  explicit LogMethod(Kind kind, std::string file_name = "");
  ~LogMethod();
  LogMethod(const LogMethod&) = delete;
  LogMethod& operator=(const LogMethod&) = delete;

  Kind kind() const { return kind_; }
  const std::string& fileName() const { return file_name_; }
  static int liveCount();

  // True when messages reach their destination; opens it when that was not tried yet.
  bool open();

  // In one write(2), so that messages of several processes that share a file stay whole; only what
  // the system did not take at once is written again. A message that was cut off by a failure is
  // ended before the next one begins. A file that was renamed or removed is opened anew first.
  void write(std::string_view message);
  // Writes out what the program itself has printed on the stream, so that messages follow it.
  void flushFile();

 private:
  void initialize();
  void adopt(Descriptor fd, const std::string& what);
  void followRename();
  int put(std::string_view text);
  void loseMessage(int os_error);
  std::string name() const;
  void close();

  Kind kind_;
  std::string file_name_;
  Descriptor fd_;  // empty: not open
  dev_t device_ = 0;
  ino_t inode_ = 0;
  bool initialized_ = false;
  bool can_be_renamed_ = false;       // a regular file, opened by its name
  bool write_raises_signal_ = false;  // when it fails
  bool cut_off_ = false;              // the last message lacks its end
  bool told_loss_ = false;
};
