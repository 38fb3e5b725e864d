// The error numbers of the system, one row each: MOX_NUMBERS(ROW) expands to ROW(number, name,
// text) for every one of them. Rows stand in ascending order of number. In a text, %1 to %9 are the
// text parameters of the status and %i is its OS error number. Enum and message table are made from
// here: a new number is one more row.
#pragma once

// clang-format off
#define MOX_NUMBERS(ROW)                                                                                  \
  ROW(0,     MOX_NORMAL,                "Normal successful completion")                                   \
  ROW(16,    MOX_ILLEGAL_16,            "Illegal error message")                                          \
  ROW(32,    MOX_ILLEGAL_32,            "Illegal error message")                                          \
  ROW(48,    MOX_ILLEGAL_48,            "Illegal error message")                                          \
  ROW(64,    MOX_ILLEGAL_64,            "Illegal error message")                                          \
  ROW(320,   MOX_NO_SUCH_VARIABLE,      "No variable with this name")                                     \
  ROW(336,   MOX_VALUE_OUT_OF_RANGE,    "Value \"%1\" of variable \"%2\" is not in the range %3 to %4")   \
  ROW(352,   MOX_VALUE_NOT_ALLOWED,     "Value \"%1\" of variable \"%2\" is none of: %3")                 \
  ROW(368,   MOX_VALUE_NOT_A_NUMBER,    "Value \"%1\" of variable \"%2\" is not a number")                \
  ROW(384,   MOX_VARIABLES_CONTRADICT,  "Variables \"%1\" and \"%2\" contradict each other: %3")          \
  ROW(400,   MOX_NODE_DEFINED_TWICE,    "Node %1 of \"%2\" is defined in another configuration file, too")  \
  ROW(1521,  MOX_NO_SPACE_LEFT,         "No space left on device")                                        \
  ROW(3360,  MOX_CANNOT_HAPPEN,         "It can't happen here")                                           \
  ROW(5500,  MOX_OPEN_FAILED,           "Opening file \"%1\" failed, OS status=%i")                       \
  ROW(5502,  MOX_READ_FAILED,           "Reading file \"%1\" failed, OS status=%i")                       \
  ROW(5504,  MOX_CONTROL_FAILED,        "Control operation on file \"%1\" failed, OS status=%i")          \
  ROW(5507,  MOX_FILE_OPERATION_FAILED, "Operation on file \"%1\" failed, OS status=%i")                  \
  ROW(5510,  MOX_SHM_GET_FAILED,        "Getting shared memory segment with key \"%1\" failed, OS status=%i")   \
  ROW(5511,  MOX_SHM_REMOVE_FAILED,     "Removing shared memory segment with key \"%1\" failed, OS status=%i")  \
  ROW(5512,  MOX_SHM_ATTACH_FAILED,     "Attaching shared memory segment with key \"%1\" failed, OS status=%i") \
  ROW(5513,  MOX_SHM_DETACH_FAILED,     "Detaching shared memory segment with key \"%1\" failed, OS status=%i") \
  ROW(5514,  MOX_SHM_CONTROL_FAILED,    "Operation on shared memory segment with key \"%1\" failed, OS status=%i") \
  ROW(5515,  MOX_SHM_EXISTS,            "Shared memory segment with key \"%1\" exists already")           \
  ROW(5520,  MOX_SEM_CREATE_FAILED,     "Creating semaphore with key \"%1\" failed, OS status=%i")        \
  ROW(5521,  MOX_SEM_OPERATION_FAILED,  "Operation on semaphore with key \"%1\" failed, OS status=%i")    \
  ROW(5522,  MOX_SEM_REMOVE_FAILED,     "Removing semaphore with key \"%1\" failed, OS status=%i")        \
  ROW(11618, MOX_CONFIG_SYNTAX,         "Invalid syntax in configuration file")                           \
  ROW(11640, MOX_INVALID_OPTION,        "Invalid option")
// clang-format on
