// One pass over the blocks of a device in chunks of up to 1 MiB: moves them in the order of the
// device, one chunk at each call, whatever is in flight behind it. Begins with one transfer at a
// time; where these are slow, it keeps several in flight.
//   ChunkPass pass(file, extent, buffers);
//   while (pass.next()) { if (pass.move() != pass.chunk().bytes) ...errno...; use(pass.data()); }
#pragma once

#include <chrono>
#include <cstdint>

#include "kern/device/diskinfo.h"
#include "kern/devinit/asyncqueue.h"
#include "kern/devinit/directfile.h"
#include "kern/devinit/memory.h"

struct Extent {
  std::uint64_t blocks;
  std::uint32_t block_size;  // bytes
  std::uint64_t offset;      // of the first block, in bytes

  std::uint64_t blocks_per_chunk() const { return IoBuffers::chunk_size / block_size; }
  std::uint64_t chunks() const { return (blocks + blocks_per_chunk() - 1) / blocks_per_chunk(); }
};

Extent data_extent(const DiskInfo& info);
Extent bitmap_extent(const DiskInfo& info);

struct Chunk {
  std::uint64_t first;  // block
  std::uint64_t count;  // blocks
  unsigned bytes;
  long long offset;
};

// Decides whether several transfers in flight pay. They overlap the time that the storage takes to
// answer, but not the time that it takes to move the bytes; and the asynchronous requests cost
// something at the end of the process.
class Pace {
 public:
  using Duration = std::chrono::steady_clock::duration;

  // The time of one chunk.
  void note(Duration transfer);
  // Eight chunks were seen, and the quickest of them took more than `deepfrom`.
  bool is_slow() const;
  // `latency` is the time of a transfer that hardly moves anything.
  bool pays(Duration latency, std::uint64_t chunks_left) const;
  void restart() { *this = Pace(); }

 private:
  int count_ = 0;
  Duration quickest_ = Duration::max();
};

class ChunkPass {
 public:
  // Writes the chunk at `source` over the extent, or reads the extent when it is null. The buffers
  // are the pass's own, but for the source.
  ChunkPass(DirectFile& file, const Extent& extent, const IoBuffers& buffers,
            const unsigned char* source = nullptr);
  ChunkPass(const ChunkPass&) = delete;
  ChunkPass& operator=(const ChunkPass&) = delete;
  ~ChunkPass() { async_queue().drain(); }

  // On to the first chunk, or to the next one; false behind the last.
  bool next();
  const Chunk& chunk() const { return chunk_; }
  // As DirectFile::write or read of the chunk.
  ssize_t move();
  // What was read, until the next move.
  const unsigned char* data() const { return data_; }

 private:
  Chunk chunk_at(std::uint64_t number) const;
  bool is_time_to_go_ahead();
  Pace::Duration latency();
  bool is_write() const { return source_ != nullptr; }
  static unsigned slot_of(std::uint64_t number);
  unsigned char* slot_buffer(std::uint64_t number) const;
  void submit_ahead();
  bool submit(std::uint64_t number);
  bool grow_file_to_hold(std::uint64_t number);
  ssize_t move_plainly(unsigned char* buffer);

  DirectFile& file_;
  const Extent extent_;
  const unsigned char* const source_;  // null when reading
  unsigned char* const buffers_;
  const std::uint64_t chunks_;
  std::uint64_t number_ = 0;     // of chunk_
  std::uint64_t next_ = 0;       // of the chunk behind it
  std::uint64_t submitted_ = 0;  // the first chunk that neither was submitted nor moved plainly
  long long grown_to_ = 0;       // the file reaches to there at least
  bool ahead_ = false;           // several in flight
  bool quick_ = false;           // and will not be
  Pace pace_;
  Chunk chunk_{};
  const unsigned char* data_ = nullptr;
};
