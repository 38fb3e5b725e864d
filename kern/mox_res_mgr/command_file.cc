#include "kern/mox_res_mgr/command_file.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <limits>

#include "common/base/descriptor.h"
#include "common/base/printable.h"
#include "kern/device/devicefile.h"
#include "kern/mox_res_mgr/lexer.h"
#include "kern/mox_res_mgr/report.h"

namespace resmgr {

namespace {

constexpr std::uint64_t most_of_a_file = std::numeric_limits<std::uint32_t>::max();
constexpr std::uint64_t most_of_a_pipe = 128 << 20;  // its size is not known before it is read

bool refuse(const char* name, Moxstatus_e number, int os_error,
            SourcePosition at = SourcePosition::here()) {
  stat.set(SEV_SYSTEMERR, number, os_error, {name}, at);
  emit_korv_error(at);
  return false;
}

// A FIFO that was opened with O_NONBLOCK reads as empty until a writer has opened it, which a
// script may just be about to do. From here on reads block.
bool settle(int file, bool is_pipe) {
  constexpr int patience = 2000;  // ms
  pollfd to_read{file, POLLIN, 0};
  if (is_pipe && poll(&to_read, 1, patience) < 0) return false;
  const int flags = fcntl(file, F_GETFL);
  return flags >= 0 && fcntl(file, F_SETFL, flags & ~O_NONBLOCK) == 0;
}

}  // namespace

bool command_file::read_text(const char* name, int file) {
  int os_error = 0;
  const std::int64_t size = mox_file_size(name, os_error);
  if (size < 0) return refuse(name, MOX_CONTROL_FAILED, os_error);
  struct stat status {};
  if (fstat(file, &status) != 0) return refuse(name, MOX_CONTROL_FAILED, errno);
  const bool is_file = S_ISREG(status.st_mode);
  const std::uint64_t most = is_file ? most_of_a_file : most_of_a_pipe;
  if (static_cast<std::uint64_t>(size) > most) return refuse(name, MOX_READ_FAILED, EFBIG);
  if (!settle(file, S_ISFIFO(status.st_mode))) return refuse(name, MOX_READ_FAILED, errno);

  char chunk[1 << 16];
  while (true) {
    const ssize_t count = ::read(file, chunk, sizeof chunk);
    if (count < 0) return refuse(name, MOX_READ_FAILED, errno);
    if (count == 0) break;
    // The words are zero-terminated, so what follows a zero byte would silently be dropped. Checked
    // for each chunk: a sparse file of 4 GiB is refused before it fills the memory.
    if (std::memchr(chunk, '\0', static_cast<std::size_t>(count)) != nullptr) {
      say("Error: command file %s holds a zero byte\n", printable(name).c_str());
      return false;
    }
    text_.append(chunk, static_cast<std::size_t>(count));
    if (text_.size() > most) return refuse(name, MOX_READ_FAILED, EFBIG);
  }
  if (is_file && text_.size() != static_cast<std::size_t>(size)) {
    return refuse(name, MOX_READ_FAILED, 0);  // it changed meanwhile
  }
  return true;
}

void command_file::cut_into_words() {
  const auto end = text_.end();
  for (auto at = text_.begin(); at != end;) {
    const auto word_end = std::find_if(at, end, is_space);
    if (word_end != at) words_.push_back(&*at);
    at = word_end;
    if (at == end) break;
    if (*at == '\n') line_ends_.push_back(static_cast<std::size_t>(at - text_.begin()));
    *at++ = '\0';
  }
}

bool command_file::read(const char* name) {
  const Descriptor file(open(name, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  if (!file) return refuse(name, MOX_OPEN_FAILED, errno);
  if (!read_text(name, file.get())) return false;
  cut_into_words();
  return true;
}

std::string command_file::place(std::size_t position) const {
  std::size_t at = text_.size();
  for (const char* const word : words_) {
    const std::size_t length = 1 + std::strlen(word);
    if (position < length) {
      at = static_cast<std::size_t>(word - text_.data()) + position - 1;
      break;
    }
    position -= length;
  }
  const auto line_end = std::lower_bound(line_ends_.begin(), line_ends_.end(), at);
  const std::size_t line_start = line_end == line_ends_.begin() ? 0 : *std::prev(line_end) + 1;
  return "line " + std::to_string(line_end - line_ends_.begin() + 1) + ", column " +
         std::to_string(at - line_start + 1);
}

}  // namespace resmgr
