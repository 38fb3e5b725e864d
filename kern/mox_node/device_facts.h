// What stands at the path of a device. Only the bytes of headers are read, never is anything opened
// for writing, and never is a folder, FIFO or socket opened at all.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>

namespace moxnode {

enum class DeviceState { ABSENT, BLANK, INITIALISED, OTHER, UNUSABLE, UNKNOWN };
const char* name_of(DeviceState state);

// What the header of an initialised device tells; text from a stranger.
struct DeviceHeader {
  std::int32_t number = 0;
  bool is_data = true;
  std::uint16_t block_size = 0;  // bytes
  std::int32_t created = 0;      // seconds since 1970
  std::string name;
};

struct DeviceFacts {
  DeviceState state = DeviceState::UNKNOWN;
  int error = 0;                       // why it is unknown; 0: no path was given
  const char* kind = nullptr;          // "file", "block", ...; null: not known, or nothing there
  std::optional<std::uint64_t> bytes;  // of files and block devices
  std::optional<DeviceHeader> header;  // of initialised ones
  // Of what is there:
  dev_t device = 0;        // the file system that it lies on
  ino_t inode = 0;         //
  dev_t block_device = 0;  // of block devices
};

DeviceFacts look_at_device(const std::string& path);

}  // namespace moxnode
