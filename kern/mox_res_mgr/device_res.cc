#include "kern/mox_res_mgr/device_res.h"

#include <fcntl.h>

#include <cerrno>

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

void fail_for_space(const std::string& path, SourcePosition at = SourcePosition::here()) {
  say("Error: not enough space on physical device for %s\n", path.c_str());
  fail(MOX_NO_SPACE_LEFT, at);
}

}  // namespace

void device_res::create(undo_log& log) {
  initStatus_s(&stat);
  std::uint32_t physical = 0;
  bool exists = false;
  std::uint64_t space = 0;
  int os_error = 0;
  if (!device_info(path, physical, exists, space, os_error)) {
    say("Error: could not get info about device %s\n", path.c_str());
    fail(MOX_FILE_OPERATION_FAILED, os_error, path);
    return;
  }
  say("create file %s\n", path.c_str());
  if (size == no_size) {
    say("Error: device size must be specified\n");
    fail(MOX_INVALID_OPTION);
  } else if (exists) {
    check_existing(physical, space);
  } else {
    create_file(physical, space, log);
  }
  if (stat.failed()) pushTraceStatus(&stat);
}

std::uint64_t device_res::need() const {
  constexpr std::uint64_t megabyte = 1048576;
  return mox_phys_space(static_cast<std::uint64_t>(size) * megabyte);
}

void device_res::create_file(std::uint32_t physical, std::uint64_t space, undo_log& log) {
  int os_error = 0;
  const std::string file = resolve_symlink(path, os_error);
  announcement<device_undo_op> entry(log, path, file);
  // Exclusively: a file that somebody else puts there meanwhile is not ours to empty, nor to undo.
  if (os_error != 0 || !mox_create_file(file, os_error, O_EXCL)) {
    say("Error: create of file %s failed\n", path.c_str());
    fail(MOX_FILE_OPERATION_FAILED, os_error, path);
    return;
  }
  entry.made();
  if (!phys_devices(physical).reserve(need(), space)) fail_for_space(path);
}

void device_res::check_existing(std::uint32_t physical, std::uint64_t space) {
  int os_error = 0;
  if (!mox_test_open_file(path, os_error)) {
    say("Error: open of device %s failed\n", path.c_str());
    fail(MOX_OPEN_FAILED, os_error, path);
    return;
  }
  // An existing device takes the whole account of its physical device for itself.
  phys_device& account = phys_devices(physical);
  if (account.reserved != 0 || !account.reserve(need(), space)) fail_for_space(path);
}

}  // namespace resmgr
