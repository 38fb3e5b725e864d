#include "kern/mox_res_mgr/key_list.h"

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "common/logger.h"
#include "common/sharedmem.h"
#include "kern/mox_res_mgr/report.h"

namespace resmgr {

namespace {

key_list shm_list;
bool must_read = true;

void report_unreadable(const char* what) {
  const int os_error = errno;
  say("Error: get_shm_list failed while getting %s\n", what);
  stat.set(SEV_SYSTEMERR, MOX_CANNOT_HAPPEN, 0);
  logLine(LEVEL_ERR, std::string("listing the shared memory segments of the host failed: ") +
                         std::strerror(os_error));
}

}  // namespace

key_list& get_shm_list() {
  if (!must_read) return shm_list;
  shm_list.clear();
  must_read = false;

  unsigned count = 0;
  if (!sharedKeys(nullptr, 0, &count)) {
    report_unreadable("nkeys");
    return shm_list;
  }
  if (count == 0) return shm_list;

  // Other processes may add segments between the two calls.
  constexpr unsigned headroom = 1024;
  std::vector<std::int32_t> keys(count + headroom);
  if (!sharedKeys(keys.data(), static_cast<unsigned>(keys.size()), &count)) {
    report_unreadable("keys");
    return shm_list;
  }
  shm_list.insert(keys.begin(), keys.begin() + count);
  return shm_list;
}

}  // namespace resmgr
