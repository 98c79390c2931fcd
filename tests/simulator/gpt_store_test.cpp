#include "simulator/storage/gpt_store.h"

#include <gtest/gtest.h>
#include <vector>

#include "simulator/gpt_disk_fixture.h"
#include "simulator/storage/gpt_table.h"

namespace simulator::storage_testing {
namespace {

class GptStoreTest : public GptDiskFixture {};

// ---- CREATE_DISK --------------------------------------------------------------------------------

TEST(CreateGptDisk, SignatureOfAnUnmarkedSectorZeroIsCleared) {
  StorageDisk disk(kDiskSize);
  ASSERT_TRUE(disk.FillSector(0, std::byte{0xA5}));
  ASSERT_EQ(CreateDisk(disk.device(), GptRequest(1, 128)), ERROR_SUCCESS);
  EXPECT_EQ(disk.Record(0).disk_signature, 0u);
  EXPECT_EQ(disk.Record(0).reserved, 0);
}

struct CountCase {
  DWORD wanted;
  std::uint32_t sector_size;
  DWORD given;
};

class GptEntryCount : public ::testing::TestWithParam<CountCase> {};

TEST_P(GptEntryCount, IsAtLeast128AndFillsWholeSectors) {
  StorageDisk disk(kDiskSize, GetParam().sector_size);
  ASSERT_EQ(CreateDisk(disk.device(), GptRequest(1, GetParam().wanted)), ERROR_SUCCESS);
  EXPECT_EQ(ReadBack(disk).header.Gpt.MaxPartitionCount, GetParam().given);
}

INSTANTIATE_TEST_SUITE_P(All, GptEntryCount,
                         ::testing::Values(CountCase{0, 512, 128}, CountCase{3, 512, 128},
                                           CountCase{129, 512, 132}, CountCase{132, 512, 132},
                                           CountCase{129, 4096, 160},
                                           CountCase{65536, 512, 65536}));

TEST(CreateGptDisk, MoreEntriesThanATableMayHaveAreRefused) {
  StorageDisk disk(kDiskSize);
  EXPECT_EQ(CreateDisk(disk.device(), GptRequest(1, 65537)), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(CreateDisk(disk.device(), GptRequest(1, 0xFFFFFFFF)), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(disk.device().bytes_written(), 0u);
}

TEST(CreateGptDisk, DiskNeedsRoomForBothCopiesAndOneSector) {
  StorageDisk small(67 * 512);
  EXPECT_EQ(CreateDisk(small.device(), GptRequest(1, 128)), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(small.device().bytes_written(), 0u);
  StorageDisk enough(68 * 512);
  EXPECT_EQ(CreateDisk(enough.device(), GptRequest(1, 128)), ERROR_SUCCESS);
  EXPECT_EQ(ReadBack(enough).header.Gpt.UsableLength.QuadPart, 512);
}

TEST(CreateGptDisk, LargeSectorsHaveTheirOwnGeometry) {
  StorageDisk disk(kDiskSize, 4096);
  ASSERT_EQ(CreateDisk(disk.device(), GptRequest(1, 128)), ERROR_SUCCESS);
  const GptHeader header = Header(disk, 1);
  EXPECT_EQ(header.first_usable_sector, 6u);
  EXPECT_EQ(header.last_usable_sector, kDiskSize / 4096 - 6);
}

// ---- GET layout, damaged ------------------------------------------------------------------------

// One field of the primary header is broken, and its checksum made right again. The primary holds
// one row, the backup two, so the number of rows tells which was read.
class DamagedPrimary : public GptStoreTest {
 protected:
  void SetUp() override {
    GptStoreTest::SetUp();
    ASSERT_EQ(Write(disk_, GptLayout({GptRow(kMiB, kMiB, 1)})), ERROR_SUCCESS);
    const auto header = disk_.Sector(1);
    const auto array = disk_.Sector(2);
    ASSERT_EQ(Write(disk_, GptLayout({GptRow(kMiB, kMiB, 1), GptRow(8 * kMiB, kMiB, 2)})),
              ERROR_SUCCESS);
    ASSERT_TRUE(disk_.SetSector(1, header) && disk_.SetSector(2, array));
    ASSERT_EQ(ReadBack(disk_).rows.size(), 1u);
  }
};

struct Damage {
  const char* name;
  void (*change)(GptHeader&);
  std::size_t rows;
};

constexpr Damage kDamages[] = {
    {"NoneIsStillUsed", [](GptHeader&) {}, 1},
    {"Signature", [](GptHeader& h) { h.signature = kGptSignature + 1; }, 2},
    {"OwnSector", [](GptHeader& h) { h.own_sector = std::uint64_t{2}; }, 2},
    {"EntryCountZero", [](GptHeader& h) { h.entry_count = 0u; }, 2},
    {"EntryCountHuge", [](GptHeader& h) { h.entry_count = 0xFFFFFFFFu; }, 2},
    {"EntrySizeTooSmall", [](GptHeader& h) { h.entry_size = 64u; }, 2},
    {"EntrySizeHuge", [](GptHeader& h) { h.entry_size = 0xFFFFFFF8u; }, 2},
    {"ArrayBehindTheEnd", [](GptHeader& h) { h.array_sector = ~std::uint64_t{0}; }, 2},
    {"ArrayChecksum", [](GptHeader& h) { h.array_crc = h.array_crc ^ 1u; }, 2},
};

class DamagedPrimaryField : public DamagedPrimary, public ::testing::WithParamInterface<Damage> {};

TEST_P(DamagedPrimaryField, DecidesWhichCopyIsRead) {
  GptHeader header = Header(disk_, 1);
  GetParam().change(header);
  Seal(disk_, 1, header);
  EXPECT_EQ(ReadBack(disk_).rows.size(), GetParam().rows);
}

INSTANTIATE_TEST_SUITE_P(All, DamagedPrimaryField, ::testing::ValuesIn(kDamages),
                         [](const auto& test) { return test.param.name; });

TEST_F(DamagedPrimary, HeaderSizeOutOfBounds) {
  for (const std::uint32_t size : {0u, 91u, 513u, 0xFFFFFFFFu}) {
    GptHeader header = Header(disk_, 1);
    header.header_size = size;
    ASSERT_TRUE(disk_.Put(1, header));
    EXPECT_EQ(ReadBack(disk_).rows.size(), 2u) << size;
  }
}

TEST_F(DamagedPrimary, HeaderChecksum) {
  GptHeader header = Header(disk_, 1);
  header.header_crc = header.header_crc ^ 1u;
  ASSERT_TRUE(disk_.Put(1, header));
  EXPECT_EQ(ReadBack(disk_).rows.size(), 2u);
}

TEST_F(GptStoreTest, EmptySlotsBetweenPartitionsAreSkippedAndNotCounted) {
  ASSERT_EQ(Write(disk_, GptLayout({GptRow(kMiB, kMiB, 1), GptRow(8 * kMiB, kMiB, 2),
                                    GptRow(16 * kMiB, kMiB, 3)})),
            ERROR_SUCCESS);
  std::vector<std::byte> array(128 * 128);
  ASSERT_TRUE(disk_.device().Read(2 * 512, array));
  std::fill_n(array.begin() + 128, 128, std::byte{0});
  ASSERT_TRUE(disk_.device().Write(2 * 512, array));
  GptHeader header = Header(disk_, 1);
  header.array_crc = Crc(array, array.size());
  Seal(disk_, 1, header);
  const DiskLayout read = ReadBack(disk_);
  ASSERT_EQ(read.rows.size(), 2u);
  EXPECT_EQ(read.rows[1].StartingOffset.QuadPart, LONGLONG{16 * kMiB});
  EXPECT_EQ(read.rows[1].PartitionNumber, 2u);
}

TEST(ReadGptLayout, ProtectiveRecordOnADiskOfOneSectorIsCorrupt) {
  StorageDisk disk(512);
  BootRecord record{};
  record.entries[0].type = kTypeProtective;
  record.boot_signature = kBootSignature;
  ASSERT_TRUE(disk.Put(0, record));
  DiskLayout layout;
  EXPECT_EQ(ReadLayout(disk.device(), layout), ERROR_DISK_CORRUPT);
}

}  // namespace
}  // namespace simulator::storage_testing
