#include "common/variable.h"

#include <cerrno>
#include <cstdlib>
#include <limits>
#include <string_view>

namespace {

// A long value must leave room for the parameters behind it.
std::string shortened(const std::string& value) {
  constexpr std::size_t shown = 60;
  return value.size() <= shown ? value : value.substr(0, shown) + "...";
}

void refuse(Status& status, Moxstatus_e number, const std::string& value, const char* name) {
  STATUS_SET(status, SEV_SYSTEMERR, number, 0);
  addStatusParam(&status, shortened(value).c_str());
  addStatusParam(&status, name);
}

enum class Conversion { NUMBER, TOO_LARGE, NO_NUMBER };

Conversion convert(const char* text, std::int32_t& number) {
  char* end = nullptr;
  errno = 0;
  const long value = std::strtol(text, &end, 0);
  const int error = errno;
  if (end == text || *end != '\0') return Conversion::NO_NUMBER;
  if (error == ERANGE || value < std::numeric_limits<std::int32_t>::min() ||
      value > std::numeric_limits<std::int32_t>::max()) {
    return Conversion::TOO_LARGE;
  }
  number = static_cast<std::int32_t>(value);
  return Conversion::NUMBER;
}

}  // namespace

void Variable::define(const char* name, std::int32_t minimum, std::int32_t initial,
                      std::int32_t maximum) {
  name_ = name;
  kind_ = INTEGER;
  minimum_ = minimum;
  initial_number_ = initial;
  maximum_ = maximum;
  reset();
}

void Variable::define(const char* name, const char* initial, const char* allowed) {
  name_ = name;
  kind_ = STRING;
  initial_text_ = initial;
  allowed_ = allowed;
  reset();
}

void Variable::define_obsolete(const char* name) {
  name_ = name;
  kind_ = OBSOLETE;
  reset();
}

void Variable::reset() {
  take(initial_number_, kind_ == INTEGER ? std::to_string(initial_number_) : initial_text_);
  is_set_ = false;
}

void Variable::take(std::int32_t number, const std::string& text) {
  number_ = number;
  text_ = text;
  is_set_ = true;
}

void Variable::set(std::int32_t value, Status& status) {
  set(std::to_string(value).c_str(), status);
}

void Variable::set(const char* value, Status& status) {
  initStatus_s(&status);
  if (kind_ == INTEGER) setNumber(value, status);
  if (kind_ == STRING) setText(value, status);
}

void Variable::setText(const char* value, Status& status) {
  if (allows(value)) {
    take(0, value);
    return;
  }
  refuse(status, MOX_VALUE_NOT_ALLOWED, value, name_);
  addStatusParam(&status, allowed_);
}

void Variable::setNumber(const char* value, Status& status) {
  std::int32_t number = 0;
  const Conversion conversion = convert(value, number);
  if (conversion == Conversion::NO_NUMBER) {
    refuse(status, MOX_VALUE_NOT_A_NUMBER, value, name_);
  } else if (conversion == Conversion::TOO_LARGE || number < minimum_ || number > maximum_) {
    refuse(status, MOX_VALUE_OUT_OF_RANGE, value, name_);
    addStatusParam(&status, std::to_string(minimum_).c_str());
    addStatusParam(&status, std::to_string(maximum_).c_str());
  } else {
    take(number, std::to_string(number));
  }
}

bool Variable::allows(const std::string& value) const {
  if (allowed_ == nullptr) return true;
  std::string_view rest = allowed_;
  while (true) {
    const std::size_t bar = rest.find('|');
    if (rest.substr(0, bar) == value) return true;
    if (bar == std::string_view::npos) return false;
    rest.remove_prefix(bar + 1);
  }
}
