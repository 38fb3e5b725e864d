// Puts lines of text together. Numbers go straight into the text: a report of many nodes is written
// as fast as the kernel answers.
//   lines << "node-" << 7 << '\n';
#pragma once

#include <charconv>
#include <concepts>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace moxnode {

class Lines {
 public:
  explicit Lines(std::size_t expected_bytes) { text_.reserve(expected_bytes); }

  Lines& operator<<(std::string_view text) {
    text_.append(text);
    return *this;
  }
  Lines& operator<<(char character) {
    text_ += character;
    return *this;
  }
  template <std::integral Number>
  requires(!std::same_as<Number, char> && !std::same_as<Number, bool>) Lines& operator<<(
      Number number) {
    char digits[24];
    text_.append(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
    return *this;
  }

  std::string take() { return std::move(text_); }

 private:
  std::string text_;
};

}  // namespace moxnode
