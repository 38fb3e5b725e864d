#include "kern/devinit/readblocks.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "kern/device/blockstamp.h"
#include "kern/device/settings.h"
#include "kern/devinit/progress.h"
#include "kern/devinit/runstate.h"

namespace {

// `judge(first, count)` looks at the blocks in buffers.data() and returns the chunk's mark.
template <class Judge>
void read_chunks(DirectFile& file, const IoBuffers& buffers, const DiskInfo& info,
                 Progress& progress, Judge judge) {
  const std::uint64_t per_chunk = IoBuffers::chunk_size / info.block_size;
  const std::uint64_t blocks = info.data_block_count();
  std::printf(": one \"c/C/i/I/u/U\" = %" PRIu64 " blocks of %d bytes, total %" PRIu64 " bytes",
              per_chunk, info.block_size, blocks * info.block_size);
  for (std::uint64_t first = 0; first < blocks; first += per_chunk) {
    checkpoint();
    progress.begin_chunk(first);
    const std::uint64_t count = std::min(per_chunk, blocks - first);
    const auto bytes = static_cast<unsigned>(count * info.block_size);
    const std::uint64_t offset = info.data_blocks_offset + first * info.block_size;
    const ssize_t moved = file.read(buffers.data(), bytes, static_cast<long long>(offset));
    if (moved != static_cast<ssize_t>(bytes)) devinit_fail("read", errno);
    progress.end_chunk(judge(first, count));
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
  Verifier(const IoBuffers& buffers, const DiskInfo& info, const unsigned char* bitmap,
           Progress& progress)
      : buffers_(buffers), info_(info), bitmap_(bitmap), progress_(progress) {}

  char judge_chunk(std::uint64_t first, std::uint64_t count) {
    const Counts before = counts_;
    for (std::uint64_t i = 0; i < count; ++i) {
      judge_block(first + i, buffers_.data() + i * info_.block_size);
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

  const IoBuffers& buffers_;
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
  read_chunks(file, buffers, info, progress, [&](std::uint64_t, std::uint64_t count) {
    if (std::memcmp(buffers.data(), buffers.pattern(), count * info.block_size) != 0) {
      devinit_fail("verify block");
    }
    return 'u';
  });
}

void verify_data_blocks(DirectFile& file, const IoBuffers& buffers, const DiskInfo& info,
                        const unsigned char* bitmap) {
  std::printf("Verify");
  Progress progress(readVerify);
  Verifier verifier(buffers, info, bitmap, progress);
  read_chunks(file, buffers, info, progress, [&](std::uint64_t first, std::uint64_t count) {
    return verifier.judge_chunk(first, count);
  });
  if (info.is_data_device()) verifier.print_counts();
}
