#include "kern/devinit/devinit.h"

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <new>

#include "common/base/printable.h"
#include "common/interrupt.h"
#include "kern/device/settings.h"
#include "kern/devinit/createfile.h"
#include "kern/devinit/headerreport.h"
#include "kern/devinit/memory.h"
#include "kern/devinit/meter.h"
#include "kern/devinit/options.h"
#include "kern/devinit/readblocks.h"
#include "kern/devinit/runstate.h"
#include "kern/devinit/target.h"
#include "kern/devinit/writeblocks.h"

namespace {

void announce(const Options& options) {
  if (readVerify != 0) {
    std::printf("Verifying device \"%s\"\n", printable(options.file).c_str());
  } else {
    std::printf("Initializing device \"%s\"\n  as number %d with %d blocks of %" PRId64 " bytes\n",
                printable(options.file).c_str(), options.device_number, options.blocks,
                options.block_size);
  }
}

// Finds out that a device is too small before hours of writing do.
void try_last_data_block(DirectFile& file, const DiskInfo& info, const unsigned char* pattern) {
  if (info.data_block_count() == 0) return;
  const std::uint64_t offset = info.bitmap_offset() - info.block_size;
  const ssize_t written = file.write(pattern, info.block_size, static_cast<long long>(offset));
  const int error = errno;
  if (written == info.block_size) return;
  if (error != 0) devinit_report("write", error);
  devinit_fail("cannot write last block to device. device too small?");
}

void read_bitmap_part(DirectFile& file, unsigned char* to, std::uint64_t bytes,
                      std::uint64_t offset) {
  const auto wanted = static_cast<unsigned>(bytes);
  const ssize_t moved = file.read(to, wanted, static_cast<long long>(offset));
  if (moved != static_cast<ssize_t>(wanted)) devinit_fail("Read failed", errno);
}

Memory read_bitmap(DirectFile& file, const DiskInfo& info, const IoBuffers& buffers) {
  const std::uint64_t start = info.bitmap_offset();
  const std::uint64_t bytes = info.bitmap_block_count() * info.block_size;
  std::printf("Reading %" PRIu64 " bitmap blocks\n\n", info.bitmap_block_count());
  // No memory for a bitmap that the device does not hold to its end.
  if (bytes > 0) {
    read_bitmap_part(file, buffers.data(), info.block_size, start + bytes - info.block_size);
  }
  Memory bitmap(bytes);
  for (std::uint64_t at = 0; at < bytes; at += IoBuffers::chunk_size) {
    checkpoint();
    read_bitmap_part(file, bitmap.bytes() + at,
                     std::min<std::uint64_t>(IoBuffers::chunk_size, bytes - at), start + at);
  }
  return bitmap;
}

void write_data_blocks(DirectFile& file, const DiskInfo& info, const IoBuffers& buffers) {
  const std::uint64_t blocks = info.data_block_count();
  std::printf("Preparing to write %" PRIu64 " data blocks and %" PRIu64 " bitmap blocks\n", blocks,
              info.bitmap_block_count());
  std::printf("Writing: one \"w\" = %d blocks of %d bytes, total %" PRIu64 " bytes",
              static_cast<int>(IoBuffers::chunk_size / info.block_size), info.block_size,
              blocks * info.block_size);
  write_blocks(file, buffers, buffers.pattern(), data_extent(info));
}

void write_bitmap(DirectFile& file, const DiskInfo& info, const IoBuffers& buffers) {
  std::printf("Writing %" PRIu64 " bitmap blocks\n", info.bitmap_block_count());
  std::fill_n(buffers.data(), IoBuffers::chunk_size, static_cast<unsigned char>(0));
  write_blocks(file, buffers, buffers.data(), bitmap_extent(info));
}

void initialize(DirectFile& file, const DiskInfo& info, const IoBuffers& buffers,
                const Options& options, bool device) {
  if (device) try_last_data_block(file, info, buffers.pattern());
  if (!options.fast) {
    write_data_blocks(file, info, buffers);
    if (options.paranoid) compare_data_blocks(file, buffers, info);
  }
  if (info.is_data_device()) write_bitmap(file, info, buffers);
}

// A header that was found may hold any geometry: what has to be read must lie within reach, and
// nothing divides by a block size that no block can have.
void verify(DirectFile& file, const DiskInfo& info, const IoBuffers& buffers,
            const Options& options) {
  if (!options.fast) refuse_block_size(info);
  if (!options.fast || info.bitmap_block_count() > 0) refuse_offsets(info);
  const Memory bitmap = info.is_data_device() ? read_bitmap(file, info, buffers) : Memory();
  if (!options.fast) verify_data_blocks(file, buffers, info, bitmap.bytes());
}

void sync_and_close(DirectFile& file) {
  if (readVerify == 0) {
    if (const int error = file.sync(); error != 0) devinit_fail("fsync", error);
  }
  if (const int error = release_file(); error != 0) devinit_fail("close", error);
}

// A good device whose report was lost is no success: nobody could tell it from another.
int finish_report() {
  const int error = std::fflush(stdout) != 0 ? errno : 0;
  if (error == 0 && std::ferror(stdout) == 0) return 0;
  checkpoint();
  devinit_fail("standard output", error);
}

int run(int argc, char** argv) {
  Options options;
  const OptionsResult result = parse_options(argc, argv, options);
  if (result != OptionsResult::RUN) return result == OptionsResult::DONE ? finish_report() : 1;
  if (options.file == nullptr || options.blocks < 0 || (options.blocks == 0 && readVerify == 0)) {
    devinit_fail("File not found or no blocks");
  }
  int error = holdInterrupts();
  if (error == 0) error = answer_sigusr1();
  if (error != 0) devinit_fail("sigaction", error);
  const IoBuffers buffers;
  announce(options);
  DiskInfo info;
  DirectFile file = create_file(options, buffers.data(), info);
  const bool device = is_device(options.file);
  if (device) std::printf("Raw or block device detected\n");
  if (readVerify != 0) {
    verify(file, info, buffers, options);
  } else {
    initialize(file, info, buffers, options, device);
  }
  checkpoint();
  sync_and_close(file);
  std::printf("Device %s\n",
              readVerify != 0 ? "verification completed" : "initialized successfully");
  const int status = finish_report();
  releaseInterrupts();
  return status;
}

}  // namespace

int devinit(int argc, char** argv) {
  reset_run();
  try {
    return run(argc, argv);
  } catch (const std::bad_alloc&) {
    devinit_fail("out of memory");
  }
}
