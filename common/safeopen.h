// Opens a log file for appending without being led astray: a symbolic link is followed only where
// nobody but root and the caller can have put it. Used for log and history files, whose folders
// (/var/tmp) are often open to everybody.
#pragma once

#include <string>

// A descriptor that closes on exec, of a file that is created with mode 0640 when it is missing; or
// -1 with errno: ELOOP when the path leads through a link in a folder that others can write to,
// ENXIO for a pipe without a reader.
int openForAppending(const std::string& path);
