#include "kern/devinit/readblocks.h"

#include <cctype>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "kern/device/blockstamp.h"
#include "kern/device/settings.h"
#include "kern/devinit/chunkpass.h"
#include "kern/devinit/meter.h"
#include "kern/devinit/progress.h"
#include "kern/devinit/runstate.h"

namespace {

// `judge(chunk, bytes)` looks at the blocks that were read and returns the chunk's mark.
template <class Judge>
void read_chunks(DirectFile& file, const IoBuffers& buffers, const DiskInfo& info,
                 Progress& progress, Judge judge) {
  const Extent extent = data_extent(info);
  std::printf(": one \"c/C/i/I/u/U\" = %" PRIu64 " blocks of %d bytes, total %" PRIu64 " bytes",
              extent.blocks_per_chunk(), info.block_size, extent.blocks * info.block_size);
  Meter meter(readVerify != 0 ? "verified" : "compared", extent.blocks, extent.block_size);
  for (ChunkPass pass(file, extent, buffers); pass.next();) {
    checkpoint();
    const Chunk& chunk = pass.chunk();
    progress.begin_chunk(chunk.first);
    if (pass.move() != static_cast<ssize_t>(chunk.bytes)) devinit_fail("read", errno);
    progress.end_chunk(judge(chunk, pass.data()));
    meter.advance(chunk.count);
  }
  std::printf("\n\n");
}

const char* name_of(BlockState state) {
  switch (state) {
    case BlockState::UNUSED:
      return "Unused";
    case BlockState::VERIFIED:
      return "Verified";
    case BlockState::CORRUPT:
      return "Corrupt";
  }
  return "";
}

class Verifier {
 public:
  Verifier(const DiskInfo& info, const unsigned char* bitmap, Progress& progress)
      : info_(info), bitmap_(bitmap), progress_(progress) {}

  char judge_chunk(const Chunk& chunk, const unsigned char* bytes) {
    const Counts before = counts_;
    for (std::uint64_t i = 0; i < chunk.count; ++i) {
      judge_block(chunk.first + i, bytes + i * info_.block_size);
    }
    const char mark = counts_.bad != before.bad                   ? 'c'
                      : counts_.initialized != before.initialized ? 'i'
                                                                  : 'u';
    return counts_.cached != before.cached ? static_cast<char>(std::toupper(mark)) : mark;
  }

  void print_counts() const {
    std::printf("%8" PRIu64 " blocks checked\n", info_.data_block_count());
    std::printf("%8" PRIu64 " blocks initialized\n", counts_.initialized);
    std::printf("%8" PRIu64 " blocks bad\n", counts_.bad);
    std::printf("%8" PRIu64 " blocks in buffer cache\n\n", counts_.cached);
  }

 private:
  struct Counts {
    std::uint64_t initialized = 0;
    std::uint64_t bad = 0;
    std::uint64_t cached = 0;
  };

  void judge_block(std::uint64_t number, const unsigned char* block) {
    const BlockStamp stamp = read_stamp(block, info_.block_size);
    const BlockState state = judge_stamp(stamp, info_, number);
    const bool cached = bitmap_ != nullptr && is_cached(bitmap_, number);
    if (info_.is_data_device()) {
      counts_.initialized += state != BlockState::UNUSED;
      counts_.bad += state == BlockState::CORRUPT;
      counts_.cached += cached;
    }
    if (is_shown(state)) print_block(number, stamp, state, cached);
  }

  bool is_shown(BlockState state) const {
    if (readVerify >= 4) return true;
    if (!info_.is_data_device()) return false;
    return (readVerify == 3 && state != BlockState::UNUSED) ||
           (readVerify == 2 && state == BlockState::CORRUPT);
  }

  void print_block(std::uint64_t number, const BlockStamp& stamp, BlockState state, bool cached) {
    std::printf("\n%8" PRIu64 " %-8s %-6s id=%8" PRIu32 " dev=%3d flip=0x%08" PRIx32
                " flop=0x%08" PRIx32,
                number, name_of(state), cached ? "cached" : "", stamp.block_id, stamp.device_number,
                stamp.flip, stamp.flop);
    progress_.interrupt();
  }

  const DiskInfo& info_;
  const unsigned char* bitmap_;
  Progress& progress_;
  Counts counts_;
};

}  // namespace

void compare_data_blocks(DirectFile& file, const IoBuffers& buffers, const DiskInfo& info) {
  if (const int error = file.drop_cache(); error != 0) devinit_fail("posix_fadvise", error);
  std::printf("Read and compare");
  Progress progress(readVerify);
  read_chunks(file, buffers, info, progress, [&](const Chunk& chunk, const unsigned char* bytes) {
    if (std::memcmp(bytes, buffers.pattern(), chunk.bytes) != 0) devinit_fail("verify block");
    return 'u';
  });
}

void verify_data_blocks(DirectFile& file, const IoBuffers& buffers, const DiskInfo& info,
                        const unsigned char* bitmap) {
  std::printf("Verify");
  Progress progress(readVerify);
  Verifier verifier(info, bitmap, progress);
  read_chunks(file, buffers, info, progress, [&](const Chunk& chunk, const unsigned char* bytes) {
    return verifier.judge_chunk(chunk, bytes);
  });
  if (info.is_data_device()) verifier.print_counts();
}
