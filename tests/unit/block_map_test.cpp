#include "backup/block_map.h"

#include <gtest/gtest.h>
#include <new>
#include <vector>

namespace velkora {
namespace {

using ByteList = std::vector<std::byte>;

const ByteList kBytes = {std::byte{1}, std::byte{2}, std::byte{3}};

TEST(BlockMap, ANewBlockIsZero) {
  BlockMap blocks;
  EXPECT_EQ(SelectBlock(blocks, 512, 4), ByteList(4));
  EXPECT_EQ(blocks.size(), 1U);
}

TEST(BlockMap, BytesAreCopied) {
  BlockMap blocks;
  SelectBytes(blocks, 7, kBytes);
  EXPECT_EQ(blocks, (BlockMap{{7, kBytes}}));
}

TEST(BlockMap, TheLastSelectionOfAnOffsetWins) {
  BlockMap blocks;
  SelectBytes(blocks, 7, ByteList(10, std::byte{9}));
  SelectBytes(blocks, 7, kBytes);
  EXPECT_EQ(blocks, (BlockMap{{7, kBytes}}));
  SelectBytes(blocks, 7, ByteList(5, std::byte{4}));
  EXPECT_EQ(blocks, (BlockMap{{7, ByteList(5, std::byte{4})}}));
}

TEST(BlockMap, ABlockThatGrowsKeepsItsBytesInFrontOfZeros) {
  BlockMap blocks;
  SelectBytes(blocks, 7, kBytes);
  EXPECT_EQ(SelectBlock(blocks, 7, 5),
            (ByteList{kBytes[0], kBytes[1], kBytes[2], std::byte{0}, std::byte{0}}));
}

TEST(BlockMap, ABlockMayBeEmpty) {
  BlockMap blocks;
  SelectBytes(blocks, 7, kBytes);
  EXPECT_TRUE(SelectBlock(blocks, 7, 0).empty());
  EXPECT_EQ(blocks.size(), 1U);
}

TEST(BlockMap, EveryOffsetIsAKey) {
  BlockMap blocks;
  SelectBytes(blocks, 0, kBytes);
  SelectBytes(blocks, ~std::uint64_t{0}, kBytes);
  EXPECT_EQ(blocks.size(), 2U);
}

TEST(BlockMap, ALengthBehind32BitsHasNoMemory) {
  BlockMap blocks;
  EXPECT_THROW(SelectBlock(blocks, 0, std::uint64_t{1} << 32), std::bad_alloc);
  EXPECT_THROW(SelectBlock(blocks, 0, ~std::uint64_t{0}), std::bad_alloc);
}

}  // namespace
}  // namespace velkora
