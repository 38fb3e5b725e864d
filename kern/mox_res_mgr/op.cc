#include "kern/mox_res_mgr/op.h"

#include <cerrno>

#include "kern/device/devicefile.h"
#include "kern/mox_res_mgr/report.h"

namespace resmgr {

void op::create(undo_log& log) {
  initStatus_s(&stat);
  ipc.create(log);
  if (stat.failed()) {
    pushTraceStatus(&stat);
    return;
  }
  say("node-%u:ipcbase=%d\n", node, ipc.ipcbase);
  for (device_res& device : devices) {
    device.create(log);
    if (stat.failed()) {
      pushTraceStatus(&stat);
      return;
    }
  }
}

void op::del() {
  // A node that names devices alone has no base key, and so no IPC resources to remove.
  if (ipc.ipcbase != 0 || devices.empty()) ipc.del();
  for (const device_res& device : devices) {
    if (!mox_unlink(device.path)) {
      log_os_error("removing", device.path, errno);
      say("Error: delete of file %s failed\n", device.path.c_str());
    }
  }
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
  for (const buffer* const row : buffers_by_place) {
    say(" %s %u", row->name(), ipc.size[row->offset]);
  }
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
