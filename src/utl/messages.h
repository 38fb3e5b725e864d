// The message table: the text template of each error number, with the placeholders %1 to %9 (text
// parameters) and %i (the OS error number), and the SQL state of each number that has one of its
// own. Used by the status formatting; programs call Status::getText.
#pragma once

#include <cstdint>

// Binds the built-in table into message set 0. Runs once, before main; later calls do nothing.
void Status_utlInitMessages();

// The template of a number (its low 16 bits count), or "*** Error number not in use".
const char* message_template(std::int32_t number);

// The five characters of the number's SQL state; "22000" for a number without one of its own.
const char* sqlstate_lookup(std::int32_t number);
