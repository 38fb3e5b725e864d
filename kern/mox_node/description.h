// What is wanted: the text of a CREATE or CHECK command, read by the parser of the resource
// manager, as nodes with their segments, semaphore set and devices.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "kern/mox_node/options.h"
#include "kern/mox_res_mgr/ipc_res.h"

namespace moxnode {

struct Device {
  std::uint32_t number;
  std::string path;        // empty: none was given
  std::int32_t megabytes;  // -1: none were given
};

struct Node {
  std::uint32_t number;
  resmgr::ipc_res ipc;
  std::vector<Device> devices;
};

// Throws Failure when the text cannot be read, has an error, or does not say what is wanted.
std::vector<Node> read_description(const Options& options);

}  // namespace moxnode
