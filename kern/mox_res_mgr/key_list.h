// The keys of segments that a search has to go round: those of the host, read once in a run, and
// those that earlier searches of the run have reserved.
#pragma once

#include <cstdint>
#include <unordered_set>

namespace resmgr {

using key_list = std::unordered_set<std::int32_t>;

// Reads the host's list on first use. When that fails, prints why, sets `stat` to 3360 with
// severity 4 and returns the empty list.
key_list& get_shm_list();

}  // namespace resmgr
