// What stands at a device path, how much space there is for a device, and how much a device needs.
// A regular file finds the free space of its file system, a character or block device brings its
// own.
#pragma once

#include <cstdint>
#include <string>

// One look at a path.
struct Place {
  enum class Trouble {
    NONE,
    NO_STATUS,      // the path, or the folder that a missing file would lie in, cannot be looked at
    UNUSABLE_KIND,  // neither a regular file nor a character or block device
    NO_SPACE,       // statvfs failed
  };

  Trouble trouble = Trouble::NONE;
  int error = 0;  // the errno of the trouble
  bool exists = false;
  std::uint32_t device = 0;  // the file system that holds the path or the folder
  std::uint64_t space = 0;   // bytes free to all users, or the size of a character or block device
  std::uint64_t held = 0;    // bytes in an existing regular file
};

Place look_at(const std::string& path);

// Looks at an existing path, or at the folder in which a missing one would be created (`exists`
// false). `device` identifies the file system that holds the path, `space` is in bytes. False, with
// the errno in `error`, when that cannot be told; with error 0 for an empty path.
bool device_info(const std::string& path, std::uint32_t& device, bool& exists, std::uint64_t& space,
                 int& error);

// Where the file system is mounted that holds an existing path or the folder of a missing one, as
// far as that can be told.
std::string file_system_of(const std::string& path);

// The size of a character or block device in bytes, found by reading whole units of 1024 bytes; 0
// when it cannot be opened. Devices without an end yield 2^62.
std::int64_t findsize(const std::string& path);

// Bytes on disk of a device that holds the payload: whole blocks of 4096 bytes, header and bitmap.
std::uint64_t mox_phys_space(std::uint64_t payload);
