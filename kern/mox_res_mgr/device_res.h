// One device of a node: a file that CHECK creates for trial, or an existing file or device whose
// space it checks. All devices of a run share one account of space for each physical device.
#pragma once

#include <cstdint>
#include <string>

#include "kern/mox_res_mgr/undo.h"

namespace resmgr {

struct device_res {
  static constexpr std::int32_t no_size = -1;

  explicit device_res(std::uint32_t device_number) : number(device_number) {}

  std::uint32_t number;
  std::int32_t size = no_size;  // megabytes
  std::string path;
  std::string type;

  // Makes or test-opens the device, reserves its space and enters in `log` a file that it created,
  // also when it fails. Failure is shown by `stat`, with severity 4: 11640 (size or path missing),
  // 5507 (no information, or no file), 5500 (cannot be opened), 1521 (not enough space).
  void create(undo_log& log);

 private:
  // False, with `stat`, when there is no such device to reserve space for.
  bool create_file(undo_log& log);
  bool check_existing();
  void reserve_space(std::uint32_t physical, bool exists, std::uint64_t free);
};

}  // namespace resmgr
