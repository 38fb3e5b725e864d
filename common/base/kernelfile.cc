#include "common/base/kernelfile.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>

#include "common/base/descriptor.h"

namespace {

constexpr std::string_view blanks = " \t\n";

}  // namespace

std::optional<std::string> readKernelFile(const std::string& path) {
  const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file) return std::nullopt;
  std::string text;
  // A table holds together only as far as one call of read tells it.
  char part[1 << 16];
  while (true) {
    const ssize_t count = read(file.get(), part, sizeof part);
    if (count < 0) return std::nullopt;
    if (count == 0) return text;
    text.append(part, static_cast<std::size_t>(count));
  }
}

std::optional<std::string> kernelSetting(const std::string& name) {
  std::optional<std::string> text = readKernelFile("/proc/sys/" + name);
  if (text && text->ends_with('\n')) text->pop_back();
  return text;
}

std::optional<std::uint64_t> memoryFigure(std::string_view name) {
  const std::optional<std::string> text = readKernelFile("/proc/meminfo");
  if (!text) return std::nullopt;
  for (std::string_view rest = *text; !rest.empty();) {
    std::string_view line = takeLine(rest);
    const std::string_view word = takeWord(line);
    if (word.ends_with(':') && word.substr(0, word.size() - 1) == name) {
      return takeNumber<std::uint64_t>(line);
    }
  }
  return std::nullopt;
}

std::string_view takeLine(std::string_view& text) {
  const std::size_t end = std::min(text.find('\n'), text.size());
  const std::string_view line = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  return line;
}

std::string_view takeWord(std::string_view& text) {
  text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
  const std::string_view word = text.substr(0, text.find_first_of(blanks));
  text.remove_prefix(word.size());
  return word;
}
