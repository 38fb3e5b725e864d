// What a run of the initialiser asks of the path that it was given, before it writes there. What
// cannot be told ends the run in an error.
#pragma once

#include <cstdint>
#include <string>

// True for a character or block device.
bool is_device(const std::string& path);

// Whether `need` bytes fit at the path; what an existing regular file holds counts as free. True at
// once when verifying.
bool has_space(const std::string& path, std::uint64_t need);
