// The keys of segments that a search has to go round: those of the host, read once in a run, and
// those that earlier searches of the run have reserved.
#pragma once

#include <cstdint>
#include <set>

namespace resmgr {

// Ordered: other users choose the keys of their segments, and could make any hash collide.
using key_list = std::set<std::int32_t>;

// Reads the host's list on first use. When that fails, prints why, sets `stat` to 3360 with
// severity 4 and returns the empty list.
key_list& get_shm_list();

// The next get_shm_list() adds the keys that have come into use meanwhile.
void refresh_shm_list();

}  // namespace resmgr
