// The handle of a node's semaphore set before one is mapped.
#pragma once

#include <cstddef>

#include "utl/semops.h"

namespace resmgr {

// Filled with "gurba" over and over: easy to recognise in a dump.
constexpr MutexHandle unmapped_mutex() {
  constexpr char fill[] = {'g', 'u', 'r', 'b', 'a'};
  MutexHandle handle{};
  for (std::size_t i = 0; i < sizeof handle.bytes; ++i) handle.bytes[i] = fill[i % sizeof fill];
  return handle;
}

}  // namespace resmgr
