// Puts lines of text together, as fast as the kernel answers about the nodes that they tell of.
//   lines << "node-" << 7 << '\n';
#pragma once

#include <charconv>
#include <concepts>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

namespace moxnode {

class Lines {
 public:
  explicit Lines(std::size_t expected_bytes) { text_.reserve(expected_bytes); }

  Lines& operator<<(std::string_view text) {
    if (text.size() > sizeof piece_) {
      flush();
      text_.append(text);
    } else {
      std::memcpy(room_for(text.size()), text.data(), text.size());
      used_ += text.size();
    }
    return *this;
  }
  Lines& operator<<(char character) {
    *room_for(1) = character;
    ++used_;
    return *this;
  }
  template <std::integral Number>
  requires(!std::same_as<Number, char> && !std::same_as<Number, bool>) Lines& operator<<(
      Number number) {
    constexpr std::size_t most_digits = 24;
    char* const digits = room_for(most_digits);
    used_ +=
        static_cast<std::size_t>(std::to_chars(digits, digits + most_digits, number).ptr - digits);
    return *this;
  }

  std::string take() {
    flush();
    return std::move(text_);
  }

 private:
  char* room_for(std::size_t bytes) {
    if (bytes > sizeof piece_ - used_) flush();
    return piece_ + used_;
  }
  void flush() {
    text_.append(piece_, used_);
    used_ = 0;
  }

  std::string text_;
  // What follows text_ is gathered here: a string takes longer to append every few bytes.
  char piece_[512];
  std::size_t used_ = 0;
};

}  // namespace moxnode
