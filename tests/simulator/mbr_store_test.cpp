#include "simulator/storage/mbr_store.h"

#include <gtest/gtest.h>

#include "simulator/storage_disk.h"

namespace simulator::storage_testing {
namespace {

// ---- CREATE_DISK --------------------------------------------------------------------------------

TEST(CreateDiskStyle, UnknownStyleIsNotSupported) {
  StorageDisk disk(64 * kMiB);
  CREATE_DISK request = RawRequest();
  request.PartitionStyle = static_cast<PARTITION_STYLE>(3);
  EXPECT_EQ(CreateDisk(disk.device(), request), ERROR_NOT_SUPPORTED);
  EXPECT_EQ(disk.device().bytes_written(), 0u);
}

// ---- GET layout ---------------------------------------------------------------------------------

TEST(ReadMbrLayout, LinuxExtendedPartitionIsAnOrdinaryOne) {
  StorageDisk disk(64 * kMiB);
  ASSERT_EQ(Write(disk, OnePartition(0x85)), ERROR_SUCCESS);
  EXPECT_EQ(ReadBack(disk).rows.size(), 4u);
  EXPECT_EQ(ReadBack(disk).rows[0].PartitionNumber, 1u);
}

TEST(ReadMbrLayout, RecordWithTwoContainersEndsTheChain) {
  StorageDisk disk(64 * kMiB);
  ASSERT_EQ(Write(disk, ChainLayout(kSignature, 3)), ERROR_SUCCESS);
  BootRecord record = disk.Record(6144);
  record.entries[2].type = 0x05;
  ASSERT_TRUE(disk.Put(6144, record));
  EXPECT_EQ(ReadBack(disk).rows.size(), 8u);
}

TEST(ReadMbrLayout, LoopInTheChainEndsIt) {
  StorageDisk disk(64 * kMiB);
  ASSERT_EQ(Write(disk, ChainLayout(kSignature, 3)), ERROR_SUCCESS);
  BootRecord record = disk.Record(10240);
  record.entries[1] = disk.Record(2048).entries[1];
  ASSERT_TRUE(disk.Put(10240, record));
  EXPECT_EQ(ReadBack(disk).rows.size(), 16u);
}

TEST(ReadMbrLayout, ContainerAtSectorZeroEndsTheChain) {
  StorageDisk disk(64 * kMiB);
  ASSERT_EQ(Write(disk, OnePartition(0x05)), ERROR_SUCCESS);
  BootRecord record = disk.Record(0);
  record.entries[0].first_sector = 0u;
  ASSERT_TRUE(disk.Put(0, record));
  EXPECT_EQ(ReadBack(disk).rows.size(), 4u);
}

TEST(ReadMbrLayout, LinkBehindTheEndOfTheDiskIsAFailedRead) {
  StorageDisk disk(64 * kMiB);
  ASSERT_EQ(Write(disk, ChainLayout(kSignature, 2)), ERROR_SUCCESS);
  BootRecord record = disk.Record(2048);
  record.entries[1].first_sector = 0xFFFFFFFFu;
  ASSERT_TRUE(disk.Put(2048, record));
  DiskLayout layout;
  EXPECT_EQ(ReadLayout(disk.device(), layout), ERROR_SECTOR_NOT_FOUND);
}

TEST(ReadMbrLayout, SectorZeroMayReachToTheDisksEndAndToTwiceItsLength) {
  StorageDisk disk(64 * kMiB);
  const auto style_with = [&disk](std::uint64_t start, std::uint64_t length) {
    auto layout = OnePartition();
    layout.rows[0] = MbrRow(7, start, length);
    EXPECT_EQ(Write(disk, layout), ERROR_SUCCESS);
    return ReadBack(disk).header.PartitionStyle;
  };
  EXPECT_EQ(style_with(64 * kMiB, kMiB), DWORD{PARTITION_STYLE_MBR});
  EXPECT_EQ(style_with(64 * kMiB + 512, kMiB), DWORD{PARTITION_STYLE_RAW});
  EXPECT_EQ(style_with(kMiB, 127 * kMiB), DWORD{PARTITION_STYLE_MBR});
  EXPECT_EQ(style_with(kMiB, 127 * kMiB + 512), DWORD{PARTITION_STYLE_RAW});
}

TEST(ReadMbrLayout, ProtectiveEntryBesideAnotherIsAnMbrDisk) {
  StorageDisk disk(64 * kMiB);
  auto layout = OnePartition(0xEE);
  layout.rows[1] = MbrRow(0x07, 20 * kMiB, kMiB);
  ASSERT_EQ(Write(disk, layout), ERROR_SUCCESS);
  EXPECT_EQ(ReadBack(disk).header.PartitionStyle, DWORD{PARTITION_STYLE_MBR});
}

TEST(ReadMbrLayout, ChainOfThreeHundredRecordsIsReadWhole) {
  StorageDisk disk(700 * kMiB);
  ASSERT_EQ(Write(disk, ChainLayout(kSignature, 300)), ERROR_SUCCESS);
  const DiskLayout read = ReadBack(disk);
  ASSERT_EQ(read.rows.size(), 4u * 301);
  EXPECT_EQ(read.rows[1200].PartitionNumber, 300u);
}

}  // namespace
}  // namespace simulator::storage_testing
