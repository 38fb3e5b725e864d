#include "common/fieldreader.h"

#include <algorithm>

#include "common/base/number.h"

namespace {

constexpr std::string_view white_space = " \t\n\v\f\r";

}  // namespace

FieldReader& FieldReader::stop() {
  stopped_ = true;
  return *this;
}

FieldReader& FieldReader::literal(std::string_view text) {
  if (stopped_) return *this;
  if (!rest_.starts_with(text)) return stop();
  rest_.remove_prefix(text.size());
  return *this;
}

FieldReader& FieldReader::blanks() {
  rest_.remove_prefix(std::min(rest_.find_first_not_of(white_space), rest_.size()));
  return *this;
}

FieldReader& FieldReader::number(std::int32_t& field) {
  if (stopped_) return *this;
  blanks();
  const std::string digits(rest_.substr(0, rest_.find_first_of(" \t\n\v\f\r\"")));
  const auto number = readNumber(digits.c_str());
  if (!number || !number->isWhole() || !number->isWithin(INT32_MIN, INT32_MAX)) return stop();
  field = static_cast<std::int32_t>(number->value);
  rest_.remove_prefix(digits.size());
  ++count_;
  return *this;
}

FieldReader& FieldReader::word(std::size_t longest, std::string& field) {
  if (stopped_) return *this;
  blanks();
  return take(std::min(rest_.find_first_of(white_space), rest_.size()), longest, field);
}

FieldReader& FieldReader::text(std::size_t longest, std::string& field) {
  if (stopped_) return *this;
  blanks();
  const std::size_t length = std::min(rest_.find_first_of("\r\n"), rest_.size());
  if (rest_.find_first_not_of("\r\n", length) != std::string_view::npos) failed_ = true;
  return take(length, longest, field);
}

// A field that is too long counts, as it would for scanf, but is the last one.
FieldReader& FieldReader::take(std::size_t length, std::size_t longest, std::string& field) {
  if (length == 0) return stop();
  field = rest_.substr(0, std::min(length, longest));
  rest_.remove_prefix(length);
  ++count_;
  return length > longest ? stop() : *this;
}
