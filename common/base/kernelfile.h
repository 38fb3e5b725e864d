// What the kernel tells in text below /proc and /sys: settings, figures of memory, tables.
//   if (const auto text = readKernelFile("/proc/swaps")) {
//     for (std::string_view rest = *text; !rest.empty();) ... takeLine(rest) ...
//   }
#pragma once

#include <charconv>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// The whole file. Nothing, with errno, when it cannot be opened or read to its end.
std::optional<std::string> readKernelFile(const std::string& path);

// A setting by its path below /proc/sys, such as "kernel/shmmni", without the line end.
std::optional<std::string> kernelSetting(const std::string& name);

// A figure of /proc/meminfo in kB, such as that of "CommitLimit".
std::optional<std::uint64_t> memoryFigure(std::string_view name);

// The first line without its end, which is cut off the text.
std::string_view takeLine(std::string_view& text);

// The first word, which is cut off the text with the blanks in front of it; empty when there is
// none.
std::string_view takeWord(std::string_view& text);

// The first word as a number. Nothing when there is no word, or it is none that the type can hold.
template <class Number>
std::optional<Number> takeNumber(std::string_view& text, int base = 10) {
  const std::string_view word = takeWord(text);
  Number number{};
  const auto [rest, error] = std::from_chars(word.data(), word.data() + word.size(), number, base);
  if (error != std::errc() || rest != word.data() + word.size()) return std::nullopt;
  return number;
}
