// One destination of log lines: a file, a standard stream, the system log alone, or nothing. The
// levels of the logger share destinations through shared pointers; a file that two levels name is
// open once. Opened at the first line; its troubles are told once and never stop the program.
#pragma once

#include <cstdio>
#include <string>

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
  // in the place of each line.
  explicit LogMethod(Kind kind, std::string file_name = "");
  ~LogMethod();
  LogMethod(const LogMethod&) = delete;
  LogMethod& operator=(const LogMethod&) = delete;

  Kind kind() const { return kind_; }
  const std::string& fileName() const { return file_name_; }
  static int liveCount();

  // True when lines reach their stream; opens the destination when that was not tried yet.
  bool open();
  void write(const char* line);
  void flushFile();

 private:
  void initialize();
  void openFile();
  void duplicate(std::FILE* stream, const char* name);
  void close();
  void loseLine(int os_error);

  Kind kind_;
  std::string file_name_;
  bool initialized_ = false;
  bool told_loss_ = false;
  std::FILE* stream_ = nullptr;  // null: not open
};
