#include "common/logger.h"

#include <pthread.h>
#include <sys/time.h>
#include <unistd.h>

#include <charconv>
#include <ctime>
#include <utility>

#include "common/base/eternal.h"
#include "common/base/printable.h"
#include "common/syseventlog.h"

namespace {

constinit Eternal<LogMsg> storage;

}  // namespace

constinit LogMsg& logmsg = storage.value;

namespace {

constexpr std::size_t longest_format = 255;  // of a time stamp

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

// Kept, because every message names it and each getpid is a system call; a fork forgets it.
pid_t ownProcess() {
  static pid_t known = 0;
  static const int forgetting = pthread_atfork(nullptr, nullptr, [] { known = 0; });
  if (known == 0 || forgetting != 0) known = getpid();
  return known;
}

std::string_view view(const char* text) {
  return text != nullptr ? std::string_view(text) : std::string_view();
}

}  // namespace

void LogMsg::configureOnce() {
  if (state_ == nullptr) newConfig();
}

LogMsg::Destination* LogMsg::destination(LogLevel level) {
  if (level < LEVEL_DBG || level > LEVEL_TST) return nullptr;
  return &destinations_[static_cast<std::size_t>(level)];
}

void LogMsg::start(LogLevel level, const char* file, int line) {
  configureOnce();
  if (state_->message.started) {
    printLogTrouble("BEWARE LogMsg::start invoked twice (lmStart)\nprev in file " +
                    std::string(state_->message.file) + " line " +
                    std::to_string(state_->message.line) + ", now in file " + file + " line " +
                    std::to_string(line) + "\n");
  }
  state_->message.started = true;
  state_->message.level = level;
  state_->message.file = file;
  state_->message.line = line;
  state_->message.text.clear();

  if (logmsgNodeno >= 0) printInt(level == LEVEL_DIA ? "Node-" : "n:", logmsgNodeno, " ");
  if (logmsgPrefix != nullptr) {
    txt(logmsgPrefix);
    chr(' ');
  }
  const Destination* target = destination(level);
  if (target == nullptr || target->show_tag) txt(tag(level));
  if (state_->time_kind > 0) appendTimeStamp();
  if (level != LEVEL_DIA) printInt("p:", ownProcess(), " ");
}

void LogMsg::appendTimeStamp() {
  timeval now{};
  gettimeofday(&now, nullptr);
  if (now.tv_sec != state_->stamp_second) {
    std::tm local{};
    localtime_r(&now.tv_sec, &local);
    char text[256];
    const char* format = state_->time_format.c_str();
    state_->stamp = printable({text, std::strftime(text, sizeof text, format, &local)});
    state_->stamp_second = now.tv_sec;
  }
  append(state_->stamp);
  const auto microseconds = static_cast<unsigned>(now.tv_usec);
  if (state_->time_kind == 2) printFix(".", microseconds / 1000, 3, 1);
  if (state_->time_kind == 3) printFix(".", microseconds, 6, 1);
  chr(' ');
}

void LogMsg::append(std::string_view piece) {
  if (state_ == nullptr || !state_->message.started) return;
  if (piece.size() > max_message) {
    return printLogTrouble("BEWARE Bad length char[] to LogMsg::txt\n");
  }
  state_->message.text += piece;
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
  constexpr std::string_view fillings[] = {"          ", "0000000000"};
  append(fillings[fill != 0 ? 1 : 0].substr(0, width - digits.size()));
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
  if (state_ == nullptr || !state_->message.started) {
    return printLogTrouble(std::string("BEWARE LogMsg::start not invoked (lmLog) in ") +
                           (logmsgPrefix != nullptr ? logmsgPrefix : "??") + " \n");
  }
  writeOut(to_system_log);
  state_->message.started = false;
}

void LogMsg::writeOut(bool to_system_log) {
  const Destination* target = destination(state_->message.level);
  if (target == nullptr || target->method == nullptr) return;
  LogMethod& method = *target->method;
  if (method.kind() == LogMethod::NOWHERE) return;

  const bool to_both = to_system_log && isSystemLogged(state_->message.level);
  method.flushFile();
  if (!(to_both && method.kind() == LogMethod::TO_STDERR && systemLogHoldsStandardError())) {
    method.write(state_->message.text);
  }
  if (to_both) {
    Status status;
    logSysEvent(state_->message.level, state_->message.text.c_str(), status);
  }
}

void LogMsg::interject(LogLevel level, std::string_view text, SourcePosition at) {
  configureOnce();
  Message kept;
  std::swap(kept, state_->message);
  start(level, at.file, at.line);
  while (!text.empty()) {
    const std::string_view piece = text.substr(0, max_message);
    append(piece);
    text.remove_prefix(piece.size());
  }
  chr('\n');
  logg();
  std::swap(kept, state_->message);
}

void LogMsg::flush() {
  for (const Destination& target : destinations_) {
    if (target.method != nullptr) target.method->flushFile();
  }
}

std::shared_ptr<LogMethod> LogMsg::fileMethod(const std::string& name) const {
  for (const Destination& target : destinations_) {
    const LogMethod* method = target.method.get();
    const bool same = method != nullptr && method->kind() == LogMethod::TO_FILE;
    if (same && method->fileName() == name) return target.method;
  }
  return std::make_shared<LogMethod>(LogMethod::TO_FILE, name);
}

void LogMsg::setFileName(LogLevel level, const char* name) {
  configureOnce();
  if (Destination* target = destination(level)) {
    target->method = fileMethod(name);
  }
}

void LogMsg::setMethod(LogLevel level, LogMethod::Kind kind) {
  configureOnce();
  if (Destination* target = destination(level)) {
    target->method = std::make_shared<LogMethod>(kind);
  }
}

void LogMsg::setFileNameAll(const char* name) {
  setAll(fileMethod(name));
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
  configureOnce();
  state_->time_kind = kind;
  const bool usable = !format.empty() && format.size() <= longest_format;
  state_->time_format = usable ? format : "%Y-%m-%d %H:%M:%S";
  state_->stamp_second = -1;
}

void logLine(LogLevel level, std::string_view text, SourcePosition at) {
  logmsg.interject(level, text, at);
}
