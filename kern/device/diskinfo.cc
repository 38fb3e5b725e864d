#include "kern/device/diskinfo.h"

#include <cstring>

#include "kern/device/bigendian.h"

namespace {

class Encoder {
 public:
  explicit Encoder(unsigned char* to) : at_(to) {}
  template <class T>
  void plain(const T& value) {
    at_ = store_plain(at_, value);
  }
  template <class T>
  void biased(const T& value) {
    at_ = store_biased(at_, value);
  }
  unsigned char* end() const { return at_; }

 private:
  unsigned char* at_;
};

class Decoder {
 public:
  explicit Decoder(const unsigned char* from) : at_(from) {}
  template <class T>
  void plain(T& value) {
    at_ = load_plain(at_, value);
  }
  template <class T>
  void biased(T& value) {
    at_ = load_biased(at_, value);
  }
  const unsigned char* end() const { return at_; }

 private:
  const unsigned char* at_;
};

// The layout, in the order of the bytes; both directions go through these two functions.
template <class Coder, class Info>
void code_common_fields(Coder& coder, Info& info) {
  coder.plain(info.flip);
  coder.biased(info.seconds);
  coder.plain(info.microseconds);
  coder.biased(info.signature);
  for (auto& character : info.name) coder.biased(character);
  coder.biased(info.device_number);
  coder.biased(info.reserved_a);
  coder.plain(info.reserved_b);
  coder.plain(info.block_size);
  coder.biased(info.device_type);
  coder.biased(info.bitmap_switch);
  coder.biased(info.disk_based_recovery);
  coder.plain(info.flop);
}

template <class Coder, class Info>
void code_extension(Coder& coder, Info& info) {
  coder.plain(info.info_header_offset);
  coder.plain(info.data_blocks_offset);
  coder.plain(info.second_flop);
}

}  // namespace

DiskInfo::DiskInfo(const char* device_name, std::uint32_t total_blocks,
                   std::uint16_t bytes_per_block, std::int32_t number, std::int8_t type,
                   std::uint32_t guard)
    : blocks(total_blocks),
      flip(guard),
      device_number(number),
      block_size(bytes_per_block),
      device_type(type),
      flop(guard),
      second_flop(guard) {
  std::memcpy(name, device_name, strnlen(device_name, name_size));
}

unsigned char* DiskInfo::put(unsigned char* buffer) const {
  Encoder encoder(buffer);
  code_common_fields(encoder, *this);
  code_extension(encoder, *this);
  return encoder.end();
}

const unsigned char* DiskInfo::get(const unsigned char* buffer) {
  Decoder decoder(buffer);
  code_common_fields(decoder, *this);
  if (signature >= current_signature) {
    code_extension(decoder, *this);
  } else {
    info_header_offset = older_header_offset;
    data_blocks_offset = older_data_offset;
    second_flop = flop;
  }
  return decoder.end();
}

std::uint64_t DiskInfo::bitmap_block_count() const {
  return is_data_device() && bitmap_switch != 0 ? bitmap_blocks(blocks, block_size) : 0;
}

std::uint64_t DiskInfo::bitmap_offset() const {
  return data_blocks_offset + data_block_count() * block_size;
}

bool DiskInfo::has_possible_block_size() const {
  return block_size >= min_block_size && block_size % 4 == 0;
}

bool DiskInfo::has_possible_offsets() const {
  const std::uint64_t bytes = std::uint64_t{blocks} * block_size;
  return data_blocks_offset <= INT64_MAX - bytes;
}

std::uint32_t DiskInfo::timestamp_hash() const {
  return static_cast<std::uint32_t>(seconds) * 10 + microseconds / 100000;
}
