#include "kern/devinit/createfile.h"

#include <sys/time.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstdio>

#include "kern/device/settings.h"
#include "kern/devinit/headerreport.h"
#include "kern/devinit/runstate.h"
#include "kern/devinit/target.h"
#include "kern/devinit/writeblocks.h"

namespace {

constexpr std::uint32_t guard_word = 0xaaaa;

DiskInfo requested_header(const Options& options) {
  return {options.file,
          static_cast<std::uint32_t>(options.blocks),
          static_cast<std::uint16_t>(options.block_size),
          options.device_number,
          static_cast<std::int8_t>(options.log_device),
          guard_word};
}

void refuse_illegal_request(const Options& options) {
  if (options.device_number < 0 || options.device_number > 8) {
    devinit_fail("File number out of range");
  }
  if (options.block_size < 1024 || options.block_size > 32768 ||
      !std::has_single_bit(static_cast<std::uint64_t>(options.block_size))) {
    devinit_fail("Illegal block size");
  }
}

void stamp_time(DiskInfo& info) {
  timeval now{};
  gettimeofday(&now, nullptr);
  info.seconds = static_cast<std::int32_t>(now.tv_sec);
  info.microseconds = static_cast<std::uint32_t>(now.tv_usec);
}

void write_header(DirectFile& file, const DiskInfo& info, unsigned char* region) {
  std::fill_n(region, DiskInfo::current_header_region, static_cast<unsigned char>(0));
  info.put(region);
  const ssize_t written =
      file.write(region, DiskInfo::current_header_region, DiskInfo::current_header_offset);
  const int error = errno;
  if (written > 0) guard_content();
  if (written != DiskInfo::current_header_region) crashwriting(error);
}

void read_region(DirectFile& file, unsigned char* region, unsigned size, std::uint64_t offset) {
  const ssize_t bytes = file.read(region, size, static_cast<long long>(offset));
  const int error = errno;
  if (bytes == static_cast<ssize_t>(size)) return;
  devinit_report("verify header", error);
  if (bytes >= 0) (void)std::fprintf(stderr, "%zd of %u bytes read\n", bytes, size);
  devinit_fail("Cannot verify file header");
}

void judge_found_header(DirectFile& file, unsigned char* region, DiskInfo& info) {
  if (info.signature != DiskInfo::current_signature) {
    read_region(file, region, DiskInfo::older_header_region, DiskInfo::older_header_offset);
    info.get(region);
    std::printf("%s\n", info.signature == DiskInfo::older_signature
                            ? "Pre V4.2 version header detected"
                            : "Signature wrong, device probably uninitialized");
  }
  info.bitmap_switch = 1;
  report_header(info);
}

}  // namespace

DirectFile create_file(const Options& options, unsigned char* region, DiskInfo& info) {
  info = requested_header(options);
  if (readVerify == 0) {
    refuse_illegal_request(options);
    stamp_time(info);
    totdevsize = std::uint64_t{info.blocks} * info.block_size;
    refuse_held_device(options.file);
    if (!has_space(options.file, totdevsize + info.data_blocks_offset)) {
      devinit_fail("Not enough space on disk");
    }
  }
  checkpoint();
  open_target(options.file);
  DirectFile file(clean_fd);
  if (readVerify == 0) write_header(file, info, region);
  read_region(file, region, DiskInfo::current_header_region, DiskInfo::current_header_offset);
  info.get(region);
  if (readVerify != 0) {
    judge_found_header(file, region, info);
  } else if (info.flip != info.flop) {
    devinit_fail("fileInfo.flip != fileInfo.flop");
  } else {
    refuse_block_size(info);  // /dev/zero accepts the header and returns zeros
    refuse_offsets(info);
  }
  info.bitmap_switch = 1;  // stored as 0, yet every data device has its bitmap
  return file;
}
