#include "common/scanconf.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <set>
#include <thread>

#include "common/base/descriptor.h"
#include "common/base/printable.h"
#include "common/fieldreader.h"
#include "common/logger.h"
#include "common/variables.h"

namespace {

constexpr int open_attempts = 10;
constexpr int read_attempts = 6;
constexpr std::size_t longest_line = 4096;  // more than any pattern takes
constexpr std::size_t largest_file = 128U << 20;
constexpr std::size_t short_word = 99;
constexpr std::size_t host_name = 199;
constexpr std::size_t long_text = 1023;

void logFailure(const char* activity, const char* path, const char* function, int os_error) {
  logLine(LEVEL_WRN, activity + printable(path) + ", " + function + "() failed,Unix errno=" +
                         std::to_string(os_error) + ": " + std::strerror(os_error));
}

struct Line {
  std::string text;
  bool damaged;  // longer than its text, or broken by a NUL byte
};

// The lines of one open file.
class LineSource {
 public:
  explicit LineSource(std::FILE* file) : file_(file) {}

  // False at the end of the file, and after a failure.
  bool next(Line& line) {
    line.text.clear();
    line.damaged = false;
    int c = 0;
    while ((c = getc_unlocked(file_)) != EOF && c != '\n') {
      if (++size_ > largest_file) return fail(EFBIG);
      if (c == '\0' || line.text.size() == longest_line) line.damaged = true;
      if (!line.damaged) line.text += static_cast<char>(c);
    }
    if (c == EOF && std::ferror(file_) != 0) return fail(errno);
    return c != EOF || !line.text.empty() || line.damaged;
  }

  int osError() const { return os_error_; }

 private:
  bool fail(int os_error) {
    os_error_ = os_error;
    return false;
  }

  std::FILE* file_;
  std::size_t size_ = 0;
  int os_error_ = 0;
};

// What the lines of one file do.
class LineHandler {
 public:
  LineHandler(ConfigRecord& record, VarSet& variables, Status& status)
      : record_(record), variables_(variables), status_(status) {}

  void handle(const Line& line) {
    ++number_;
    std::string keyword;
    FieldReader(line.text, false).word(20, keyword);
    if (keyword.empty() && !line.damaged) return;
    for (const Keyword& known : keywords) {
      if (keyword == known.name) return (this->*known.handle)(fields(known.name, line));
    }
    std::fprintf(stderr, "Illegal keyword in config. file at line %d. Line ignored.\n", number_);
  }

 private:
  struct Keyword {
    const char* name;
    void (LineHandler::*handle)(FieldReader fields);
  };
  static const Keyword keywords[6];

  static FieldReader fields(const char* keyword, const Line& line) {
    FieldReader reader(line.text, line.damaged);
    reader.literal(keyword).blanks();
    return reader;
  }

  void illegal(const FieldReader& fields, const char* keyword) const {
    std::fprintf(stderr,
                 "Illegal param.s (%d) after '%s' in config. file at line %d. Line ignored.\n",
                 fields.count(), keyword, number_);
  }

  void unterminated(const char* what) const {
    std::fprintf(stderr, "%s line not terminated by \" in config. file at line %d. Line ignored.\n",
                 what, number_);
  }

  // Takes the closing quote off; false when there is none.
  static bool unquote(std::string& text) {
    text.erase(text.find_last_not_of(" \t") + 1);
    if (!text.ends_with('"')) return false;
    text.pop_back();
    return true;
  }

  void process(FieldReader fields) {
    ConfigRecord::Process line{};
    fields.word(short_word, line.name).number(line.node).number(line.kind).blanks();
    fields.literal("\"").text(long_text, line.command);
    if (fields.count() < 4) return illegal(fields, "process");
    if (!fields.ok() || !unquote(line.command)) return unterminated("Process");
    record_.processes.push_back(line);
  }

  void node(FieldReader fields) {
    ConfigRecord::Node line{};
    fields.number(line.number).number(line.unit).word(host_name, line.host).number(line.port);
    fields.word(short_word, line.site).text(long_text, line.text);
    if (!fields.ok()) return illegal(fields, "node");
    if (!node_numbers_.insert(line.number).second) {
      return logLine(LEVEL_WRN, "SH: Node allready entered!");
    }
    record_.nodes.push_back(line);
  }

  void dunit(FieldReader fields) {
    ConfigRecord::DataUnit line{};
    fields.word(short_word, line.name).number(line.number).number(line.kind);
    fields.text(long_text, line.text);
    if (!fields.ok()) return illegal(fields, "dunit");
    record_.dunits.push_back(line);
  }

  void site(FieldReader fields) {
    ConfigRecord::Site line{};
    fields.word(short_word, line.name).number(line.number).text(long_text, line.text);
    if (!fields.ok()) return illegal(fields, "site");
    record_.sites.push_back(line);
  }

  void debug(FieldReader fields) {
    ConfigRecord::Debug line{};
    fields.number(line.mask).text(long_text, line.text);
    if (!fields.ok()) return illegal(fields, "debug");
    record_.debugs.push_back(line);
  }

  void set(FieldReader fields) {
    std::string name;
    std::string value;
    fields.word(short_word, name).text(long_text, value);
    if (fields.count() < 2) return illegal(fields, "set");
    if (!fields.ok() || !unquote(value) || !value.starts_with('"')) return unterminated("Set");
    Status result;
    variables_.set(name.c_str(), value.c_str() + 1, result);
    if (!result.failed()) return;
    logLine(LEVEL_WRN, "Config. file line " + std::to_string(number_) + ": " + result.getText());
    if (!status_.failed()) status_ = result;
  }

  ConfigRecord& record_;
  VarSet& variables_;
  Status& status_;
  int number_ = 0;
  std::set<std::int32_t> node_numbers_;
};

const LineHandler::Keyword LineHandler::keywords[6] = {
    {"process", &LineHandler::process}, {"node", &LineHandler::node},
    {"dunit", &LineHandler::dunit},     {"site", &LineHandler::site},
    {"set", &LineHandler::set},         {"debug", &LineHandler::debug},
};

// Whether a pipe, opened with O_NONBLOCK, seems to be empty only because nobody has opened
// it for writing yet: with O_NONBLOCK, a read of such a pipe returns 0 at once.
bool awaitsWriter(std::FILE* pipe) {
  const int first = std::getc(pipe);
  if (first != EOF) std::ungetc(first, pipe);
  const bool has_writer = std::ferror(pipe) != 0;  // a read that would have to wait
  std::clearerr(pipe);
  pollfd ended{fileno(pipe), POLLIN, 0};
  return first == EOF && !has_writer && poll(&ended, 1, 0) == 0;
}

// The open itself never waits; reads of a pipe that has a writer do.
std::FILE* openWithoutWaiting(const char* path) {
  Descriptor fd(::open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  struct stat info {};
  if (!fd || fstat(fd.get(), &info) != 0) return nullptr;
  std::FILE* file = fdopen(fd.get(), "r");
  if (file == nullptr) return nullptr;
  static_cast<void>(fd.release());
  const bool no_writer = S_ISFIFO(info.st_mode) && awaitsWriter(file);
  if (!no_writer && fcntl(fileno(file), F_SETFL, 0) == 0) return file;
  const int error = no_writer ? ENXIO : errno;
  std::fclose(file);
  errno = error;
  return nullptr;
}

std::FILE* openFile(const char* path, Status& status, const std::function<void()>& pause) {
  for (int attempt = 1;; ++attempt) {
    std::FILE* file = openWithoutWaiting(path);
    const int error = errno;
    if (file != nullptr) return file;
    logLine(LEVEL_INF, "tried to open:" + printable(path));
    if (attempt == open_attempts) {
      status.set(SEV_SYSTEMERR, MOX_OPEN_FAILED, error, {path});
      return nullptr;
    }
    pause();
  }
}

void closeFile(std::FILE* file, const char* path) {
  if (std::fclose(file) == 0) return;
  const int error = errno;
  logFailure("error closing:", path, "fclose", error);
}

// 0, or the OS error that ended the reading.
int readLines(std::FILE* file, ConfigRecord& record, VarSet& variables, Status& status) {
  LineSource source(file);
  LineHandler handler(record, variables, status);
  Line line;
  while (source.next(line)) handler.handle(line);
  return source.osError();
}

template <typename Row>
void append(std::vector<Row>& rows, const std::vector<Row>& more) {
  rows.insert(rows.end(), more.begin(), more.end());
}

// Null, or the node of `more` that `record` has already.
const ConfigRecord::Node* nodeInBoth(const ConfigRecord& record, const ConfigRecord& more) {
  std::set<std::int32_t> known;
  for (const ConfigRecord::Node& node : record.nodes) known.insert(node.number);
  for (const ConfigRecord::Node& node : more.nodes) {
    if (known.contains(node.number)) return &node;
  }
  return nullptr;
}

void merge(const char* path, const ConfigRecord& more, const VarSet& changed, ConfigRecord& record,
           VarSet& variables, Status& status) {
  if (const ConfigRecord::Node* twice = nodeInBoth(record, more)) {
    return status.set(SEV_SYSTEMERR, MOX_NODE_DEFINED_TWICE, 0, {twice->number, path});
  }
  append(record.processes, more.processes);
  append(record.nodes, more.nodes);
  append(record.dunits, more.dunits);
  append(record.sites, more.sites);
  append(record.debugs, more.debugs);
  variables = changed;
}

}  // namespace

void sleepOneSecond() {
  std::this_thread::sleep_for(std::chrono::seconds(1));
}

void scanConf(const char* path, ConfigRecord& record, Status& status,
              const std::function<void()>& pause) {
  record = ConfigRecord();
  addConf(path, record, VarSet::instance(), status, pause);
}

void addConf(const char* path, ConfigRecord& record, VarSet& variables, Status& status,
             const std::function<void()>& pause) {
  for (int attempt = 1;; ++attempt) {
    initStatus_s(&status);
    std::FILE* file = openFile(path, status, pause);
    if (file == nullptr) return;
    ConfigRecord more;
    VarSet changed = variables;
    const int error = readLines(file, more, changed, status);
    if (error != 0) logFailure("error reading:", path, "fgets", error);
    closeFile(file, path);
    if (error == 0) return merge(path, more, changed, record, variables, status);
    if (attempt == read_attempts || error == EFBIG) {
      return status.set(SEV_SYSTEMERR, MOX_READ_FAILED, error, {path});
    }
    logLine(LEVEL_INF, "trying to re-open cfg file");
  }
}
