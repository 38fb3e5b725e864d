#include "kern/devinit/chunkpass.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "kern/devinit/runstate.h"

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr int window = 8;  // chunks

}  // namespace

Extent data_extent(const DiskInfo& info) {
  return {info.data_block_count(), info.block_size, info.data_blocks_offset};
}

Extent bitmap_extent(const DiskInfo& info) {
  return {info.bitmap_block_count(), info.block_size, info.bitmap_offset()};
}

void Pace::note(Duration transfer) {
  if (count_ == window) restart();
  ++count_;
  quickest_ = std::min(quickest_, transfer);
}

bool Pace::is_slow() const {
  return count_ == window && quickest_ > microseconds(deepfrom);
}

bool Pace::pays(Duration latency, std::uint64_t chunks_left) const {
  constexpr milliseconds cost(60);
  const Duration saved = std::min(latency, quickest_ - quickest_ / int{AsyncQueue::depth});
  return saved > quickest_ / 3 && chunks_left > static_cast<std::uint64_t>(cost / saved);
}

ChunkPass::ChunkPass(DirectFile& file, const Extent& extent, const IoBuffers& buffers,
                     const unsigned char* source)
    : file_(file),
      extent_(extent),
      source_(source),
      buffers_(buffers.data()),
      chunks_(extent.chunks()) {}

bool ChunkPass::next() {
  if (next_ == chunks_) return false;
  number_ = next_++;
  chunk_ = chunk_at(number_);
  return true;
}

ssize_t ChunkPass::move() {
  ahead_ = ahead_ || (is_time_to_go_ahead() && async_queue().open());
  if (ahead_) submit_ahead();
  if (number_ >= submitted_) {
    submitted_ = next_;
    return move_plainly(buffers_);
  }
  unsigned char* const buffer = slot_buffer(number_);
  const std::int64_t moved = async_queue().wait(slot_of(number_));
  data_ = buffer;
  if (moved == chunk_.bytes) return moved;
  // What fails in flight is done again plainly, which retries it and tells the reason.
  async_queue().drain();
  ahead_ = false;
  pace_.restart();
  return move_plainly(buffer);
}

ssize_t ChunkPass::move_plainly(unsigned char* buffer) {
  const auto start = steady_clock::now();
  const ssize_t moved = is_write() ? file_.write(source_, chunk_.bytes, chunk_.offset)
                                   : file_.read(buffer, chunk_.bytes, chunk_.offset);
  const int error = errno;
  data_ = buffer;
  pace_.note(steady_clock::now() - start);
  errno = error;
  return moved;
}

bool ChunkPass::is_time_to_go_ahead() {
  if (deepfrom == 0) return true;
  if (quick_ || !pace_.is_slow()) return false;
  quick_ = !pace_.pays(latency(), chunks_ - number_);
  return !quick_;
}

// Of the blocks that were moved first, a little is read once more. What fails is quick enough.
Pace::Duration ChunkPass::latency() {
  constexpr unsigned little = 4096;
  constexpr int tries = 3;
  auto* const buffer = buffers_ + IoBuffers::chunk_size;  // the source may be in front of it
  auto quickest = Pace::Duration::max();
  for (int i = 0; i < tries; ++i) {
    const auto start = steady_clock::now();
    if (file_.read(buffer, little, chunk_at(0).offset) != little) return {};
    quickest = std::min(quickest, steady_clock::now() - start);
  }
  return quickest;
}

Chunk ChunkPass::chunk_at(std::uint64_t number) const {
  const std::uint64_t first = number * extent_.blocks_per_chunk();
  const std::uint64_t count = std::min(extent_.blocks_per_chunk(), extent_.blocks - first);
  return {first, count, static_cast<unsigned>(count * extent_.block_size),
          static_cast<long long>(extent_.offset + first * extent_.block_size)};
}

unsigned ChunkPass::slot_of(std::uint64_t number) {
  return static_cast<unsigned>(number % AsyncQueue::depth);
}

unsigned char* ChunkPass::slot_buffer(std::uint64_t number) const {
  return buffers_ + std::size_t{slot_of(number)} * IoBuffers::chunk_size;
}

// The last chunk is moved plainly and last, so that nothing looks whole before it is.
void ChunkPass::submit_ahead() {
  const std::uint64_t end = std::min(number_ + AsyncQueue::depth, chunks_ - 1);
  while (submitted_ < end && submit(submitted_)) ++submitted_;
}

bool ChunkPass::submit(std::uint64_t number) {
  const Chunk chunk = chunk_at(number);
  const Transfer transfer = {is_write(), file_.fd(), is_write() ? source_ : slot_buffer(number),
                             chunk.bytes, chunk.offset};
  return file_.set_direct(transfer) && grow_file_to_hold(number) &&
         async_queue().submit(slot_of(number), transfer);
}

// Writes that extend a file wait for one another. It is made longer in steps, because a run that is
// killed must not leave a file that looks whole.
bool ChunkPass::grow_file_to_hold(std::uint64_t number) {
  constexpr std::uint64_t step = AsyncQueue::depth;
  if (!is_write() || !file_.is_regular()) return true;
  const auto end_of = [this](std::uint64_t chunk) {
    const Chunk last = chunk_at(chunk);
    return last.offset + last.bytes;
  };
  if (end_of(number) <= grown_to_) return true;
  const long long end = end_of(std::min(number + step, chunks_ - 1) - 1);
  if (ftruncate(file_.fd(), end) != 0) return false;
  grown_to_ = end;
  return true;
}
