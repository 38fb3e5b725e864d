// Writes JSON, value after value; commas and nesting are its own business.
//   json.begin_object(); json.key("size").value(10); json.end_object();
#pragma once

#include <concepts>
#include <optional>
#include <string_view>
#include <utility>

#include "kern/mox_node/lines.h"

namespace moxnode {

// Every value is followed by a comma; the one behind the last value of a list is taken back.
class JsonWriter {
 public:
  explicit JsonWriter(std::size_t expected_bytes) : text_(expected_bytes) {}

  // What was written, with a line end.
  Lines take_line() {
    text_.take_back(',');
    text_.add('\n');
    return std::move(text_);
  }

  void begin_object() { text_.add('{'); }
  void end_object() { end('}'); }
  void begin_list() { text_.add('['); }
  void end_list() { end(']'); }

  template <std::size_t size>
  JsonWriter& key(const char (&name)[size]) {
    text_.add('"', name, "\":");
    return *this;
  }

  void null() { text_.add("null,"); }
  void value(bool truth) { truth ? text_.add("true,") : text_.add("false,"); }
  void value(std::integral auto number) { text_.add(number, ','); }
  // Bytes that are no UTF-8 become "\udc80" to "\udcff", one a byte.
  void value(std::string_view text);
  void value(const char* text) { value(std::string_view(text)); }
  // A word of the program's own, which needs no escapes.
  void word(std::string_view word) { text_.add('"', word, "\","); }

  template <class T>
  void value(const std::optional<T>& known) {
    known ? value(*known) : null();
  }

 private:
  void end(char bracket) {
    text_.take_back(',');
    text_.add(bracket, ',');
  }

  Lines text_;
};

}  // namespace moxnode
