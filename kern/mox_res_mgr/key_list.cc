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

// The keys of all segments. Other processes may add segments between the two calls.
bool read_keys(std::vector<std::int32_t>& keys, const char*& failed_at) {
  constexpr int most_tries = 100;
  unsigned count = 0;
  for (int tries = 0; tries < most_tries; ++tries) {
    failed_at = "nkeys";
    if (!sharedKeys(nullptr, 0, &count)) return false;
    keys.resize(count);
    if (count == 0) return true;
    constexpr std::size_t headroom = 1024;
    keys.resize(count + headroom);
    failed_at = "keys";
    if (sharedKeys(keys.data(), static_cast<unsigned>(keys.size()), &count)) {
      keys.resize(count);
      return true;
    }
    if (errno != ENOSPC) return false;
  }
  return false;
}

}  // namespace

key_list& get_shm_list() {
  if (!must_read) return shm_list;
  must_read = false;
  std::vector<std::int32_t> keys;
  const char* failed_at = nullptr;
  if (read_keys(keys, failed_at)) {
    shm_list.insert(keys.begin(), keys.end());
  } else {
    report_unreadable(failed_at);
  }
  return shm_list;
}

void refresh_shm_list() {
  must_read = true;
}

}  // namespace resmgr
