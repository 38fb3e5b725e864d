// The bytes of the info header, the geometry that it fixes, and the judgement of block stamps.
#include "kern/device/diskinfo.h"

#include <gtest/gtest.h>

#include "kern/device/blockstamp.h"

namespace {

std::string put(const DiskInfo& info) {
  unsigned char bytes[316];
  EXPECT_EQ(info.put(bytes), bytes + sizeof bytes);
  return {bytes, bytes + sizeof bytes};
}

std::ptrdiff_t get(DiskInfo& info, const std::string& bytes) {
  const auto* from = reinterpret_cast<const unsigned char*>(bytes.data());
  return info.get(from) - from;
}

TEST(DiskInfo, EveryByteHasItsPlaceAndGetMirrorsPut) {
  DiskInfo info("/d\xff", 7, 8192, 3, 1, 0xaaaa);
  info.seconds = 0x01020304;
  info.microseconds = 0x05060708;
  info.bitmap_switch = 0x11223344;
  info.info_header_offset = 0x0102030405060708;
  std::string expected("\0\0\xaa\xaa\x81\2\3\4\5\6\7\x8\x81\xdf\x5e\x78\xaf\xe4\x7f", 19);
  expected += std::string(253, '\x80');
  expected += std::string("\x80\0\0\3\x7f\xff\xff\xff\0\0\0\0\x20\0\x81\x91\x22\x33\x44\x81", 20);
  expected += std::string("\0\0\xaa\xaa\1\2\3\4\5\6\7\x8\0\0\0\0\0\0\x30\0\0\0\xaa\xaa", 24);
  EXPECT_EQ(put(info), expected);
  DiskInfo read;
  EXPECT_EQ(get(read, expected), 316);
  EXPECT_EQ(put(read), expected);

  const DiskInfo longest(std::string(300, 'x').c_str(), 1, 1024, 0, 0, 1);
  EXPECT_EQ(put(longest).substr(16, 256), std::string(256, '\xf8'));
}

TEST(DiskInfo, TheOlderLayoutEndsBeforeTheExtension) {
  DiskInfo info;
  const std::string current = put(DiskInfo("n", 1, 1024, 0, 0, 0x1234));
  EXPECT_EQ(get(info, std::string(current).replace(12, 4, "\x81\xdf\x5e\x77")), 296);
  EXPECT_EQ(info.info_header_offset, 0U);
  EXPECT_EQ(info.data_blocks_offset, 2048U);
  EXPECT_EQ(info.second_flop, 0x1234U);
}

TEST(DiskInfo, BitmapBlocksAreTheFewestThatDo) {
  const std::uint32_t cases[][3] = {
      {0, 8192, 0}, {8193, 1024, 1}, {8194, 1024, 2}, {5, 0, 5}, {UINT32_MAX, 1024, 524225}};
  for (const auto& [blocks, size, bitmap] : cases) EXPECT_EQ(bitmap_blocks(blocks, size), bitmap);
}

TEST(BlockStamp, BlockIdsWrap) {
  const DiskInfo info("n", 1, 1024, 3, 0, 1);
  EXPECT_EQ(judge_stamp({0, 3, 5, 0}, info, 0x1000005), BlockState::VERIFIED);
}

}  // namespace
