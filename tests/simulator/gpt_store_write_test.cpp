#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "simulator/gpt_disk_fixture.h"
#include "simulator/storage/gpt_store.h"
#include "simulator/storage/gpt_table.h"

namespace simulator {
namespace {

using storage_testing::Crc;
using storage_testing::GptLayout;
using storage_testing::GptRequest;
using storage_testing::GptRow;
using storage_testing::Header;
using storage_testing::kDiskSize;
using storage_testing::kMiB;
using storage_testing::kSectors;
using storage_testing::MakeGuid;
using storage_testing::MbrRequest;
using storage_testing::ReadBack;
using storage_testing::SameGuid;
using storage_testing::Seal;
using storage_testing::StorageDisk;
using storage_testing::Write;

class GptStoreWriteTest : public storage_testing::GptDiskFixture {};

// ---- SET layout ---------------------------------------------------------------------------------

TEST_F(GptStoreWriteTest, RowsReadBackWithNamesAndAttributes) {
  const std::string long_name = "A name of exactly thirty-six letters";
  ASSERT_EQ(long_name.size(), 36u);
  const DWORD64 attributes = 0x8000000000000001;
  auto layout = GptLayout({GptRow(kMiB, 10 * kMiB, 10, "Basic data partition"),
                           GptRow(20 * kMiB, 5 * kMiB, 11, long_name, attributes)});
  ASSERT_EQ(WriteLayout(disk_.device(), layout, {}), ERROR_SUCCESS);
  EXPECT_EQ(layout.rows[1].PartitionNumber, 2u);
  const DiskLayout read = ReadBack(disk_);
  ASSERT_EQ(read.rows.size(), 2u);
  for (std::size_t i = 0; i < 2; ++i) {
    const auto& row = read.rows[i];
    EXPECT_EQ(row.PartitionStyle, PARTITION_STYLE_GPT);
    EXPECT_EQ(row.PartitionNumber, i + 1);
    EXPECT_EQ(row.StartingOffset.QuadPart, layout.rows[i].StartingOffset.QuadPart);
    EXPECT_EQ(row.PartitionLength.QuadPart, layout.rows[i].PartitionLength.QuadPart);
    EXPECT_TRUE(SameGuid(row.Gpt.PartitionType, storage_testing::kBasicData));
    EXPECT_TRUE(SameGuid(row.Gpt.PartitionId, layout.rows[i].Gpt.PartitionId));
    EXPECT_TRUE(std::equal(row.Gpt.Name, row.Gpt.Name + 36, layout.rows[i].Gpt.Name));
  }
  EXPECT_EQ(read.rows[0].Gpt.Attributes, 0u);
  EXPECT_EQ(read.rows[1].Gpt.Attributes, attributes);
}

TEST_F(GptStoreWriteTest, RowsWithAZeroTypeAreLeftOutAndTheRestPacked) {
  auto layout =
      GptLayout({GptRow(30 * kMiB, kMiB, 10), GptRow(40 * kMiB, kMiB, 11), GptRow(kMiB, kMiB, 12)});
  layout.rows[1].Gpt.PartitionType = GUID{};
  ASSERT_EQ(WriteLayout(disk_.device(), layout, {}), ERROR_SUCCESS);
  EXPECT_EQ(layout.rows[0].PartitionNumber, 1u);
  EXPECT_EQ(layout.rows[1].PartitionNumber, 0u);
  EXPECT_EQ(layout.rows[2].PartitionNumber, 2u);
  const auto second = Load<GptEntry>(std::span<const std::byte>(disk_.Sector(2)).subspan(128));
  EXPECT_EQ(second.first_sector, 2048u);
  EXPECT_EQ(second.last_sector, 4095u);
  EXPECT_EQ(ReadBack(disk_).rows.size(), 2u);
}

TEST_F(GptStoreWriteTest, SlotsBehindTheRowsAreCleared) {
  ASSERT_EQ(Write(disk_, GptLayout({GptRow(kMiB, kMiB, 1), GptRow(8 * kMiB, kMiB, 2)})),
            ERROR_SUCCESS);
  ASSERT_EQ(Write(disk_, GptLayout({GptRow(8 * kMiB, kMiB, 2)})), ERROR_SUCCESS);
  const auto sector = disk_.Sector(2);
  EXPECT_EQ(std::vector<std::byte>(sector.begin() + 128, sector.begin() + 256),
            std::vector<std::byte>(128));
}

TEST_F(GptStoreWriteTest, EndIsTheSectorOfTheLastByte) {
  ASSERT_EQ(Write(disk_, GptLayout({GptRow(kMiB, kMiB + 1, 1)})), ERROR_SUCCESS);
  EXPECT_EQ(Load<GptEntry>(disk_.Sector(2)).last_sector, 4096u);
}

TEST_F(GptStoreWriteTest, DiskIdAndCountOfTheHeaderStay) {
  auto layout = GptLayout({GptRow(kMiB, kMiB, 1)});
  layout.header.Gpt.DiskId = MakeGuid(99);
  layout.header.Gpt.MaxPartitionCount = 256;
  ASSERT_EQ(Write(disk_, layout), ERROR_SUCCESS);
  EXPECT_TRUE(SameGuid(ReadBack(disk_).header.Gpt.DiskId, MakeGuid(1)));
  EXPECT_EQ(ReadBack(disk_).header.Gpt.MaxPartitionCount, 128u);
}

TEST_F(GptStoreWriteTest, ProtectiveRecordIsNotRewritten) {
  BootRecord record = disk_.Record(0);
  record.boot_code[5] = 0x77;
  ASSERT_TRUE(disk_.Put(0, record));
  ASSERT_EQ(Write(disk_, GptLayout({GptRow(kMiB, kMiB, 1)})), ERROR_SUCCESS);
  EXPECT_EQ(disk_.Record(0).boot_code[5], 0x77);
}

TEST_F(GptStoreWriteTest, All128SlotsCanBeUsedAndNoMore) {
  std::vector<PARTITION_INFORMATION_EX> rows;
  for (std::uint32_t i = 0; i < 128; ++i) {
    rows.push_back(GptRow(kMiB + i * 128 * 1024, 128 * 1024, 100 + i));
  }
  ASSERT_EQ(Write(disk_, GptLayout(rows)), ERROR_SUCCESS);
  EXPECT_EQ(ReadBack(disk_).rows.size(), 128u);
  rows.push_back(GptRow(40 * kMiB, kMiB, 300));
  EXPECT_EQ(Write(disk_, GptLayout(rows)), ERROR_INVALID_PARAMETER);
}

TEST(WriteGptLayout, WorksWithAnotherNumberOfEntries) {
  StorageDisk disk(kDiskSize);
  ASSERT_EQ(CreateDisk(disk.device(), GptRequest(1, 256)), ERROR_SUCCESS);
  std::vector<PARTITION_INFORMATION_EX> rows;
  for (std::uint32_t i = 0; i < 200; ++i) rows.push_back(GptRow(kMiB + i * 4096, 4096, 100 + i));
  ASSERT_EQ(Write(disk, GptLayout(rows)), ERROR_SUCCESS);
  const DiskLayout read = ReadBack(disk);
  EXPECT_EQ(read.rows.size(), 200u);
  EXPECT_EQ(read.header.Gpt.StartingUsableOffset.QuadPart, 66 * 512);
}

// Gives the disk a header of `count` entries with `stride` bytes each, all of them empty.
void PutEmptyTable(StorageDisk& disk, std::uint32_t count, std::uint32_t stride) {
  GptHeader header = Header(disk, 1);
  header.entry_count = count;
  header.entry_size = stride;
  header.array_crc = Crc(std::vector<std::byte>(count * stride), count * stride);
  Seal(disk, 1, header);
}

TEST_F(GptStoreWriteTest, FewerThan128EntriesOfAnotherToolStayFewer) {
  PutEmptyTable(disk_, 6, 128);
  ASSERT_EQ(Write(disk_, GptLayout({GptRow(kMiB, kMiB, 1)})), ERROR_SUCCESS);
  EXPECT_EQ(Header(disk_, 1).entry_count, 6u);
  EXPECT_EQ(Header(disk_, 1).first_usable_sector, 4u);
  EXPECT_EQ(ReadBack(disk_).rows.size(), 1u);
}

TEST_F(GptStoreWriteTest, LargeEntriesAreReadByTheirStride) {
  GptEntry entry{};
  entry.type.data1 = 0xEBD0A0A2u;
  entry.first_sector = std::uint64_t{4096};
  entry.last_sector = std::uint64_t{8191};
  std::vector<std::byte> array(128 * 256);
  Store(entry, std::span(array).subspan(256));
  ASSERT_TRUE(disk_.device().Write(2 * 512, array));
  GptHeader header = Header(disk_, 1);
  header.entry_size = 256u;
  header.array_crc = Crc(array, array.size());
  Seal(disk_, 1, header);
  const DiskLayout read = ReadBack(disk_);
  ASSERT_EQ(read.rows.size(), 1u);
  EXPECT_EQ(read.rows[0].StartingOffset.QuadPart, LONGLONG{2 * kMiB});
}

TEST_F(GptStoreWriteTest, WithoutRowsItMakesAnEmptyDisk) {
  ASSERT_EQ(Write(disk_, GptLayout({GptRow(kMiB, kMiB, 1)})), ERROR_SUCCESS);
  auto layout = GptLayout({});
  layout.header.Gpt.DiskId = MakeGuid(7);
  ASSERT_EQ(Write(disk_, layout), ERROR_SUCCESS);
  EXPECT_TRUE(ReadBack(disk_).rows.empty());
  EXPECT_TRUE(SameGuid(ReadBack(disk_).header.Gpt.DiskId, MakeGuid(7)));
}

// ---- SET layout, refused ------------------------------------------------------------------------

class RefusedGptRow : public ::testing::TestWithParam<std::pair<std::uint64_t, std::uint64_t>> {};

TEST_P(RefusedGptRow, LeavesTheDiskAsItWas) {
  StorageDisk disk(kDiskSize);
  ASSERT_EQ(CreateDisk(disk.device(), GptRequest(1, 128)), ERROR_SUCCESS);
  const std::uint64_t before = disk.device().bytes_written();
  const auto [start, length] = GetParam();
  auto layout = GptLayout({GptRow(10 * kMiB, 10 * kMiB, 1), GptRow(start, length, 2)});
  EXPECT_EQ(Write(disk, layout), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(disk.device().bytes_written(), before);
}

constexpr std::uint64_t kNegative = ~std::uint64_t{0} - 511;

INSTANTIATE_TEST_SUITE_P(
    Places, RefusedGptRow,
    ::testing::Values(std::pair{33 * 512, std::uint64_t{512}},  // before the range
                      std::pair{std::uint64_t{0}, kMiB},        // on the headers
                      std::pair{40 * kMiB, 24 * kMiB},          // onto the backup
                      std::pair{(kSectors - 33) * 512, std::uint64_t{512}},
                      std::pair{2 * kDiskSize, kMiB},          // behind the end
                      std::pair{30 * kMiB, std::uint64_t{0}},  // no length
                      std::pair{30 * kMiB, kNegative}, std::pair{kNegative, kMiB},
                      std::pair{10 * kMiB, 10 * kMiB},      // the same place
                      std::pair{5 * kMiB, 5 * kMiB + 512},  // one sector in
                      std::pair{20 * kMiB - 512, kMiB}, std::pair{12 * kMiB, kMiB},
                      std::pair{5 * kMiB, 30 * kMiB}));

TEST_F(GptStoreWriteTest, FirstAndLastUsableSectorAndNeighboursAreAccepted) {
  EXPECT_EQ(Write(disk_, GptLayout({GptRow(34 * 512, kMiB - 34 * 512, 1), GptRow(kMiB, kMiB, 2),
                                    GptRow((kSectors - 34) * 512, 512, 3)})),
            ERROR_SUCCESS);
}

TEST(WriteGptLayout, RawDiskHasNoHeaderToGoBy) {
  StorageDisk disk(kDiskSize);
  EXPECT_EQ(Write(disk, GptLayout({GptRow(kMiB, kMiB, 1)})), ERROR_DISK_CORRUPT);
  EXPECT_EQ(disk.device().bytes_written(), 0u);
}

TEST(WriteGptLayout, MbrDiskIsOfAnotherStyle) {
  StorageDisk disk(kDiskSize);
  ASSERT_EQ(CreateDisk(disk.device(), GptRequest(1, 128)), ERROR_SUCCESS);
  ASSERT_EQ(CreateDisk(disk.device(), MbrRequest(5)), ERROR_SUCCESS);
  EXPECT_EQ(Write(disk, GptLayout({GptRow(kMiB, kMiB, 1)})), ERROR_INVALID_PARAMETER);
}

TEST_F(GptStoreWriteTest, WriteGoesByTheBackupAndRestoresThePrimary) {
  ASSERT_TRUE(disk_.FillSector(1, std::byte{0}));
  ASSERT_EQ(Write(disk_, GptLayout({GptRow(kMiB, kMiB, 1)})), ERROR_SUCCESS);
  EXPECT_EQ(Header(disk_, 1).signature, kGptSignature);
  EXPECT_TRUE(SameGuid(ReadBack(disk_).header.Gpt.DiskId, MakeGuid(1)));
}

}  // namespace
}  // namespace simulator
