#include "kern/devinit/memory.h"

#include <sys/mman.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <utility>

#include "kern/devinit/asyncqueue.h"
#include "kern/devinit/runstate.h"

namespace {

constexpr std::size_t huge_page = 2097152;
constexpr std::size_t buffers_size = (1 + AsyncQueue::depth) * std::size_t{IoBuffers::chunk_size};

unsigned char* align_to_huge_page(unsigned char* address) {
  const auto misplaced = reinterpret_cast<std::uintptr_t>(address) % huge_page;
  return misplaced == 0 ? address : address + (huge_page - misplaced);
}

void fill_pattern(unsigned char* to) {
  std::uint32_t value = 0;
  for (std::uint32_t i = 0; i < IoBuffers::chunk_size; i += sizeof value) {
    value = value * 374441 + i * 1771875;
    std::memcpy(to + i, &value, sizeof value);
  }
}

}  // namespace

Memory::Memory(std::size_t bytes) : size_(bytes) {
  if (bytes == 0) return;
  void* mapped = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (mapped == MAP_FAILED) devinit_fail("mmap", errno);
  bytes_ = static_cast<unsigned char*>(mapped);
}

Memory::Memory(Memory&& other) noexcept
    : bytes_(std::exchange(other.bytes_, nullptr)), size_(other.size_) {}

Memory::~Memory() {
  if (bytes_ != nullptr) munmap(bytes_, size_);
}

IoBuffers::IoBuffers()
    : memory_(buffers_size + huge_page), pattern_(align_to_huge_page(memory_.bytes())) {
  madvise(pattern_, buffers_size, MADV_HUGEPAGE);  // a kernel without huge pages is only slower
  fill_pattern(pattern_);
}
