#include "common/logger.h"

#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <ctime>

#include "common/syseventlog.h"

constinit LogMsg logmsg;

namespace {

const char* tag(LogLevel level) {
  static constexpr const char* tags[log_level_count] = {"DBG ", "INF ", "WRN ", "ERR ",
                                                        "VSE ", "",     "TST "};
  return level >= LEVEL_DBG && level <= LEVEL_TST ? tags[level] : "??? ";
}

// The digits of a number, for as long as this object lives.
class Digits {
 public:
  template <typename Number>
  explicit Digits(Number value, int base = 10)
      : end_(std::to_chars(text_, text_ + sizeof text_, value, base).ptr) {}
  std::string_view view() const { return {text_, static_cast<std::size_t>(end_ - text_)}; }

 private:
  char text_[24];
  char* end_;
};

std::string_view view(const char* text) {
  return text != nullptr ? std::string_view(text) : std::string_view();
}

}  // namespace

void LogMsg::configureOnce() {
  if (configured_) return;
  configured_ = true;  // first: reading the configuration logs, too
  newConfig();
}

LogMsg::Destination* LogMsg::destination(LogLevel level) {
  if (level < LEVEL_DBG || level > LEVEL_TST) return nullptr;
  return &destinations_[static_cast<std::size_t>(level)];
}

void LogMsg::start(LogLevel level, const char* file, int line) {
  configureOnce();
  if (started_) {
    std::printf(
        "BEWARE LogMsg::start invoked twice (lmStart)\n"
        "prev in file %s line %d, now in file %s line %d\n",
        file_, line_, file, line);
    std::fflush(stdout);
  }
  started_ = true;
  level_ = level;
  file_ = file;
  line_ = line;
  used_ = 0;

  if (logmsgNodeno >= 0) printInt(level == LEVEL_DIA ? "Node-" : "n:", logmsgNodeno, " ");
  if (logmsgPrefix != nullptr) {
    txt(logmsgPrefix);
    chr(' ');
  }
  const Destination* target = destination(level);
  if (target == nullptr || target->show_tag) txt(tag(level));
  if (time_kind_ > 0) appendTimeStamp();
  if (level != LEVEL_DIA) printInt("p:", getpid(), " ");
}

void LogMsg::appendTimeStamp() {
  timeval now{};
  gettimeofday(&now, nullptr);
  std::tm local{};
  localtime_r(&now.tv_sec, &local);
  char text[256];
  const char* format = time_format_[0] == '\0' ? "%Y-%m-%d %H:%M:%S" : time_format_;
  append({text, std::strftime(text, sizeof text, format, &local)});
  const auto microseconds = static_cast<unsigned>(now.tv_usec);
  if (time_kind_ == 2) printFix(".", microseconds / 1000, 3, 1);
  if (time_kind_ == 3) printFix(".", microseconds, 6, 1);
  chr(' ');
}

void LogMsg::append(std::string_view piece) {
  if (!started_) return;
  if (piece.size() > max_message) {
    std::printf("BEWARE Bad length char[] to LogMsg::txt\n");
    std::fflush(stdout);
    return;
  }
  if (used_ + piece.size() > max_message) {
    writeOut(true);
    used_ = 0;
  }
  used_ += piece.copy(buffer_ + used_, piece.size());
}

void LogMsg::txt(const char* text) {
  append(view(text));
}

void LogMsg::txt(const char* text, int length) {
  if (text == nullptr) return;
  // A negative length becomes one that is refused.
  append({text, static_cast<std::size_t>(length)});
}

void LogMsg::chr(char c) {
  append({&c, 1});
}

void LogMsg::printInt(const char* before, int value, const char* after) {
  printInt64(before, value, after);
}

void LogMsg::printUInt(const char* before, unsigned value, const char* after) {
  printUInt64(before, value, after);
}

void LogMsg::printInt64(const char* before, std::int64_t value, const char* after) {
  txt(before);
  append(Digits(value).view());
  txt(after);
}

void LogMsg::printUInt64(const char* before, std::uint64_t value, const char* after) {
  txt(before);
  append(Digits(value).view());
  txt(after);
}

void LogMsg::printIntX(const char* before, unsigned value, const char* after) {
  txt(before);
  append(Digits(value, 16).view());
  txt(after);
}

void LogMsg::printFix(const char* before, unsigned value, unsigned width, unsigned char fill) {
  appendFixed(before, Digits(value).view(), width, fill);
}

void LogMsg::printFixHex(const char* before, unsigned value, unsigned width, unsigned char fill) {
  appendFixed(before, Digits(value, 16).view(), width, fill);
}

void LogMsg::appendFixed(const char* before, std::string_view digits, unsigned width,
                         unsigned char fill) {
  txt(before);
  if (width > 10 || digits.size() > width) {
    txt("BEWARE overflow");
    return;
  }
  append(std::string(width - digits.size(), fill != 0 ? '0' : ' '));
  append(digits);
}

void LogMsg::printPtr(const char* before, const void* value, const char* after) {
  txt(before);
  txt("0x");
  append(Digits(reinterpret_cast<std::uintptr_t>(value), 16).view());
  txt(after);
}

void LogMsg::printByte(unsigned char value) {
  printFixHex(nullptr, value, 2, 1);
}

void LogMsg::debugByte(const char* before, const void* bytes, unsigned length) {
  txt(before);
  const auto* next = static_cast<const unsigned char*>(bytes);
  for (unsigned i = 0; i < length; ++i) {
    chr(' ');
    printByte(next[i]);
  }
}

void LogMsg::logg() {
  end(true);
}

void LogMsg::loggImmediate() {
  end(false);
}

void LogMsg::end(bool to_system_log) {
  if (!started_) {
    std::printf("BEWARE LogMsg::start not invoked (lmLog) in %s \n",
                logmsgPrefix != nullptr ? logmsgPrefix : "??");
    std::fflush(stdout);
    return;
  }
  writeOut(to_system_log);
  started_ = false;
}

void LogMsg::writeOut(bool to_system_log) {
  const Destination* target = destination(level_);
  if (target == nullptr || target->method == nullptr) return;
  const std::shared_ptr<LogMethod> method = target->method;
  if (method->kind() == LogMethod::NOWHERE) return;

  buffer_[used_] = '\0';
  method->write(buffer_);
  if (to_system_log && getOSloglev(level_) != not_logged) {
    Status status;
    logSysEvent(level_, buffer_, status);
  }
  method->flushFile();
}

void LogMsg::flush() {
  for (const Destination& target : destinations_) {
    if (target.method != nullptr) target.method->flushFile();
  }
}

void LogMsg::setFileName(LogLevel level, const char* name) {
  configureOnce();
  if (Destination* target = destination(level)) {
    target->method = std::make_shared<LogMethod>(LogMethod::TO_FILE, name);
  }
}

void LogMsg::setMethod(LogLevel level, LogMethod::Kind kind) {
  configureOnce();
  if (Destination* target = destination(level)) {
    target->method = std::make_shared<LogMethod>(kind);
  }
}

void LogMsg::setFileNameAll(const char* name) {
  setAll(std::make_shared<LogMethod>(LogMethod::TO_FILE, name));
}

void LogMsg::setMethodAll(LogMethod::Kind kind) {
  setAll(std::make_shared<LogMethod>(kind));
}

void LogMsg::setAll(const std::shared_ptr<LogMethod>& method) {
  configureOnce();
  for (Destination& target : destinations_) target.method = method;
}

void LogMsg::attach(LogLevel level, LogLevel to) {
  configureOnce();
  Destination* target = destination(level);
  const Destination* source = destination(to);
  if (target != nullptr && source != nullptr) target->method = source->method;
}

void LogMsg::detach(LogLevel level) {
  configureOnce();
  if (Destination* target = destination(level)) target->method.reset();
}

void LogMsg::showTag(LogLevel level, bool show) {
  if (Destination* target = destination(level)) target->show_tag = show;
}

void LogMsg::turnOffExtraInf() {
  for (Destination& target : destinations_) target.show_tag = false;
}

void LogMsg::setTimeStamp(int kind, const std::string& format) {
  time_kind_ = kind;
  const std::size_t length = format.size() < sizeof time_format_ ? format.size() : 0;
  format.copy(time_format_, length);
  time_format_[length] = '\0';
}

void logLine(LogLevel level, std::string_view text, SourcePosition at) {
  logmsg.start(level, at.file, at.line);
  for (; !text.empty();
       text.remove_prefix(std::min<std::size_t>(text.size(), LogMsg::max_message))) {
    const std::string_view piece = text.substr(0, LogMsg::max_message);
    logmsg.txt(piece.data(), static_cast<int>(piece.size()));
  }
  logmsg.chr('\n');
  logmsg.logg();
}
