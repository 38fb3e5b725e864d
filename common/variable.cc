#include "common/variable.h"

#include <string_view>

#include "common/base/number.h"

namespace {

// The parameters of a status share 256 bytes: a long value would push out those after it.
std::string shortened(const char* text) {
  if (text == nullptr) return "(null)";
  constexpr std::size_t shown = 60;
  const std::string value = text;
  return value.size() <= shown ? value : value.substr(0, shown) + "...";
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
  if (value != nullptr && allows(value)) return take(0, value);
  status.set(SEV_SYSTEMERR, MOX_VALUE_NOT_ALLOWED, 0,
             {shortened(value), name_, allowed_ != nullptr ? allowed_ : "any text"});
}

void Variable::setNumber(const char* value, Status& status) {
  const auto number = readNumber(value);
  if (!number || !number->isWhole()) {
    status.set(SEV_SYSTEMERR, MOX_VALUE_NOT_A_NUMBER, 0, {shortened(value), name_});
  } else if (!number->isWithin(minimum_, maximum_)) {
    status.set(SEV_SYSTEMERR, MOX_VALUE_OUT_OF_RANGE, 0,
               {shortened(value), name_, minimum_, maximum_});
  } else {
    take(static_cast<std::int32_t>(number->value), std::to_string(number->value));
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
