// Reads the fields of one line the way a scanf pattern does and counts them, but takes nothing by
// halves: a word or text that is longer than its place, a number that 32 bits do not hold or that
// runs into other characters makes the reader fail. Used for the lines of configuration files.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

class FieldReader {
 public:
  // damaged: the line is known to be longer than its text; the reader never becomes ok then. The
  // text outlives the reader.
  FieldReader(std::string_view text, bool damaged) : rest_(text), failed_(damaged) {}

  // One step each; after a failing step the others do nothing.
  FieldReader& literal(std::string_view text);  // does not count as a field
  FieldReader& blanks();
  FieldReader& number(std::int32_t& field);  // decimal, octal with 0, hexadecimal with 0x
  FieldReader& word(std::size_t longest, std::string& field);
  FieldReader& text(std::size_t longest, std::string& field);  // up to the end of the line

  int count() const { return count_; }
  bool ok() const { return !failed_ && !stopped_; }

 private:
  FieldReader& stop();
  FieldReader& take(std::size_t length, std::size_t longest, std::string& field);

  std::string_view rest_;
  int count_ = 0;
  bool failed_;
  bool stopped_ = false;
};
