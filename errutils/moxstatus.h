// The error numbers of a status, by the names of errutils/moxnumbers.h, and its severities.
#pragma once

#include <cstdint>

#include "errutils/moxnumbers.h"

// Only the low 16 bits take part in the look-up of a text.
enum Moxstatus_e : std::int32_t {
#define MOX_ENUMERATOR(number, name, text) name = (number),
  MOX_NUMBERS(MOX_ENUMERATOR)
#undef MOX_ENUMERATOR
};

// A severity of 3 or more means that the operation failed.
enum Severity_e : std::int32_t {
  SEV_SUCCESS = 1,
  SEV_WARNING = 2,
  SEV_ERROR = 3,
  SEV_SYSTEMERR = 4,
  SEV_INTERNERR = 5,
};

// "success" to "internerr"; "(Illegal)" for any other value.
const char* getNameSeverity_e(Severity_e severity);
