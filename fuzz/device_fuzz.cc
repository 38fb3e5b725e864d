// Any header is decoded, reported and encoded again to the same bytes, and any block behind it is
// judged.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "kern/device/blockstamp.h"
#include "kern/device/diskinfo.h"
#include "kern/devinit/headerreport.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < DiskInfo::encoded_size) return 0;
  DiskInfo info;
  const std::uint8_t* block = info.get(data);
  info.blocks = static_cast<std::uint32_t>(size);
  info.bitmap_switch = 0;
  std::memcpy(&info.bitmap_switch, data + 287, 1);
  report_header(info);
  if (info.data_block_count() + info.bitmap_block_count() != info.blocks) std::abort();

  std::vector<std::uint8_t> encoded(DiskInfo::encoded_size);
  DiskInfo again;
  again.get(data);
  again.put(encoded.data());
  const auto layout = static_cast<std::size_t>(block - data);
  if (std::memcmp(encoded.data(), data, layout) != 0) std::abort();

  const std::uint32_t bytes = DiskInfo::min_block_size;
  for (std::uint64_t position = 0; block + bytes <= data + size; ++position, block += bytes) {
    judge_stamp(read_stamp(block, bytes), info, position);
  }
  return 0;
}
