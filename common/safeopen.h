// Opens a log file for appending, safe against other users: a symbolic link is followed only in a
// folder that nobody but root and the caller can write to, and in a folder that everybody can write
// to (/var/tmp) a file is opened only if it belongs to root or the caller. A path below
// /proc/self/fd, to which /dev/stdout and /dev/fd lead, is the caller's own descriptor, whatever it
// is connected to.
#pragma once

#include <string>

// A descriptor that closes on exec, of a file that is created with mode 0640 when it is missing; or
// -1 with errno: ELOOP when the path leads through a link in a folder that others can write to,
// EACCES for somebody else's file, ENXIO for a pipe without a reader.
int openForAppending(const std::string& path);
