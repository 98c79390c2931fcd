// The FAT in memory and the places of a FAT32 volume.
#include "shrink/fat32_volume.h"

#include <cstring>
#include <gtest/gtest.h>
#include <vector>

#include "fat32_values.h"

namespace velkora {
namespace {

using testing_support::FaultOf;
using Clusters = std::vector<std::uint32_t>;

constexpr std::uint64_t kLast = 127;  // of a FAT of one sector

template <typename Body>
void ExpectFault(Body body) {
  EXPECT_EQ(FaultOf(body), EXCEPTION_ACCESS_VIOLATION);
}

TEST(FatTable, HasAnEntryForEachFourBytesAndNoFurtherOne) {
  FatTable fat(512);
  EXPECT_EQ(fat.size(), 512U);
  fat.SetEntry(0, 5);
  fat.SetEntry(kLast, 0x1F2345678);
  EXPECT_EQ(fat.Entry(0), 5U);
  EXPECT_EQ(fat.Entry(kLast), 0xF2345678U) << "whole, and cut to 32 bits";
  ExpectFault([&] { fat.Entry(kLast + 1); });
  ExpectFault([&] { fat.SetEntry(kLast + 1, 5); });
  for (const std::uint64_t index : {std::uint64_t{1} << 62, ~std::uint64_t{0}}) {
    ExpectFault([&] { fat.Entry(index); });
    ExpectFault([&] { fat.SetEntry(index, 5); });
  }
}

TEST(FatTable, FreesThatManyEntriesUpToTheLast) {
  FatTable fat(512);
  for (std::uint64_t i = 0; i <= kLast; ++i) fat.SetEntry(i, 9);
  fat.Free(10, 3);
  fat.Free(kLast - 1, 2);
  fat.Free(20, 0);
  for (std::uint64_t i = 0; i <= kLast; ++i) {
    const bool freed = (i >= 10 && i < 13) || i >= kLast - 1;
    EXPECT_EQ(fat.Entry(i), freed ? 0U : 9U) << i;
  }
  ExpectFault([&] { fat.Free(kLast, 2); });
}

TEST(FatTable, ChainsClustersToTheNextOrToTheEnd) {
  FatTable fat(512);
  fat.Chain(10, 3, 77);
  EXPECT_EQ((Clusters{fat.Entry(9), fat.Entry(10), fat.Entry(11), fat.Entry(12), fat.Entry(13)}),
            (Clusters{0, 11, 12, 77, 0}));
  fat.Chain(kLast, 1, 0);
  EXPECT_EQ(fat.Entry(kLast), 0x0FFFFFFFU);
  ExpectFault([&] { fat.Chain(kLast, 2, 0); });
  ExpectFault([&] { fat.Chain(10, 0, 77); });
  EXPECT_EQ(fat.Entry(9), 0U);
}

TEST(FatTable, FollowsAChainToItsEndOrTheLimit) {
  FatTable fat(512);
  fat.Chain(10, 4, 0);
  EXPECT_EQ(fat.Follow(10, 9), (Clusters{10, 11, 12, 13}));
  EXPECT_EQ(fat.Follow(10, 4), (Clusters{10, 11, 12, 13}));
  EXPECT_EQ(fat.Follow(10, 3), (Clusters{10, 11, 12}));
  EXPECT_EQ(fat.Follow(10, 1), (Clusters{10}));
  EXPECT_EQ(fat.Follow(10, 0), (Clusters{10}));
  // The limit is told by the number of clusters, before the entry of the last is looked at.
  EXPECT_EQ(fat.Follow(kLast + 1, 1), (Clusters{128}));
  ExpectFault([&] { fat.Follow(kLast + 1, 2); });
}

TEST(FatTable, ChainsEndFrom0x0FFFFFF8To0x0FFFFFFF) {
  FatTable fat(512);
  for (const std::uint32_t end : {0x0FFFFFF8U, 0x0FFFFFFFU}) {
    fat.SetEntry(5, end);
    EXPECT_EQ(fat.Follow(5, 2), (Clusters{5}));
  }
  for (const std::uint32_t next : {0x0FFFFFF7U, 0x10000000U}) {
    fat.SetEntry(5, next);
    EXPECT_EQ(fat.Follow(5, 2), (Clusters{5, next}));
  }
}

TEST(SetFirstCluster, WritesBothHalvesOfAnEntryUpToTheDirectorysEnd) {
  std::vector<std::byte> directory(96, std::byte{0xEE});
  SetFirstCluster(directory, 64, 0x987654321);
  for (std::size_t i = 0; i < directory.size(); ++i) {
    const bool written = i == 64 + 20 || i == 64 + 21 || i == 64 + 26 || i == 64 + 27;
    EXPECT_EQ(directory[i] != std::byte{0xEE}, written) << i;
  }
  Fat32DirectoryEntry entry;
  std::memcpy(&entry, &directory[64], sizeof entry);
  EXPECT_EQ(FirstCluster(entry), 0x87654321U);
  ExpectFault([&] { SetFirstCluster(directory, 65, 5); });
}

TEST(Fat32Geometry, DataBeginsBehindTwoFats) {
  Fat32BootSector boot{};
  boot.sectors_per_cluster = 8;
  boot.reserved_sectors = 32;
  boot.fat_sectors_low = 1000;
  boot.fat_sectors_high = 1;
  const Fat32Geometry geometry(boot);
  EXPECT_EQ(geometry.cluster_bytes, 4096U);
  EXPECT_EQ(geometry.fat_bytes, 512'000U);
  EXPECT_EQ(geometry.first_fat, 16'384U);
  EXPECT_EQ(geometry.second_fat, 528'384U);
  EXPECT_EQ(geometry.data_start, 1'040'384U);
  EXPECT_EQ(geometry.PositionOf(2), 1'040'384U);
  EXPECT_EQ(geometry.PositionOf(5), 1'040'384U + 3 * 4096);
}

}  // namespace
}  // namespace velkora
