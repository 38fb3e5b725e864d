// The texts of the error numbers (errutils/moxnumbers.h), and the SQL state of each number that has
// one of its own. Used by the formatting of a status; programs call Status::getText.
#pragma once

#include <cstdint>

// The template of a number (its low 16 bits count), or "*** Error number not in use".
const char* messageTemplate(std::int32_t number);

// The five characters of the number's SQL state; "22000" for a number without one of its own.
const char* sqlstate_lookup(std::int32_t number);
