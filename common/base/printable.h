// Text from outside (a path, a header on a device, the environment) made safe to print: a line
// end in it could forge lines of a report or of the log, an escape sequence could repaint the
// terminal. Printable text, UTF-8 included, stays as it is.
#pragma once

#include <string>
#include <string_view>

// Control characters and bytes that are no UTF-8 become "\n", "\t", "\r" or "\x1b".
std::string printable(std::string_view text);

// The length in bytes of the UTF-8 sequence at the start of `text`; 0: there is none.
std::size_t utf8Length(std::string_view text);
