// The error numbers of the system that this source sets, and the severities of a status. The texts
// stand in src/utl/messages.cc, in the same order. To add a number: add it here and its text there.
#pragma once

#include <cstdint>

// Only the low 16 bits take part in the look-up of a text.
enum Moxstatus_e : std::int32_t {
  MOX_NORMAL = 0,
  MOX_NO_SUCH_VARIABLE = 320,      // the name
  MOX_VALUE_OUT_OF_RANGE = 336,    // value, name, minimum, maximum
  MOX_VALUE_NOT_ALLOWED = 352,     // value, name, allowed values
  MOX_VALUE_NOT_A_NUMBER = 368,    // value, name
  MOX_VARIABLES_CONTRADICT = 384,  // name, name, what must hold
  MOX_NO_SPACE_LEFT = 1521,
  MOX_CANNOT_HAPPEN = 3360,
  MOX_OPEN_FAILED = 5500,            // file name
  MOX_READ_FAILED = 5502,            // file name
  MOX_CONTROL_FAILED = 5504,         // file name
  MOX_FILE_OPERATION_FAILED = 5507,  // file name
  MOX_SHM_GET_FAILED = 5510,         // key
  MOX_SHM_REMOVE_FAILED = 5511,      // key or identifier
  MOX_SHM_ATTACH_FAILED = 5512,      // key
  MOX_SHM_DETACH_FAILED = 5513,      // key
  MOX_SHM_CONTROL_FAILED = 5514,     // key or identifier
  MOX_SHM_EXISTS = 5515,             // key
  MOX_SEM_CREATE_FAILED = 5520,      // key
  MOX_SEM_OPERATION_FAILED = 5521,   // key
  MOX_SEM_REMOVE_FAILED = 5522,      // key
  MOX_CONFIG_SYNTAX = 11618,
  MOX_INVALID_OPTION = 11640,
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
