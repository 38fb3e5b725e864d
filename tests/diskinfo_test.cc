// The bytes of the info header and of the block stamps, and the geometry.
#include "kern/diskinfo.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

#include "kern/blockstamp.h"

namespace {

using Header = std::array<unsigned char, 400>;

std::string put(const DiskInfo& info) {
  Header bytes{};
  EXPECT_EQ(info.put(bytes.data()), bytes.data() + 316);
  return {reinterpret_cast<char*>(bytes.data()), 316};
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

  // Bytes that are all different, but for the signature.
  std::string bytes(316, '\0');
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i * 7 + i / 256);
  bytes.replace(12, 4, "\x81\xdf\x5e\x78");
  DiskInfo read;
  const auto* from = reinterpret_cast<const unsigned char*>(bytes.data());
  EXPECT_EQ(read.get(from), from + 316);
  EXPECT_EQ(put(read), bytes);

  const DiskInfo longest(std::string(300, 'x').c_str(), 1, 1024, 0, 0, 1);
  EXPECT_EQ(put(longest).substr(16, 256), std::string(256, '\xf8'));
}

TEST(DiskInfo, TheSignatureDecidesAboutTheExtension) {
  const struct {
    std::uint32_t stored;
    std::int32_t signature;
    int used;
  } cases[] = {{0x81df5e78, 31415928, 316},
               {0x81df5e77, 31415927, 296},
               {0x81df5e79, 31415929, 316},
               {0x01df5e78, 31415928 - INT32_MAX - 1, 296}};
  for (const auto& c : cases) {
    Header bytes{};
    DiskInfo("n", 1, 1024, 0, 0, 0x1234).put(bytes.data());
    for (unsigned i = 0; i < 4; ++i) {
      bytes.at(12 + i) = static_cast<unsigned char>(c.stored >> (24 - 8 * i));
    }
    DiskInfo info;
    info.second_flop = 0;
    EXPECT_EQ(info.get(bytes.data()) - bytes.data(), c.used);
    EXPECT_EQ(info.signature, c.signature);
    EXPECT_EQ(info.info_header_offset, c.used == 316 ? 8192U : 0U);
    EXPECT_EQ(info.data_blocks_offset, c.used == 316 ? 12288U : 2048U);
    EXPECT_EQ(info.second_flop, 0x1234U);
  }
}

TEST(DiskInfo, Geometry) {
  // Blocks, block size, bitmap blocks.
  const std::uint32_t cases[][3] = {{0, 8192, 0},
                                    {1, 1024, 1},
                                    {2, 1024, 1},
                                    {8193, 1024, 1},
                                    {8194, 1024, 2},
                                    {16386, 1024, 2},
                                    {16387, 1024, 3},
                                    {100000, 8192, 2},
                                    {5, 0, 5},
                                    {2147483647, 32768, 8192},
                                    {UINT32_MAX, 1024, 524225}};
  for (const auto& [blocks, block_size, bitmap] : cases) {
    DiskInfo info("n", blocks, static_cast<std::uint16_t>(block_size), 0, 0, 1);
    EXPECT_EQ(info.data_block_count(), blocks);
    info.bitmap_switch = 1;
    EXPECT_EQ(info.bitmap_block_count(), bitmap) << blocks << "x" << block_size;
    EXPECT_EQ(info.data_block_count(), blocks - bitmap);
    info.device_type = 1;
    EXPECT_EQ(info.data_block_count(), blocks);
  }
}

TEST(BlockStamp, Judgement) {
  DiskInfo info("n", 1, 1024, 3, 0, 1);
  info.seconds = 1700000000;
  info.microseconds = 999999;
  ASSERT_EQ(info.timestamp_hash(), 4115098121U);  // 17000000009 modulo 2^32
  const std::uint32_t hash = info.timestamp_hash();
  const struct {
    BlockStamp stamp;
    std::uint64_t position;
    BlockState state;
  } cases[] = {{{hash, 3, 5, hash}, 5, BlockState::VERIFIED},
               {{hash ^ 1, 3, 5, hash ^ 1}, 5, BlockState::VERIFIED},
               {{hash ^ 2, 3, 5, hash ^ 2}, 5, BlockState::UNUSED},
               {{hash, 3, 5, hash ^ 1}, 5, BlockState::CORRUPT},
               {{hash, 2, 5, hash}, 5, BlockState::CORRUPT},
               {{hash, 3, 5, hash}, 6, BlockState::CORRUPT},
               {{hash, 3, 5, hash}, 0x1000005, BlockState::VERIFIED}};
  for (const auto& c : cases) EXPECT_EQ(judge_stamp(c.stamp, info, c.position), c.state);

  const unsigned char block[] = {0x81, 2, 3, 4, 0xfe, 0xfd, 0, 1, 9, 9, 9, 9, 0x7f, 0, 0, 5};
  const BlockStamp stamp = read_stamp(block, sizeof block);
  EXPECT_EQ(stamp.flip, 0x01020304U);
  EXPECT_EQ(stamp.device_number, 0xfe);
  EXPECT_EQ(stamp.block_id, 0xfd0001U);
  EXPECT_EQ(stamp.flop, 0xff000005U);
}

}  // namespace
