// The account of space of each physical device that the devices of a run lie on.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace resmgr {

struct phys_device {
  std::uint32_t device;              // as the status of a file names it
  std::uint64_t free = 0;            // bytes, as last looked at
  std::uint64_t reserved = 0;        // bytes that this run has given away
  std::vector<std::string> paths{};  // to which it gave them

  // Reserves `need` bytes out of the `free_now` that the physical device has; false, and nothing
  // reserved, when they do not fit beside what is reserved already.
  bool reserve(std::uint64_t need, std::uint64_t free_now);
};

// The account of that device, a new one when there is none yet.
phys_device& phys_devices(std::uint32_t device);

}  // namespace resmgr
