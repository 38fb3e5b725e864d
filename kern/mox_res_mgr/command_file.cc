#include "kern/mox_res_mgr/command_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <limits>

#include "kern/device/devicefile.h"
#include "kern/mox_res_mgr/report.h"

namespace resmgr {

namespace {

bool refuse(const char* name, Moxstatus_e number, int os_error,
            SourcePosition at = SourcePosition::here()) {
  stat.set(SEV_SYSTEMERR, number, os_error, {name}, at);
  emit_korv_error(at);
  return false;
}

bool read_text(const char* name, int file, std::string& text) {
  int os_error = 0;
  const std::int64_t size = mox_file_size(name, os_error);
  if (size < 0) return refuse(name, MOX_CONTROL_FAILED, os_error);
  if (size > std::numeric_limits<std::uint32_t>::max()) {
    return refuse(name, MOX_READ_FAILED, EFBIG);
  }
  text.resize(static_cast<std::size_t>(size));
  errno = 0;
  const ssize_t count = ::read(file, text.data(), text.size());
  if (count != size) return refuse(name, MOX_READ_FAILED, errno);
  // The words behind a zero byte would be lost without a word.
  if (text.find('\0') != std::string::npos) {
    say("Error: command file %s holds a zero byte\n", name);
    return false;
  }
  return true;
}

}  // namespace

bool command_file::read(const char* name) {
  // Without O_NONBLOCK, a FIFO would wait for somebody to open its other end.
  const int file = open(name, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (file < 0) return refuse(name, MOX_OPEN_FAILED, errno);
  const bool good = read_text(name, file, text_);
  close(file);
  if (!good) return false;
  words_.reserve(text_.size() / 2 + 1);
  constexpr const char* separators = " \n\r\t";
  for (char* word = std::strtok(text_.data(), separators); word != nullptr;
       word = std::strtok(nullptr, separators)) {
    words_.push_back(word);
  }
  return true;
}

}  // namespace resmgr
