// The info header of a device: the record that names it, fixes its geometry and carries its
// creation time, and the conversion of that record from and to the bytes on the device. `put` and
// `get` are mirrors of each other; neither judges what it carries.
#pragma once

#include <cstddef>
#include <cstdint>

// Smallest B with B * 8 * block_size >= blocks - B; 0 for no blocks. Blocks up to 2^63.
constexpr std::uint64_t bitmap_blocks(std::uint64_t blocks, std::uint32_t block_size) {
  const std::uint64_t bits = std::uint64_t{8} * block_size;
  return (blocks + bits) / (bits + 1);
}

// Whether the bitmap tells that the database has this data block in its cache.
inline bool is_cached(const unsigned char* bitmap, std::uint64_t block) {
  return (bitmap[block / 8] >> (block % 8) & 1) != 0;
}

struct DiskInfo {
  static constexpr std::int32_t current_signature = 31415928;
  static constexpr std::int32_t older_signature = 31415927;
  static constexpr std::size_t name_size = 256;
  static constexpr std::size_t encoded_size = 316;  // of the current layout
  static constexpr std::uint64_t current_header_offset = 8192;
  static constexpr std::uint64_t current_data_offset = 12288;
  static constexpr unsigned current_header_region = current_data_offset - current_header_offset;
  static constexpr std::uint64_t older_header_offset = 0;
  static constexpr std::uint64_t older_data_offset = 2048;
  static constexpr unsigned older_header_region = older_data_offset - older_header_offset;
  static constexpr std::uint32_t min_block_size = 12;  // bytes that the stamp of a block needs

  std::uint32_t blocks = 0;  // data and bitmap blocks; not stored
  std::uint32_t unstored_a = 1;
  std::uint32_t unstored_b = 0;
  std::uint32_t flip = 666;
  std::int32_t seconds = 0;  // creation time since 1970
  std::uint32_t microseconds = 0;
  std::int32_t signature = current_signature;
  char name[name_size] = {};  // no terminator when all 256 characters are used
  std::int32_t device_number = -1;
  std::int32_t reserved_a = -1;
  std::uint32_t reserved_b = 0;
  std::uint16_t block_size = 0;  // bytes
  std::int8_t device_type = 0;   // 0: data device; otherwise log device
  std::int32_t bitmap_switch = 0;
  std::int8_t disk_based_recovery = 1;
  std::uint32_t flop = 666;
  std::uint32_t unstored_c[2] = {};
  std::uint64_t info_header_offset = current_header_offset;  // bytes
  std::uint64_t data_blocks_offset = current_data_offset;    // bytes
  std::uint32_t second_flop = 666;

  DiskInfo() = default;
  // A name of 256 characters or more is cut at 256.
  DiskInfo(const char* device_name, std::uint32_t total_blocks, std::uint16_t bytes_per_block,
           std::int32_t number, std::int8_t type, std::uint32_t guard);

  // Writes the 316 bytes of the current layout, whatever the signature; returns the end.
  unsigned char* put(unsigned char* buffer) const;
  // Reads up to 316 bytes; returns the end of what the layout of the signature uses.
  const unsigned char* get(const unsigned char* buffer);

  bool is_data_device() const { return device_type == 0; }
  // False when the write of the header was torn.
  bool guards_agree() const { return flip == flop || flip == second_flop; }
  std::uint64_t bitmap_block_count() const;
  std::uint64_t data_block_count() const { return blocks - bitmap_block_count(); }
  // Where the bitmap begins: behind the data blocks, in bytes.
  std::uint64_t bitmap_offset() const;
  // A header that was read may hold any figures. Whether its blocks can carry stamps; whether all
  // blocks lie at offsets below 2^63.
  bool has_possible_block_size() const;
  bool has_possible_offsets() const;
  // The creation time in tenths of a second, modulo 2^32: what every written block carries.
  std::uint32_t timestamp_hash() const;
};
