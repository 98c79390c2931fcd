#include <gtest/gtest.h>
#include <vector>

#include "simulator/gpt_disk_fixture.h"
#include "simulator/storage/gpt_store.h"
#include "simulator/storage/gpt_table.h"

namespace simulator::storage_testing {
namespace {

class GptStoreWriteTest : public GptDiskFixture {};

// ---- SET layout ---------------------------------------------------------------------------------

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

TEST_F(GptStoreWriteTest, WriteGoesByTheBackupAndRestoresThePrimary) {
  ASSERT_TRUE(disk_.FillSector(1, std::byte{0}));
  ASSERT_EQ(Write(disk_, GptLayout({GptRow(kMiB, kMiB, 1)})), ERROR_SUCCESS);
  EXPECT_EQ(Header(disk_, 1).signature, kGptSignature);
  EXPECT_TRUE(SameGuid(ReadBack(disk_).header.Gpt.DiskId, MakeGuid(1)));
}

}  // namespace
}  // namespace simulator::storage_testing
