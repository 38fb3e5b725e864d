// Writes JSON into a string, value after value; commas and nesting are its own business.
//   json.begin_object(); json.key("size").value(10); json.end_object();
#pragma once

#include <concepts>
#include <optional>
#include <string>
#include <string_view>

#include "kern/mox_node/lines.h"

namespace moxnode {

class JsonWriter {
 public:
  explicit JsonWriter(std::size_t expected_bytes) : text_(expected_bytes) {}

  // What was written, with a line end.
  std::string take_line() {
    text_ << '\n';
    return text_.take();
  }

  void begin_object() { begin('{'); }
  void end_object() { end('}'); }
  void begin_list() { begin('['); }
  void end_list() { end(']'); }

  JsonWriter& key(std::string_view name) {
    separate();
    text_ << '"' << name << "\":";
    first_ = true;  // no comma between a key and its value
    return *this;
  }

  void null() { literal("null"); }
  void value(bool truth) { literal(truth ? "true" : "false"); }
  void value(std::integral auto number) {
    separate();
    text_ << number;
  }
  // Bytes that are no UTF-8 become "\udc80" to "\udcff", one a byte.
  void value(std::string_view text);
  void value(const char* text) { value(std::string_view(text)); }

  template <class T>
  void value(const std::optional<T>& known) {
    known ? value(*known) : null();
  }

 private:
  void begin(char bracket) {
    separate();
    text_ << bracket;
    first_ = true;
  }
  void end(char bracket) {
    text_ << bracket;
    first_ = false;
  }
  void literal(std::string_view word) {
    separate();
    text_ << word;
  }
  void separate() {
    if (!first_) text_ << ',';
    first_ = false;
  }

  Lines text_;
  bool first_ = true;
};

}  // namespace moxnode
