// What is wanted: the text of a CREATE or CHECK command, read by the parser of the resource
// manager, as nodes with their segments, semaphore set and devices.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "kern/mox_node/options.h"
#include "kern/mox_res_mgr/buffers.h"

namespace moxnode {

struct Buffer {
  const resmgr::buffer* row;
  int key;
  std::uint64_t wanted;  // bytes; 0: no segment is wanted
};

struct Device {
  std::uint32_t number;
  std::string path;        // empty: none was given
  std::int32_t megabytes;  // -1: none were given
};

struct Node {
  std::uint32_t number;
  int ipcbase;
  // Every buffer that a node can have, in the order of keys.
  std::array<Buffer, resmgr::buffers.size()> buffers;
  int set_key;
  std::vector<Device> devices;
};

// The node with that base key; its buffers wanted with 0 bytes.
Node bare_node(std::uint32_t number, int ipcbase);

// Throws Failure when the text cannot be read, has an error, or does not say what is wanted.
std::vector<Node> read_description(const Options& options);

}  // namespace moxnode
