// The stamp that the database puts into every block it writes, and what a verifier may conclude
// from it.
#pragma once

#include <cstdint>

#include "kern/device/diskinfo.h"

struct BlockStamp {
  std::uint32_t flip;
  std::uint8_t device_number;
  std::uint32_t block_id;  // the low 24 bits of the block's number
  std::uint32_t flop;
};

enum class BlockState { UNUSED, VERIFIED, CORRUPT };

// `block_size` is at least DiskInfo::min_block_size.
BlockStamp read_stamp(const unsigned char* block, std::uint32_t block_size);

// `position` is the number of the data block on the device of `info`.
BlockState judge_stamp(const BlockStamp& stamp, const DiskInfo& info, std::uint64_t position);
