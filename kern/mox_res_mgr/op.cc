#include "kern/mox_res_mgr/op.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <cerrno>

#include "common/base/printable.h"
#include "common/logger.h"
#include "kern/device/devicefile.h"
#include "kern/mox_res_mgr/report.h"

namespace resmgr {

namespace {

void delete_device(const std::string& path) {
  struct stat was {};
  if (!mox_unlink(path, &was)) {
    log_os_error("removing", path, errno);
    say("Error: delete of file %s failed\n", printable(path).c_str());
  } else if (S_ISBLK(was.st_mode) || S_ISCHR(was.st_mode)) {
    logLine(LEVEL_WRN, "removed the device node " + printable(path) + " (" +
                           (S_ISBLK(was.st_mode) ? "block" : "character") + " device " +
                           std::to_string(major(was.st_rdev)) + ":" +
                           std::to_string(minor(was.st_rdev)) + "); the disk is unchanged");
  }
}

}  // namespace

void op::create(undo_log& log) {
  initStatus_s(&stat);
  ipc.create(log);
  if (stat.failed()) {
    pushTraceStatus(&stat);
    return;
  }
  say("%s\n", where().c_str());
  for (device_res& device : devices) {
    device.create(log);
    if (stat.failed()) {
      pushTraceStatus(&stat);
      return;
    }
  }
}

std::string op::where() const {
  return "node-" + std::to_string(node) + ":ipcbase=" + std::to_string(ipc.ipcbase);
}

void op::del() {
  ipc.del();
  for (const device_res& device : devices) delete_device(device.path);
}

bool op::search() {
  return ipc.search();
}

bool op::search_ok(std::string& message) const {
  message = devices.empty() ? "ok" : "--search not allowed for devices";
  return devices.empty();
}

void op::debug() const {
  say("node %u\n", node);
  say("ipcbase %d", ipc.ipcbase);
  for (const buffer& row : buffers_by_place) say(" %s %u", row.name(), ipc.size[row.offset]);
  say("\n");
  resmgr::debug(devices);
}

void debug(const device_list& devices) {
  for (const device_res& device : devices) {
    say("device %u size %d path %s type %s\n", device.number, device.size, device.path.c_str(),
        device.type.c_str());
  }
}

}  // namespace resmgr
