#include "kern/mox_res_mgr/device_res.h"

#include <algorithm>

#include "common/base/printable.h"
#include "common/logger.h"
#include "kern/device/devicefile.h"
#include "kern/device/devicepath.h"
#include "kern/device/devicespace.h"
#include "kern/mox_res_mgr/phys_device.h"
#include "kern/mox_res_mgr/report.h"

namespace resmgr {

namespace {

void fail(Moxstatus_e number, SourcePosition at = SourcePosition::here()) {
  stat.set(SEV_SYSTEMERR, number, 0, {}, at);
}

void fail(Moxstatus_e number, int os_error, const std::string& path,
          SourcePosition at = SourcePosition::here()) {
  stat.set(SEV_SYSTEMERR, number, os_error, {path}, at);
}

void explain_lack_of_space(const std::string& path, bool exists, std::uint64_t need,
                           const phys_device& account) {
  const bool twice = std::ranges::find(account.paths, path) != account.paths.end();
  std::string cause;
  if (twice) cause = "; the command names this path twice";
  if (!twice && exists && account.reserved != 0) {
    cause = "; a device that exists needs the account of its file system for itself";
  }
  logLine(LEVEL_WRN, "not enough space for " + printable(path) + " on the file system of " +
                         printable(file_system_of(path)) + ": needed " + std::to_string(need) +
                         " bytes, free " + std::to_string(account.free) +
                         ", given away by this run " + std::to_string(account.reserved) + cause);
}

}  // namespace

void device_res::create(undo_log& log) {
  initStatus_s(&stat);
  std::uint32_t physical = 0;
  bool exists = false;
  std::uint64_t space = 0;
  int os_error = 0;
  if (!device_info(path, physical, exists, space, os_error)) {
    say("Error: could not get info about device %s\n", printable(path).c_str());
    fail(MOX_FILE_OPERATION_FAILED, os_error, path);
    return;
  }
  say("create file %s\n", printable(path).c_str());
  if (size == no_size) {
    say("Error: device size must be specified\n");
    fail(MOX_INVALID_OPTION);
  } else if (exists ? !check_existing() : !create_file(log)) {
    return;
  } else {
    reserve_space(physical, exists, space);
  }
  if (stat.failed()) pushTraceStatus(&stat);
}

bool device_res::create_file(undo_log& log) {
  int os_error = 0;
  announcement<device_undo_op> entry(log, path);
  // Exclusively: a file that somebody else puts there meanwhile is not ours to empty, nor to undo.
  if (!mox_create_file(path, os_error, &entry->file)) {
    say("Error: create of file %s failed\n", printable(path).c_str());
    fail(MOX_FILE_OPERATION_FAILED, os_error, path);
    return false;
  }
  entry.made();
  return true;
}

bool device_res::check_existing() {
  int os_error = 0;
  std::uint64_t emptied = 0;
  const bool good = mox_test_open_file(path, os_error, &emptied);
  if (emptied != 0) {
    logLine(LEVEL_WRN,
            "emptied " + printable(path) + ", which held " + std::to_string(emptied) + " bytes");
  }
  if (good) return true;
  say("Error: open of device %s failed\n", printable(path).c_str());
  fail(MOX_OPEN_FAILED, os_error, path);
  pushTraceStatus(&stat);
  return false;
}

// New files add up. A device that exists takes the whole account of its physical device for itself.
void device_res::reserve_space(std::uint32_t physical, bool exists, std::uint64_t free) {
  constexpr std::uint64_t megabyte = 1048576;
  const std::uint64_t need = mox_phys_space(static_cast<std::uint64_t>(size) * megabyte);
  phys_device& account = phys_devices(physical);
  account.free = free;
  const bool may_reserve = !exists || account.reserved == 0;
  if (may_reserve && account.reserve(need, free)) {
    account.paths.push_back(path);
    return;
  }
  explain_lack_of_space(path, exists, need, account);
  say("Error: not enough space on physical device for %s\n", printable(path).c_str());
  fail(MOX_NO_SPACE_LEFT);
}

}  // namespace resmgr
