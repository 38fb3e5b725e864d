// A device as somebody sees it who knows nothing but the layout: reads its bytes, stamps blocks as
// the database does. Current layout only, header at 8192, data blocks from 12288.
#pragma once

#include <endian.h>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <string>

inline void put_at(const std::string& file, std::int64_t offset, const std::string& bytes) {
  std::fstream(file).seekp(offset) << bytes;
}

inline std::uint32_t word_at(const std::string& file, std::int64_t offset) {
  std::uint32_t word = 0;
  std::ifstream(file).seekg(offset).read(reinterpret_cast<char*>(&word), sizeof word);
  return be32toh(word);
}

inline std::uint32_t seconds_of(const std::string& file) {
  return word_at(file, 8196) ^ 0x80000000;
}

inline std::uint32_t hash_of(const std::string& file) {
  return seconds_of(file) * 10 + word_at(file, 8200) / 100000;
}

struct Stamp {
  std::uint32_t flip, device, id, flop;
};

inline std::string stamped_block(std::size_t size, const Stamp& stamp) {
  const std::uint32_t words[] = {htobe32(stamp.flip ^ 0x80000000),
                                 htobe32(stamp.device << 24 | stamp.id),
                                 htobe32(stamp.flop ^ 0x80000000)};
  std::string block(size, 'x');
  std::memcpy(block.data(), words, 8);
  std::memcpy(block.data() + size - 4, words + 2, 4);
  return block;
}

inline std::string pattern(std::size_t size) {
  std::string bytes(size, '\0');
  std::uint32_t value = 0;
  for (std::uint32_t i = 0; i < size; i += 4) {
    value = i % 1048576 == 0 ? 0 : value * 374441 + i % 1048576 * 1771875;
    std::memcpy(bytes.data() + i, &value, 4);
  }
  return bytes;
}
