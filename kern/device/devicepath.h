// Where a device path really leads: symbolic links and the folder that a new file will lie in.
#pragma once

#include <string>

// Follows the symbolic links at the end of the path to a final target, which need not exist; a
// relative link starts in the folder that it stands in. `error` is 0, or the errno (ELOOP for links
// in a ring) that stopped the search, and the result is then the path that it stopped at.
std::string resolve_symlink(const std::string& path, int& error);

// The folder part of a path: "." without a slash, "/" for the root; slashes at the end do not
// count.
std::string get_dirname(const std::string& path);
