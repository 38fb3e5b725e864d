// How much space there is for a device at a path, and how much a device needs. A regular file finds
// the free space of its file system, a character or block device brings its own.
#pragma once

#include <cstdint>
#include <string>

// Looks at an existing path, or at the folder in which a missing one would be created (`exists`
// false). `device` identifies the file system that holds the path, `space` is in bytes. False, with
// the errno in `error`, when that cannot be told; with error 0 for an empty path.
bool device_info(const std::string& path, std::uint32_t& device, bool& exists, std::uint64_t& space,
                 int& error);

// Whether `need` bytes fit at the path; what an existing regular file holds counts as free. True at
// once when verifying. Ends the process with status 1 when the space cannot be told.
bool has_space(const std::string& path, std::uint64_t need);

// The size of a character or block device in bytes, found by reading whole units of 1024 bytes; 0
// when it cannot be opened. Devices without an end yield 2^62.
std::int64_t findsize(const std::string& path);

// Bytes on disk of a device that holds the payload: whole blocks of 4096 bytes, header and bitmap.
std::uint64_t mox_phys_space(std::uint64_t payload);
