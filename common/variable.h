// One named configuration variable: an integer with a range, a text with an optional list of
// allowed values, or an obsolete name that accepts any value and ignores it. Defined once by
// defineVariables (common/vartable.cc); programs reach it through VarSet.
#pragma once

#include <cstdint>
#include <string>

#include "errutils/statuss.h"

class Variable {
 public:
  enum Kind { INTEGER, STRING, OBSOLETE };

  // Names and allowed lists are constant texts, not owned. allowed lists alternatives separated by
  // '|', the empty text being one where nothing stands between two; null allows any text.
  void define(const char* name, std::int32_t minimum, std::int32_t initial, std::int32_t maximum);
  void define(const char* name, const char* initial, const char* allowed);
  void define_obsolete(const char* name);

  // Set the value and mark the variable as set; an obsolete one stays as it is. Severity 4 with 336
  // (out of range), 352 (not allowed) or 368 (not a number: decimal, octal with 0, hexadecimal with
  // 0x) leaves it unchanged; null is not a number and not allowed.
  void set(const char* value, Status& status);
  void set(std::int32_t value, Status& status);
  // Back to the default, not set.
  void reset();

  const char* name() const { return name_; }
  Kind kind() const { return kind_; }
  bool isSet() const { return is_set_; }
  // The current value, which is the default until the variable is set. An integer has both forms;
  // the number of the other kinds is 0.
  std::int32_t number() const { return number_; }
  const std::string& text() const { return text_; }

  // What defines the variable, of an integer:
  std::int32_t minimum() const { return minimum_; }
  std::int32_t initialNumber() const { return initial_number_; }
  std::int32_t maximum() const { return maximum_; }
  // and of a string: the alternatives are separated by '|', null allows any text.
  const char* initialText() const { return initial_text_; }
  const char* allowed() const { return allowed_; }

 private:
  void setNumber(const char* value, Status& status);
  void setText(const char* value, Status& status);
  void take(std::int32_t number, const std::string& text);
  bool allows(const std::string& value) const;

  const char* name_ = "";
  Kind kind_ = OBSOLETE;
  bool is_set_ = false;
  std::int32_t minimum_ = 0;
  std::int32_t initial_number_ = 0;
  std::int32_t maximum_ = 0;
  std::int32_t number_ = 0;
  const char* initial_text_ = "";
  const char* allowed_ = nullptr;
  std::string text_;
};
