// A device as somebody sees it who knows nothing but the layout: reads its bytes, stamps blocks as
// the database does. Current layout only, header at 8192, data blocks from 12288.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <string>

inline std::string bytes_at(const std::string& file, std::int64_t offset, std::size_t size) {
  std::string bytes(size, '?');
  const int fd = open(file.c_str(), O_RDONLY | O_CLOEXEC);
  const ssize_t moved = pread(fd, bytes.data(), size, offset);
  close(fd);
  bytes.resize(moved > 0 ? static_cast<std::size_t>(moved) : 0);
  return bytes;
}

inline void put_at(const std::string& file, std::int64_t offset, const std::string& bytes) {
  const int fd = open(file.c_str(), O_WRONLY | O_CLOEXEC);
  EXPECT_EQ(pwrite(fd, bytes.data(), bytes.size(), offset), static_cast<ssize_t>(bytes.size()));
  close(fd);
}

inline std::string big_endian(std::uint32_t value) {
  std::string bytes;
  for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(value >> shift);
  return bytes;
}

inline std::uint32_t word_at(const std::string& file, std::int64_t offset) {
  std::uint32_t value = 0;
  for (const char c : bytes_at(file, offset, 4)) value = value << 8 | static_cast<unsigned char>(c);
  return value;
}

inline std::uint32_t hash_of(const std::string& file) {
  return (word_at(file, 8196) ^ 0x80000000) * 10 + word_at(file, 8200) / 100000;
}

struct Stamp {
  std::uint32_t flip, device, id, flop;
};

inline void stamp_block(const std::string& file, std::int64_t block_size, std::int64_t block,
                        const Stamp& stamp) {
  const std::int64_t offset = 12288 + block * block_size;
  put_at(file, offset,
         big_endian(stamp.flip ^ 0x80000000) + big_endian(stamp.device << 24 | stamp.id));
  put_at(file, offset + block_size - 4, big_endian(stamp.flop ^ 0x80000000));
}

inline Stamp stamp_at(const std::string& file, std::int64_t block_size, std::int64_t block) {
  const std::int64_t offset = 12288 + block * block_size;
  const std::uint32_t device_and_id = word_at(file, offset + 4);
  return {word_at(file, offset) ^ 0x80000000, device_and_id >> 24, device_and_id & 0xffffff,
          word_at(file, offset + block_size - 4) ^ 0x80000000};
}

inline std::string pattern(std::size_t size) {
  std::string bytes(size, '\0');
  std::uint32_t value = 0;
  for (std::uint32_t i = 0; i < size; i += 4) {
    value = value * 374441 + i % 1048576 * 1771875;
    if (i % 1048576 == 0) value = 0;
    std::memcpy(bytes.data() + i, &value, 4);
  }
  return bytes;
}
