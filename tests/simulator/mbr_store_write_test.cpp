#include <gtest/gtest.h>

#include "simulator/storage/mbr_store.h"
#include "simulator/storage_disk.h"

namespace simulator::storage_testing {
namespace {

constexpr std::uint64_t kTiB = std::uint64_t{1} << 40;
constexpr std::uint64_t kNegative = ~std::uint64_t{0} - 511;

// ---- SET layout ---------------------------------------------------------------------------------

TEST(WriteMbrLayout, CylinderIsCappedWhileHeadAndSectorGoOn) {
  StorageDisk disk(64 * kMiB);
  const std::uint64_t start_sector = std::uint64_t{2000} * 255 * 63 + 5 * 63 + 6;
  auto layout = OnePartition();
  layout.rows[0] = MbrRow(7, start_sector * 512, 512);
  ASSERT_EQ(Write(disk, layout), ERROR_SUCCESS);
  const Chs expected = {5, 0xC0 | 7, 0xFF};
  EXPECT_EQ(disk.Record(0).entries[0].first_chs, expected);
  EXPECT_EQ(disk.Record(0).entries[0].last_chs, expected);
}

TEST(WriteMbrLayout, UnusedRowsAreZeroedWhateverTheyHold) {
  StorageDisk disk(64 * kMiB);
  auto layout = OnePartition();
  layout.rows[1] = MbrRow(0, 20 * kMiB, 5 * kMiB);
  ASSERT_EQ(Write(disk, layout), ERROR_SUCCESS);
  const MbrEntry entry = disk.Record(0).entries[1];
  EXPECT_EQ(entry.first_sector, 0u);
  EXPECT_EQ(entry.sector_count, 0u);
  EXPECT_EQ(entry.first_chs, Chs{});
  EXPECT_EQ(entry.last_chs, Chs{});
}

TEST(WriteMbrLayout, KeepsTheRestOfALargeSector) {
  StorageDisk disk(64 * kMiB, 4096);
  ASSERT_TRUE(disk.FillSector(0, std::byte{0xA5}));
  ASSERT_EQ(Write(disk, OnePartition()), ERROR_SUCCESS);
  EXPECT_EQ(disk.Sector(0)[512], std::byte{0xA5});
  EXPECT_EQ(disk.Sector(0)[4095], std::byte{0xA5});
  EXPECT_EQ(disk.Record(0).entries[0].first_sector, 256u);
  EXPECT_EQ(ReadBack(disk).rows[0].StartingOffset.QuadPart, LONGLONG{kMiB});
}

TEST(WriteMbrLayout, StartsCountFromTheDiskTheRecordOrTheFirstExtendedPartition) {
  StorageDisk disk(64 * kMiB);
  ASSERT_EQ(Write(disk, ChainLayout(kSignature, 3)), ERROR_SUCCESS);
  EXPECT_EQ(disk.Record(0).entries[0].first_sector, 2048u);
  for (const std::uint64_t sector : {2048u, 6144u, 10240u}) {
    EXPECT_EQ(disk.Record(sector).entries[0].first_sector, 2048u) << "record at " << sector;
  }
  EXPECT_EQ(disk.Record(2048).entries[1].first_sector, 4096u);
  EXPECT_EQ(disk.Record(6144).entries[1].first_sector, 8192u);
  EXPECT_EQ(disk.Record(10240).entries[1].type, kTypeUnused);
}

TEST(WriteMbrLayout, NextRecordLiesAtTheLastContainerOfAGroup) {
  StorageDisk disk(64 * kMiB);
  auto layout = ChainLayout(kSignature, 1);
  layout.rows[1] = MbrRow(0x05, 20 * kMiB, 8 * kMiB);
  layout.rows[4] = MbrRow(0x07, 21 * kMiB, kMiB);
  ASSERT_EQ(Write(disk, layout), ERROR_SUCCESS);
  EXPECT_EQ(disk.Record(20 * 2048).entries[0].first_sector, 2048u);
  EXPECT_EQ(disk.Record(2048).boot_signature, 0);
}

TEST(WriteMbrLayout, OnlyGroupsWithARewrittenRowAreWritten) {
  StorageDisk disk(64 * kMiB);
  auto layout = ChainLayout(kSignature, 2);
  ASSERT_EQ(Write(disk, layout), ERROR_SUCCESS);
  for (auto& row : layout.rows) row.RewritePartition = 0;
  layout.rows[8].RewritePartition = 1;
  layout.rows[8].PartitionLength.QuadPart = 512 * 1024;
  layout.rows[4].PartitionLength.QuadPart = 1024;
  const std::uint64_t before = disk.device().bytes_written();
  ASSERT_EQ(Write(disk, layout), ERROR_SUCCESS);
  EXPECT_EQ(disk.device().bytes_written() - before, 512u);
  EXPECT_EQ(disk.Record(6144).entries[0].sector_count, 1024u);
  EXPECT_EQ(disk.Record(2048).entries[0].sector_count, 2048u);
}

TEST(WriteMbrLayout, RowsThatAreNotRewrittenKeepTheirEntry) {
  StorageDisk disk(64 * kMiB);
  auto layout = OnePartition();
  layout.rows[1] = MbrRow(0x0C, 20 * kMiB, kMiB);
  ASSERT_EQ(Write(disk, layout), ERROR_SUCCESS);
  layout.rows[0] = MbrRow(0x83, 30 * kMiB, kMiB);
  layout.rows[0].RewritePartition = 0;
  layout.rows[1].PartitionLength.QuadPart = 2 * kMiB;
  ASSERT_EQ(Write(disk, layout), ERROR_SUCCESS);
  EXPECT_EQ(disk.Record(0).entries[0].type, 0x07);
  EXPECT_EQ(disk.Record(0).entries[0].first_sector, 2048u);
  EXPECT_EQ(disk.Record(0).entries[1].sector_count, 4096u);
}

TEST(WriteMbrLayout, NothingIsWrittenWithoutRewrittenRowsAndWithTheSameSignature) {
  StorageDisk disk(64 * kMiB);
  auto layout = OnePartition();
  ASSERT_EQ(Write(disk, layout), ERROR_SUCCESS);
  layout.rows[0].RewritePartition = 0;
  for (auto& row : layout.rows) row.RewritePartition = 0;
  const std::uint64_t before = disk.device().bytes_written();
  ASSERT_EQ(Write(disk, layout), ERROR_SUCCESS);
  EXPECT_EQ(disk.device().bytes_written(), before);
}

TEST(WriteMbrLayout, AnotherSignatureAloneWritesSectorZeroWithItsMark) {
  StorageDisk disk(64 * kMiB);
  auto layout = OnePartition();
  for (auto& row : layout.rows) row.RewritePartition = 0;
  ASSERT_EQ(Write(disk, layout), ERROR_SUCCESS);
  EXPECT_EQ(disk.Record(0).disk_signature, kSignature);
  EXPECT_EQ(disk.Record(0).boot_signature, kBootSignature);
  EXPECT_EQ(disk.Record(0).entries[0].type, kTypeUnused);
}

TEST(WriteMbrLayout, GivesTheNumbersThatAReadGives) {
  StorageDisk disk(64 * kMiB);
  auto layout = ChainLayout(kSignature, 3);
  layout.rows[2] = MbrRow(0x07, 50 * kMiB, kMiB);
  for (auto& row : layout.rows) row.PartitionNumber = 77;
  ASSERT_EQ(WriteLayout(disk.device(), layout, {}), ERROR_SUCCESS);
  const DiskLayout read = ReadBack(disk);
  ASSERT_EQ(read.rows.size(), layout.rows.size());
  for (std::size_t i = 0; i < read.rows.size(); ++i) {
    EXPECT_EQ(layout.rows[i].PartitionNumber, read.rows[i].PartitionNumber) << "row " << i;
  }
  EXPECT_EQ(layout.rows[2].PartitionNumber, 1u);
  EXPECT_EQ(layout.rows[4].PartitionNumber, 2u);
}

TEST(WriteMbrLayout, RawStyleWithRowsIsNotSupported) {
  StorageDisk disk(64 * kMiB);
  auto layout = OnePartition();
  layout.header.PartitionStyle = PARTITION_STYLE_RAW;
  EXPECT_EQ(Write(disk, layout), ERROR_NOT_SUPPORTED);
}

// ---- SET layout, refused ------------------------------------------------------------------------

struct Refusal {
  const char* name;
  void (*change)(DiskLayout&);  // of a container with two logical partitions
};

constexpr Refusal kRefusals[] = {
    {"LaterGroupWithoutAContainerBeforeIt",
     [](DiskLayout& layout) { layout.rows[5] = UnusedRow(); }},
    {"ContainerThatLeadsToSectorZero",
     [](DiskLayout& layout) { layout.rows[0].StartingOffset.QuadPart = 0; }},
    {"StartThatDoesNotFit32Bits",
     [](DiskLayout& layout) { layout.rows[1] = MbrRow(7, 2 * kTiB, kMiB); }},
    {"LengthThatDoesNotFit32Bits",
     [](DiskLayout& layout) { layout.rows[1] = MbrRow(7, kMiB, 2 * kTiB); }},
    {"NegativeStart", [](DiskLayout& layout) { layout.rows[1] = MbrRow(7, kNegative, kMiB); }},
    {"NegativeLength", [](DiskLayout& layout) { layout.rows[1] = MbrRow(7, kMiB, kNegative); }},
    {"LogicalPartitionInFrontOfItsBootRecord",
     [](DiskLayout& layout) { layout.rows[4].StartingOffset.QuadPart = kMiB - 512; }},
};

class RefusedMbrLayout : public ::testing::TestWithParam<Refusal> {};

TEST_P(RefusedMbrLayout, WritesNothing) {
  StorageDisk disk(64 * kMiB);
  DiskLayout layout = ChainLayout(kSignature, 2);
  GetParam().change(layout);
  EXPECT_EQ(Write(disk, layout), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(disk.device().bytes_written(), 0u);
}

INSTANTIATE_TEST_SUITE_P(All, RefusedMbrLayout, ::testing::ValuesIn(kRefusals),
                         [](const auto& test) { return test.param.name; });

TEST(WriteMbrLayout, LastStartOf32BitsIsTaken) {
  StorageDisk disk(64 * kMiB);
  auto layout = OnePartition();
  layout.rows[0] = MbrRow(7, 2 * kTiB - 512, kMiB);
  EXPECT_EQ(Write(disk, layout), ERROR_SUCCESS);
}

TEST(WriteMbrLayout, RowsThatAreNotRewrittenAreNotChecked) {
  StorageDisk disk(64 * kMiB);
  auto layout = OnePartition();
  layout.rows[1] = MbrRow(7, 4 * kTiB, kMiB);
  layout.rows[1].RewritePartition = 0;
  EXPECT_EQ(Write(disk, layout), ERROR_SUCCESS);
}

TEST(TruncatedMbrValues, KeepTheirLow32Bits) {
  StorageDisk disk(64 * kMiB);
  auto layout = OnePartition();
  layout.rows[0] = MbrRow(7, 2 * kTiB + kMiB, 2 * kTiB + 512);
  ASSERT_EQ(Write(disk, layout, {.truncate_mbr_values = true}), ERROR_SUCCESS);
  EXPECT_EQ(disk.Record(0).entries[0].first_sector, 2048u);
  EXPECT_EQ(disk.Record(0).entries[0].sector_count, 1u);
}

TEST(WriteMbrLayout, BootRecordBehindTheEndOfTheDiskIsAFailure) {
  StorageDisk disk(64 * kMiB);
  auto layout = ChainLayout(kSignature, 1);
  layout.rows[0].StartingOffset.QuadPart = 64 * kMiB;
  layout.rows[4].StartingOffset.QuadPart = 65 * kMiB;
  EXPECT_EQ(Write(disk, layout), ERROR_SECTOR_NOT_FOUND);
}

}  // namespace
}  // namespace simulator::storage_testing
