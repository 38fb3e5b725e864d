#include "kern/mox_res_mgr/phys_device.h"

#include <algorithm>
#include <deque>

namespace resmgr {

bool phys_device::reserve(std::uint64_t need, std::uint64_t free_now) {
  free = free_now;
  if (reserved + need < reserved || reserved + need > free) return false;
  reserved += need;
  return true;
}

phys_device& phys_devices(std::uint32_t device) {
  static std::deque<phys_device> table;
  const auto entry = std::find_if(table.begin(), table.end(),
                                  [&](const phys_device& known) { return known.device == device; });
  return entry != table.end() ? *entry : table.emplace_back(phys_device{device});
}

}  // namespace resmgr
