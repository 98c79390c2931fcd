#include "simulator/storage/fat32_format.h"

#include <gtest/gtest.h>
#include <vector>

#include "simulator/storage/file_system_probe.h"
#include "simulator/storage_disk.h"

namespace simulator::storage_testing {
namespace {

constexpr std::uint64_t kGiB = 1024 * kMiB;

Fat32BootSector Boot(StorageDisk& disk, std::uint64_t sector) {
  return Load<Fat32BootSector>(disk.Sector(sector));
}

TEST(FormatFat32, BootSectorDescribesTheVolume) {
  StorageDisk disk(400 * kMiB);
  ASSERT_EQ(FormatFat32(disk.device(), {kMiB, 300 * kMiB, 2048, 0x12345678}), ERROR_SUCCESS);
  const Fat32BootSector boot = Boot(disk, 2048);
  EXPECT_EQ(boot.bytes_per_sector, 512);
  EXPECT_EQ(boot.sectors_per_cluster, 8);
  EXPECT_EQ(boot.reserved_sectors, 32);
  EXPECT_EQ(boot.fat_count, 2);
  EXPECT_EQ(boot.media, 0xF8);
  EXPECT_EQ(boot.hidden_sectors, 2048u);
  EXPECT_EQ(boot.total_sectors, 300u * 2048);
  EXPECT_EQ(boot.root_cluster, 2u);
  EXPECT_EQ(boot.serial_number, 0x12345678u);
  EXPECT_EQ(boot.boot_signature, kBootSignature);
}

TEST(FormatFat32, FatHasAnEntryForEveryClusterAndIsNoSectorTooLong) {
  for (const std::uint64_t mib : {34u, 100u, 260u, 300u, 1000u}) {
    StorageDisk disk(mib * kMiB);
    ASSERT_EQ(FormatFat32(disk.device(), {0, mib * kMiB, 0, 1}), ERROR_SUCCESS) << mib;
    const Fat32BootSector boot = Boot(disk, 0);
    const std::uint64_t data = boot.total_sectors - 32 - 2 * std::uint64_t{boot.fat_sectors};
    const std::uint64_t entries = data / boot.sectors_per_cluster + 2;
    EXPECT_GE(boot.fat_sectors * std::uint64_t{128}, entries) << mib;
    EXPECT_LE(boot.fat_sectors, (entries + 127) / 128 + 1) << mib;
  }
}

TEST(FormatFat32, BackupsInfoAndBothFatsAgree) {
  StorageDisk disk(300 * kMiB);
  ASSERT_EQ(FormatFat32(disk.device(), {0, 300 * kMiB, 0, 1}), ERROR_SUCCESS);
  EXPECT_EQ(disk.Sector(0), disk.Sector(6));
  EXPECT_EQ(disk.Sector(1), disk.Sector(7));
  const Fat32BootSector boot = Boot(disk, 0);
  const auto info = Load<Fat32FsInfo>(disk.Sector(1));
  const std::uint32_t data = boot.total_sectors - 32 - 2 * boot.fat_sectors;
  EXPECT_EQ(info.free_clusters, data / boot.sectors_per_cluster - 1);
  EXPECT_EQ(info.next_free_cluster, 3u);
  const auto fat = disk.Sector(32);
  EXPECT_EQ(Load<Little32>(fat), 0x0FFFFFF8u);
  EXPECT_EQ(Load<Little32>(std::span(fat).subspan(8)), 0x0FFFFFFFu);
  EXPECT_EQ(Load<Little32>(std::span(fat).subspan(12)), 0u);
  EXPECT_EQ(disk.Sector(32 + boot.fat_sectors), fat);
}

TEST(FormatFat32, ClearsOldMetadataAndNothingOutsideTheRange) {
  StorageDisk disk(302 * kMiB);
  for (const std::uint64_t sector : {2047u, 2050u, 2048u + 32 + 5, 2048u + 300 * 2048}) {
    ASSERT_TRUE(disk.FillSector(sector, std::byte{0xA5}));
  }
  ASSERT_EQ(FormatFat32(disk.device(), {kMiB, 300 * kMiB, 2048, 1}), ERROR_SUCCESS);
  EXPECT_EQ(disk.Sector(2050), std::vector<std::byte>(512));
  EXPECT_EQ(disk.Sector(2048 + 32 + 5), std::vector<std::byte>(512));
  EXPECT_EQ(disk.Sector(2047)[0], std::byte{0xA5});
  EXPECT_EQ(disk.Sector(2048 + 300 * 2048)[0], std::byte{0xA5});
}

struct ClusterCase {
  std::uint64_t length;
  std::uint32_t cluster_size;
};

class CustomaryClusters : public ::testing::TestWithParam<ClusterCase> {};

TEST_P(CustomaryClusters, FollowTheLength) {
  StorageDisk disk(GetParam().length);
  ASSERT_EQ(FormatFat32(disk.device(), {0, GetParam().length, 0, 1}), ERROR_SUCCESS);
  const FileSystemInfo info = ProbeFileSystem(disk.device(), 0);
  EXPECT_EQ(info.kind, FileSystem::kFat32);
  EXPECT_EQ(info.cluster_size, GetParam().cluster_size);
  EXPECT_EQ(info.total_sectors, GetParam().length / 512);
}

INSTANTIATE_TEST_SUITE_P(All, CustomaryClusters,
                         ::testing::Values(ClusterCase{260 * kMiB, 512},
                                           ClusterCase{261 * kMiB, 4096},
                                           ClusterCase{8 * kGiB, 4096}, ClusterCase{9 * kGiB, 8192},
                                           ClusterCase{17 * kGiB, 16384},
                                           ClusterCase{33 * kGiB, 32768}));

TEST(FormatFat32, LargeSectorsMakeAVolumeOfLargeSectors) {
  StorageDisk disk(300 * kMiB, 4096);
  ASSERT_EQ(FormatFat32(disk.device(), {0, 300 * kMiB, 0, 1}), ERROR_SUCCESS);
  EXPECT_EQ(Boot(disk, 0).bytes_per_sector, 4096);
  EXPECT_EQ(Boot(disk, 0).sectors_per_cluster, 1);
  EXPECT_EQ(Load<Fat32FsInfo>(disk.Sector(1)).lead_signature, kFsInfoLeadSignature);
}

TEST(FormatFat32, RangeTooSmallForFat32IsRefusedUntouched) {
  StorageDisk disk(64 * kMiB);
  EXPECT_EQ(FormatFat32(disk.device(), {0, 32 * kMiB, 0, 1}), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(FormatFat32(disk.device(), {0, 0, 0, 1}), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(FormatFat32(disk.device(), {0, 33 * 512, 0, 1}), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(disk.device().bytes_written(), 0u);
}

TEST(FormatFat32, RangeBehindTheEndIsRefusedUntouched) {
  StorageDisk disk(64 * kMiB);
  EXPECT_EQ(FormatFat32(disk.device(), {kMiB, 64 * kMiB, 0, 1}), ERROR_SECTOR_NOT_FOUND);
  EXPECT_EQ(FormatFat32(disk.device(), {~std::uint64_t{0}, 40 * kMiB, 0, 1}),
            ERROR_SECTOR_NOT_FOUND);
  EXPECT_EQ(disk.device().bytes_written(), 0u);
}

TEST(FormatFat32, MoreSectorsThanItCanCountAreRefused) {
  StorageDisk disk(64 * kMiB);
  EXPECT_EQ(FormatFat32(disk.device(), {0, 2048 * kGiB, 0, 1}), ERROR_INVALID_PARAMETER);
}

}  // namespace
}  // namespace simulator::storage_testing
