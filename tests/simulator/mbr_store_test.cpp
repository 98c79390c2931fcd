#include "simulator/storage/mbr_store.h"

#include <array>
#include <gtest/gtest.h>
#include <vector>

#include "simulator/storage_disk.h"

namespace simulator {
namespace {

using storage_testing::ChainLayout;
using storage_testing::kMiB;
using storage_testing::kSignature;
using storage_testing::MbrRequest;
using storage_testing::MbrRow;
using storage_testing::OnePartition;
using storage_testing::RawRequest;
using storage_testing::ReadBack;
using storage_testing::StorageDisk;
using storage_testing::Write;

// ---- CREATE_DISK --------------------------------------------------------------------------------

TEST(CreateMbrDisk, KeepsBootCodeAndReservedBytesAndClearsEntries) {
  StorageDisk disk(64 * kMiB);
  ASSERT_TRUE(disk.FillSector(0, std::byte{0xA5}));
  ASSERT_EQ(CreateDisk(disk.device(), MbrRequest(kSignature)), ERROR_SUCCESS);
  const BootRecord record = disk.Record(0);
  for (const std::uint8_t byte : record.boot_code) ASSERT_EQ(byte, 0xA5);
  EXPECT_EQ(record.disk_signature, kSignature);
  EXPECT_EQ(record.reserved, 0xA5A5);
  EXPECT_EQ(record.boot_signature, kBootSignature);
  const auto bytes = disk.Sector(0);
  EXPECT_EQ(std::vector<std::byte>(bytes.begin() + 446, bytes.begin() + 510),
            std::vector<std::byte>(64));
}

TEST(CreateMbrDisk, WritesOnlySectorZero) {
  StorageDisk disk(64 * kMiB);
  const std::uint64_t last = disk.device().sector_count() - 1;
  ASSERT_TRUE(disk.FillSector(1, std::byte{1}) && disk.FillSector(last, std::byte{2}));
  const std::uint64_t before = disk.device().bytes_written();
  ASSERT_EQ(CreateDisk(disk.device(), MbrRequest(kSignature)), ERROR_SUCCESS);
  EXPECT_EQ(disk.device().bytes_written() - before, 512u);
  EXPECT_EQ(disk.Sector(1)[0], std::byte{1});
  EXPECT_EQ(disk.Sector(last)[0], std::byte{2});
}

TEST(CreateMbrDisk, ReadsBackAsFourUnusedRows) {
  StorageDisk disk(64 * kMiB);
  ASSERT_EQ(CreateDisk(disk.device(), MbrRequest(kSignature)), ERROR_SUCCESS);
  const DiskLayout layout = ReadBack(disk);
  EXPECT_EQ(layout.header.PartitionStyle, DWORD{PARTITION_STYLE_MBR});
  EXPECT_EQ(layout.header.Mbr.Signature, kSignature);
  ASSERT_EQ(layout.rows.size(), 4u);
  for (const auto& row : layout.rows) EXPECT_EQ(row.Mbr.PartitionType, 0);
}

TEST(CreateRawDisk, ClearsTheTableOfAnMbrDiskAndKeepsItsBootCode) {
  StorageDisk disk(64 * kMiB);
  ASSERT_TRUE(disk.FillSector(0, std::byte{0xA5}) && disk.FillSector(1, std::byte{1}));
  ASSERT_EQ(CreateDisk(disk.device(), MbrRequest(kSignature)), ERROR_SUCCESS);
  ASSERT_EQ(CreateDisk(disk.device(), RawRequest()), ERROR_SUCCESS);
  const BootRecord record = disk.Record(0);
  EXPECT_EQ(record.boot_code[439], 0xA5);
  EXPECT_EQ(record.disk_signature, 0u);
  EXPECT_EQ(record.reserved, 0xA5A5);
  EXPECT_EQ(record.boot_signature, 0);
  EXPECT_EQ(disk.Sector(1)[0], std::byte{1});
  const DiskLayout layout = ReadBack(disk);
  EXPECT_EQ(layout.header.PartitionStyle, DWORD{PARTITION_STYLE_RAW});
  EXPECT_TRUE(layout.rows.empty());
}

TEST(CreateDiskStyle, UnknownStyleIsNotSupported) {
  StorageDisk disk(64 * kMiB);
  CREATE_DISK request = RawRequest();
  request.PartitionStyle = static_cast<PARTITION_STYLE>(3);
  EXPECT_EQ(CreateDisk(disk.device(), request), ERROR_NOT_SUPPORTED);
  EXPECT_EQ(disk.device().bytes_written(), 0u);
}

// ---- GET layout ---------------------------------------------------------------------------------

TEST(ReadMbrLayout, DiskWithoutTheMarkIsRaw) {
  StorageDisk disk(64 * kMiB);
  DiskLayout layout = OnePartition();
  ASSERT_EQ(ReadLayout(disk.device(), layout), ERROR_SUCCESS);
  EXPECT_EQ(layout.header.PartitionStyle, DWORD{PARTITION_STYLE_RAW});
  EXPECT_EQ(layout.header.PartitionCount, 0u);
  EXPECT_TRUE(layout.rows.empty());
}

TEST(ReadMbrLayout, EveryTableGivesFourRowsInChainOrder) {
  StorageDisk disk(64 * kMiB);
  auto layout = ChainLayout(kSignature, 2);
  layout.rows[3] = MbrRow(0x0C, 40 * kMiB, 3 * kMiB, true);
  ASSERT_EQ(Write(disk, layout), ERROR_SUCCESS);
  const DiskLayout read = ReadBack(disk);
  ASSERT_EQ(read.rows.size(), 12u);
  for (std::size_t i = 0; i < read.rows.size(); ++i) {
    EXPECT_EQ(read.rows[i].StartingOffset.QuadPart, layout.rows[i].StartingOffset.QuadPart) << i;
    EXPECT_EQ(read.rows[i].PartitionLength.QuadPart, layout.rows[i].PartitionLength.QuadPart) << i;
    EXPECT_EQ(read.rows[i].Mbr.PartitionType, layout.rows[i].Mbr.PartitionType) << i;
    EXPECT_EQ(read.rows[i].Mbr.BootIndicator, layout.rows[i].Mbr.BootIndicator) << i;
    EXPECT_EQ(read.rows[i].RewritePartition, 0) << i;
    EXPECT_EQ(read.rows[i].PartitionStyle, PARTITION_STYLE_MBR) << i;
  }
}

TEST(ReadMbrLayout, NumbersCountDataRowsOnly) {
  StorageDisk disk(64 * kMiB);
  auto layout = ChainLayout(kSignature, 2);
  layout.rows[3] = MbrRow(0x0C, 40 * kMiB, 3 * kMiB);
  ASSERT_EQ(Write(disk, layout), ERROR_SUCCESS);
  std::vector<DWORD> numbers;
  for (const auto& row : ReadBack(disk).rows) numbers.push_back(row.PartitionNumber);
  EXPECT_EQ(numbers, (std::vector<DWORD>{0, 0, 0, 1, 2, 0, 0, 0, 3, 0, 0, 0}));
}

TEST(ReadMbrLayout, ContainersAreNotRecognizedAndHiddenSectorsAreAsOnDisk) {
  StorageDisk disk(64 * kMiB);
  ASSERT_EQ(Write(disk, ChainLayout(kSignature, 2)), ERROR_SUCCESS);
  const DiskLayout read = ReadBack(disk);
  EXPECT_EQ(read.rows[0].Mbr.RecognizedPartition, 0);
  EXPECT_EQ(read.rows[0].Mbr.HiddenSectors, 2048u);
  EXPECT_EQ(read.rows[1].Mbr.RecognizedPartition, 0);
  EXPECT_EQ(read.rows[4].Mbr.RecognizedPartition, 1);
  EXPECT_EQ(read.rows[4].Mbr.HiddenSectors, 2048u);
  EXPECT_EQ(read.rows[5].Mbr.RecognizedPartition, 0);
  EXPECT_EQ(read.rows[5].Mbr.HiddenSectors, 4096u);
}

TEST(ReadMbrLayout, IdentityIsSignatureAndByteOffset) {
  StorageDisk disk(64 * kMiB);
  ASSERT_EQ(Write(disk, OnePartition()), ERROR_SUCCESS);
  const DiskLayout read = ReadBack(disk);
  const GUID expected = {kSignature, 0, 0, {0, 0, 0x10, 0, 0, 0, 0, 0}};
  EXPECT_TRUE(storage_testing::SameGuid(read.rows[0].Mbr.PartitionId, expected));
  EXPECT_TRUE(storage_testing::SameGuid(read.rows[1].Mbr.PartitionId, GUID{}));
}

class ContainerTypes : public ::testing::TestWithParam<BYTE> {};

TEST_P(ContainerTypes, AreFollowed) {
  StorageDisk disk(64 * kMiB);
  auto layout = ChainLayout(kSignature, 1);
  layout.rows[0].Mbr.PartitionType = GetParam();
  ASSERT_EQ(Write(disk, layout), ERROR_SUCCESS);
  EXPECT_EQ(ReadBack(disk).rows.size(), 8u);
}

INSTANTIATE_TEST_SUITE_P(All, ContainerTypes, ::testing::Values(0x05, 0x0F, 0x15, 0x1F));

TEST(ReadMbrLayout, LinuxExtendedPartitionIsAnOrdinaryOne) {
  StorageDisk disk(64 * kMiB);
  ASSERT_EQ(Write(disk, OnePartition(0x85)), ERROR_SUCCESS);
  EXPECT_EQ(ReadBack(disk).rows.size(), 4u);
  EXPECT_EQ(ReadBack(disk).rows[0].PartitionNumber, 1u);
}

TEST(ReadMbrLayout, RecordWithoutTheMarkEndsTheChain) {
  StorageDisk disk(64 * kMiB);
  ASSERT_EQ(Write(disk, ChainLayout(kSignature, 3)), ERROR_SUCCESS);
  BootRecord record = disk.Record(6144);
  record.boot_signature = std::uint16_t{0};
  ASSERT_TRUE(disk.Put(6144, record));
  EXPECT_EQ(ReadBack(disk).rows.size(), 8u);
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

TEST(ReadMbrLayout, SectorZeroWithTwoContainersIsNoTable) {
  StorageDisk disk(64 * kMiB);
  auto layout = OnePartition(0x05);
  layout.rows[1] = MbrRow(0x0F, 30 * kMiB, kMiB);
  ASSERT_EQ(Write(disk, layout), ERROR_SUCCESS);
  EXPECT_EQ(ReadBack(disk).header.PartitionStyle, DWORD{PARTITION_STYLE_RAW});
}

TEST(ReadMbrLayout, SectorZeroWithAStartBehindTheDiskIsNoTable) {
  StorageDisk disk(64 * kMiB);
  auto layout = OnePartition();
  layout.rows[0] = MbrRow(7, 64 * kMiB, kMiB);
  ASSERT_EQ(Write(disk, layout), ERROR_SUCCESS);
  EXPECT_EQ(ReadBack(disk).header.PartitionStyle, DWORD{PARTITION_STYLE_MBR});
  layout.rows[0] = MbrRow(7, 64 * kMiB + 512, kMiB);
  ASSERT_EQ(Write(disk, layout), ERROR_SUCCESS);
  EXPECT_EQ(ReadBack(disk).header.PartitionStyle, DWORD{PARTITION_STYLE_RAW});
}

TEST(ReadMbrLayout, SectorZeroWithAnEndBehindTwiceTheDiskIsNoTable) {
  StorageDisk disk(64 * kMiB);
  auto layout = OnePartition();
  layout.rows[0] = MbrRow(7, kMiB, 127 * kMiB);
  ASSERT_EQ(Write(disk, layout), ERROR_SUCCESS);
  EXPECT_EQ(ReadBack(disk).header.PartitionStyle, DWORD{PARTITION_STYLE_MBR});
  layout.rows[0] = MbrRow(7, kMiB, 127 * kMiB + 512);
  ASSERT_EQ(Write(disk, layout), ERROR_SUCCESS);
  EXPECT_EQ(ReadBack(disk).header.PartitionStyle, DWORD{PARTITION_STYLE_RAW});
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
}  // namespace simulator
