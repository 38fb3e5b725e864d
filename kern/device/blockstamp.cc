#include "kern/device/blockstamp.h"

#include "kern/device/bigendian.h"

namespace {

constexpr std::uint32_t block_id_mask = 0xffffff;

}  // namespace

BlockStamp read_stamp(const unsigned char* block, std::uint32_t block_size) {
  BlockStamp stamp{};
  const unsigned char* at = load_biased(block, stamp.flip);
  std::uint32_t device_and_id = 0;
  load_plain(at, device_and_id);
  stamp.device_number = static_cast<std::uint8_t>(device_and_id >> 24);
  stamp.block_id = device_and_id & block_id_mask;
  load_biased(block + block_size - sizeof stamp.flop, stamp.flop);
  return stamp;
}

BlockState judge_stamp(const BlockStamp& stamp, const DiskInfo& info, std::uint64_t position) {
  if ((stamp.flip ^ info.timestamp_hash()) > 1) return BlockState::UNUSED;
  const bool sound = stamp.device_number == info.device_number &&
                     stamp.block_id == (position & block_id_mask) && stamp.flip == stamp.flop;
  return sound ? BlockState::VERIFIED : BlockState::CORRUPT;
}
