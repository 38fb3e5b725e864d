// Memory straight from the kernel, aligned for direct I/O: the bitmap of a verification, and the
// I/O buffers of 1 MiB each. These lie in huge pages where there are some, because a disk takes one
// as one segment and splits transfers of many small pages.
#pragma once

#include <cstddef>

// Zeroed and page-aligned; touched pages alone take memory. Without memory the run ends in an
// error.
class Memory {
 public:
  Memory() = default;  // none
  explicit Memory(std::size_t bytes);
  Memory(Memory&& other) noexcept;
  Memory& operator=(Memory&&) = delete;
  ~Memory();

  unsigned char* bytes() const { return bytes_; }

 private:
  unsigned char* bytes_ = nullptr;
  std::size_t size_ = 0;
};

class IoBuffers {
 public:
  static constexpr unsigned chunk_size = 1048576;

  // Fills the pattern.
  IoBuffers();

  const unsigned char* pattern() const { return pattern_; }
  // A buffer for each transfer in flight, one behind the other.
  unsigned char* data() const { return pattern_ + chunk_size; }

 private:
  Memory memory_;
  unsigned char* pattern_;
};
