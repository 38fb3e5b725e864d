// Opens a log file for appending without being led astray: a symbolic link is followed only where
// nobody but root and the caller can have put it, and in a folder that everybody may write to
// (/var/tmp) only a file of root or the caller is taken. A path below /proc/self/fd, to which
// /dev/stdout and /dev/fd lead, is the caller's own descriptor, whatever it is connected to.
#pragma once

#include <string>

// A descriptor that closes on exec, of a file that is created with mode 0640 when it is missing; or
// -1 with errno: ELOOP when the path leads through a link in a folder that others can write to,
// EACCES for somebody else's file, ENXIO for a pipe without a reader.
int openForAppending(const std::string& path);
