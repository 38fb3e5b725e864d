#include "kern/devinit/headerreport.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string_view>

#include "common/base/printable.h"
#include "kern/devinit/runstate.h"

namespace {

void print_signature(std::int32_t signature) {
  if (signature == DiskInfo::current_signature) {
    std::printf("V4.2 signature       = %d\n", signature);
  } else if (signature == DiskInfo::older_signature) {
    std::printf("Pre V4.2 signature   = %d\n", signature);
  } else {
    std::printf("Unknown signature    = %d (should be %d)\n", signature,
                DiskInfo::current_signature);
  }
}

void print_timestamp(const DiskInfo& info) {
  const std::time_t seconds = info.seconds;
  struct tm local {};
  localtime_r(&seconds, &local);
  char text[80];
  if (std::strftime(text, sizeof text, "%c %Z", &local) == 0) text[0] = '\0';
  std::printf("Timestamp            = %s (hash = 0x%08x)\n", printable(text).c_str(),
              info.timestamp_hash());
}

}  // namespace

void report_header(const DiskInfo& info) {
  if (!info.guards_agree()) {
    std::printf("Flip/flop don't match, device probably uninitialized\n");
  }
  print_signature(info.signature);
  std::printf("Number of blocks     = %" PRIu32 "\n", info.blocks);
  std::printf("Number of datablocks = %" PRIu64 "\n", info.data_block_count());
  std::printf("Block size           = %d bytes\n", info.block_size);
  std::printf("Device number        = %d\n", info.device_number);
  std::printf("Device type          = %s device\n", info.is_data_device() ? "data" : "log");
  const std::string_view name(info.name, strnlen(info.name, DiskInfo::name_size));
  std::printf("Device name          = \"%s\"\n", printable(name).c_str());
  std::printf("Disk based recovery  = %d\n", info.disk_based_recovery);
  print_timestamp(info);
  std::printf("Info header offset   = %" PRId64 "\n",
              static_cast<std::int64_t>(info.info_header_offset));
  std::printf("Info header size     = %" PRId64 "\n",
              static_cast<std::int64_t>(info.data_blocks_offset - info.info_header_offset));
  std::printf("Data blocks offset   = %" PRId64 "\n\n",
              static_cast<std::int64_t>(info.data_blocks_offset));
  flush_report();
}

void refuse_block_size(const DiskInfo& info) {
  if (!info.has_possible_block_size()) devinit_fail("Illegal block size");
}

void refuse_offsets(const DiskInfo& info) {
  if (!info.has_possible_offsets()) devinit_fail("Illegal data blocks offset");
}
