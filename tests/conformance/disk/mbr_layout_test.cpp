// The MBR table, as it is set and as it comes back.
#include "conformance/disk/disk_fixture.h"

namespace conformance {
namespace {

constexpr std::uint64_t kFirst = kSectorsPerMiB;
constexpr std::uint64_t kCount = 50 * kSectorsPerMiB;
constexpr std::size_t kEntry = 446;
constexpr std::size_t kEntryLength = 16;

class DiskMbrLayout : public DiskTest {
 protected:
  void ExpectRow(const PARTITION_INFORMATION_EX& row, std::uint64_t first, std::uint64_t count,
                 BYTE type, DWORD number, DWORD hidden) {
    EXPECT_EQ(row.PartitionStyle, PARTITION_STYLE_MBR);
    EXPECT_EQ(OffsetOf(row), first * kSector);
    EXPECT_EQ(LengthOf(row), count * kSector);
    EXPECT_EQ(row.Mbr.PartitionType, type);
    EXPECT_EQ(row.PartitionNumber, number);
    EXPECT_EQ(row.Mbr.HiddenSectors, hidden);
    EXPECT_EQ(row.RewritePartition, 0);
  }
  DWORD Set(std::vector<PARTITION_INFORMATION_EX> rows) const {
    DriveLayout layout = MbrLayout({});
    layout.rows = std::move(rows);
    layout.header.PartitionCount = static_cast<DWORD>(layout.rows.size());
    return SetLayout(layout);
  }
};

TEST_F(DiskMbrLayout, CleanDiskIsRawWithoutRows) {
  const DriveLayout layout = GetLayout();
  EXPECT_EQ(layout.header.PartitionStyle, static_cast<DWORD>(PARTITION_STYLE_RAW));
  EXPECT_EQ(layout.header.PartitionCount, 0u);
}

TEST_F(DiskMbrLayout, PrimaryComesBackInItsRow) {
  PARTITION_INFORMATION_EX primary = MbrRow(7, kFirst, kCount);
  primary.Mbr.BootIndicator = TRUE;
  MakeMbr({UnusedMbrRow(), primary});
  const DriveLayout layout = GetLayout();
  ASSERT_EQ(layout.rows.size(), 4u);
  ExpectRow(layout.rows[0], 0, 0, 0, 0, 0);
  ExpectRow(layout.rows[1], kFirst, kCount, 7, 1, kFirst);
  EXPECT_NE(layout.rows[1].Mbr.BootIndicator, 0);
  EXPECT_NE(layout.rows[1].Mbr.RecognizedPartition, 0);
  EXPECT_EQ(layout.rows[0].Mbr.RecognizedPartition, 0);
}

TEST_F(DiskMbrLayout, IdentityOfAPrimaryIsSignatureAndOffset) {
  MakeMbr({MbrRow(7, kFirst, kCount)});
  const GUID expected = {kSignature, 0, 0, {0, 0, 0x10, 0, 0, 0, 0, 0}};
  EXPECT_TRUE(SameGuid(GetLayout().rows[0].Mbr.PartitionId, expected));
}

TEST_F(DiskMbrLayout, EntryOnDiskHasGeometryOf255And63) {
  MakeMbr({MbrRow(7, kFirst, kCount)});
  const Bytes sector = Sectors(0);
  EXPECT_EQ(LoadAt<std::uint32_t>(sector, 440), kSignature);
  EXPECT_EQ(LoadAt<std::uint32_t>(sector, kEntry), 0x00212000u);  // not active; head 32, sector 33
  // Type 7; sector 104447 is in cylinder 6, head 127, and is the 57th of its track.
  EXPECT_EQ(LoadAt<std::uint32_t>(sector, kEntry + 4), 0x06397F07u);
  EXPECT_EQ(LoadAt<std::uint32_t>(sector, kEntry + 8), kFirst);
  EXPECT_EQ(LoadAt<std::uint32_t>(sector, kEntry + 12), kCount);
}

TEST_F(DiskMbrLayout, LogicalsComeBackBehindTheirBootRecords) {
  ASSERT_EQ(CreateMbr(), DWORD{ERROR_SUCCESS});
  ASSERT_EQ(SetLayout(LayoutWithLogicals()), DWORD{ERROR_SUCCESS});
  const DriveLayout layout = GetLayout();
  ASSERT_EQ(layout.rows.size(), 12u);
  constexpr std::uint64_t kM = kSectorsPerMiB;
  ExpectRow(layout.rows[0], kM, 50 * kM, 7, 1, kM);
  ExpectRow(layout.rows[1], 100 * kM, 100 * kM, 0x0F, 0, 100 * kM);
  EXPECT_EQ(layout.rows[1].Mbr.RecognizedPartition, 0);
  ExpectRow(layout.rows[4], 101 * kM, 20 * kM, 7, 2, kM);
  ExpectRow(layout.rows[5], 150 * kM, 21 * kM, 5, 0, 50 * kM);
  ExpectRow(layout.rows[8], 151 * kM, 20 * kM, 7, 3, kM);
  for (const std::size_t unused : {2u, 3u, 6u, 7u, 9u, 10u, 11u}) {
    ExpectRow(layout.rows[unused], 0, 0, 0, 0, 0);
  }
}

TEST_F(DiskMbrLayout, BootRecordsCountFromThemselvesAndLinksFromTheExtended) {
  ASSERT_EQ(CreateMbr(), DWORD{ERROR_SUCCESS});
  ASSERT_EQ(SetLayout(LayoutWithLogicals()), DWORD{ERROR_SUCCESS});
  constexpr std::uint64_t kM = kSectorsPerMiB;
  const Bytes first = Sectors(100 * kM);
  EXPECT_EQ(LoadAt<std::uint32_t>(first, kEntry + 8), kM);
  EXPECT_EQ(LoadAt<std::uint32_t>(first, kEntry + kEntryLength + 8), 50 * kM);
  EXPECT_EQ(LoadAt<std::uint16_t>(first, 510), 0xAA55u);
  const Bytes second = Sectors(150 * kM);
  EXPECT_EQ(LoadAt<std::uint32_t>(second, kEntry + 8), kM);
  EXPECT_EQ(LoadAt<std::uint16_t>(second, 510), 0xAA55u);
}

TEST_F(DiskMbrLayout, BootRecordsKeepTheirBytesOutsideTheTable) {
  ASSERT_EQ(CreateMbr(), DWORD{ERROR_SUCCESS});
  constexpr std::uint64_t kRecord = 100 * kSectorsPerMiB;
  SetSectors(kRecord, Bytes(kSector, std::byte{0x77}));
  Bytes sector = Sectors(0);
  sector[0] = std::byte{0x77};
  SetSectors(0, sector);
  ASSERT_EQ(SetLayout(LayoutWithLogicals()), DWORD{ERROR_SUCCESS});
  EXPECT_EQ(Sectors(0)[0], std::byte{0x77});
  const Bytes record = Sectors(kRecord);
  EXPECT_EQ(Bytes(record.begin(), record.begin() + kEntry), Bytes(kEntry, std::byte{0x77}))
      << "a linked record has no signature of its own";
}

TEST_F(DiskMbrLayout, RowThatIsNotRewrittenKeepsItsBytes) {
  MakeMbr({MbrRow(7, kFirst, kCount)});
  PARTITION_INFORMATION_EX row = MbrRow(0x0C, kFirst, kCount);
  row.RewritePartition = FALSE;
  PARTITION_INFORMATION_EX other = UnusedMbrRow();
  other.RewritePartition = FALSE;
  ASSERT_EQ(Set({row, other, other, other}), DWORD{ERROR_SUCCESS});
  UpdateProperties();
  EXPECT_EQ(GetLayout().rows[0].Mbr.PartitionType, 7);
}

TEST_F(DiskMbrLayout, SignatureIsWrittenWithoutAnyRow) {
  MakeMbr({MbrRow(7, kFirst, kCount)});
  DriveLayout layout = GetLayout();
  layout.header.Mbr.Signature = 0x77665544;
  ASSERT_EQ(SetLayout(layout), DWORD{ERROR_SUCCESS});
  EXPECT_EQ(LoadAt<std::uint32_t>(Sectors(0), 440), 0x77665544u);
}

TEST_F(DiskMbrLayout, AnswerToASetHasTheNumbers) {
  ASSERT_EQ(CreateMbr(), DWORD{ERROR_SUCCESS});
  const Bytes layout = ToBytes(LayoutWithLogicals());
  const Answer answer = Ask(OpenDisk(), IOCTL_DISK_SET_DRIVE_LAYOUT_EX, layout, layout.size());
  ASSERT_EQ(answer.error, DWORD{ERROR_SUCCESS});
  const DriveLayout told = ToLayout(answer.bytes);
  ASSERT_EQ(told.rows.size(), 12u);
  EXPECT_EQ(told.rows[0].PartitionNumber, 1u);
  EXPECT_EQ(told.rows[4].PartitionNumber, 2u);
  EXPECT_EQ(told.rows[8].PartitionNumber, 3u);
}

TEST_F(DiskMbrLayout, SetSucceedsWithoutRoomForTheAnswer) {
  ASSERT_EQ(CreateMbr(), DWORD{ERROR_SUCCESS});
  const Bytes layout = ToBytes(MbrLayout({MbrRow(7, kFirst, kCount)}));
  EXPECT_EQ(Ask(OpenDisk(), IOCTL_DISK_SET_DRIVE_LAYOUT_EX, layout, 8).error, DWORD{ERROR_SUCCESS});
  EXPECT_EQ(GetLayout().rows[0].Mbr.PartitionType, 7);
}

TEST_F(DiskMbrLayout, LayoutWithoutRowsMakesAnEmptyDisk) {
  MakeMbr({MbrRow(7, kFirst, kCount)});
  DriveLayout layout = MbrLayout({});
  layout.header.PartitionCount = 0;
  layout.header.Mbr.Signature = 0x77665544;
  ASSERT_EQ(SetLayout(layout), DWORD{ERROR_SUCCESS});
  layout = GetLayout();
  EXPECT_EQ(layout.header.Mbr.Signature, DWORD{0x77665544});
  for (const PARTITION_INFORMATION_EX& row : layout.rows) EXPECT_EQ(row.Mbr.PartitionType, 0);
}

TEST_F(DiskMbrLayout, ShortSetIsError24) {
  ASSERT_EQ(CreateMbr(), DWORD{ERROR_SUCCESS});
  Bytes layout = ToBytes(MbrLayout({MbrRow(7, kFirst, kCount)}));
  layout.pop_back();
  EXPECT_EQ(Ask(OpenDisk(), IOCTL_DISK_SET_DRIVE_LAYOUT_EX, layout).error, DWORD{ERROR_BAD_LENGTH});
  EXPECT_EQ(Ask(OpenDisk(), IOCTL_DISK_SET_DRIVE_LAYOUT_EX, Bytes(191)).error,
            DWORD{ERROR_BAD_LENGTH});
}

TEST_F(DiskMbrLayout, CountThatIsNoMultipleOfFourIsError87) {
  ASSERT_EQ(CreateMbr(), DWORD{ERROR_SUCCESS});
  EXPECT_EQ(Set({MbrRow(7, kFirst, kCount)}), DWORD{ERROR_INVALID_PARAMETER});
}

TEST_F(DiskMbrLayout, GroupThatNoContainerLeadsToIsError87) {
  ASSERT_EQ(CreateMbr(), DWORD{ERROR_SUCCESS});
  DriveLayout layout = LayoutWithLogicals();
  layout.rows[1] = UnusedMbrRow();
  const Bytes before = Sectors(0);
  EXPECT_EQ(SetLayout(layout), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(Sectors(0), before);
}

TEST_F(DiskMbrLayout, StartThatDoesNotFit32BitsIsError87) {
  ASSERT_EQ(CreateMbr(), DWORD{ERROR_SUCCESS});
  EXPECT_EQ(SetLayout(MbrLayout({MbrRow(7, std::uint64_t{1} << 32, kCount)})),
            DWORD{ERROR_INVALID_PARAMETER});
}

TEST_F(DiskMbrLayout, RowOfAnUnknownStyleIsError87) {
  ASSERT_EQ(CreateMbr(), DWORD{ERROR_SUCCESS});
  Bytes layout = ToBytes(MbrLayout({MbrRow(7, kFirst, kCount)}));
  layout[offsetof(DRIVE_LAYOUT_INFORMATION_EX, PartitionEntry)] = std::byte{9};
  EXPECT_EQ(Ask(OpenDisk(), IOCTL_DISK_SET_DRIVE_LAYOUT_EX, layout).error,
            DWORD{ERROR_INVALID_PARAMETER});
}

TEST_F(DiskMbrLayout, AskingWithTooLittleRoomIsError122) {
  MakeMbr({MbrRow(7, kFirst, kCount)});
  const std::size_t needed =
      offsetof(DRIVE_LAYOUT_INFORMATION_EX, PartitionEntry) + 4 * sizeof(PARTITION_INFORMATION_EX);
  const File disk = OpenDisk();
  EXPECT_EQ(Ask(disk, IOCTL_DISK_GET_DRIVE_LAYOUT_EX, {}, needed - 1).error,
            DWORD{ERROR_INSUFFICIENT_BUFFER});
  const Answer answer = Ask(disk, IOCTL_DISK_GET_DRIVE_LAYOUT_EX, {}, needed);
  EXPECT_EQ(answer.error, DWORD{ERROR_SUCCESS});
  EXPECT_EQ(answer.bytes.size(), needed);
}

TEST_F(DiskMbrLayout, ChainEndsAtABootRecordWithoutItsMark) {
  ASSERT_EQ(CreateMbr(), DWORD{ERROR_SUCCESS});
  ASSERT_EQ(SetLayout(LayoutWithLogicals()), DWORD{ERROR_SUCCESS});
  SetSectors(150 * kSectorsPerMiB, Bytes(kSector));
  UpdateProperties();
  const DriveLayout layout = GetLayout();
  ASSERT_EQ(layout.rows.size(), 8u);
  EXPECT_EQ(layout.rows[4].PartitionNumber, 2u);
}

TEST_F(DiskMbrLayout, EveryExtendedTypeLeadsToATable) {
  for (const BYTE type : {BYTE{0x05}, BYTE{0x15}, BYTE{0x1F}}) {
    ASSERT_EQ(CreateMbr(), DWORD{ERROR_SUCCESS});
    DriveLayout layout = LayoutWithLogicals();
    layout.rows[1].Mbr.PartitionType = type;
    ASSERT_EQ(SetLayout(layout), DWORD{ERROR_SUCCESS}) << int{type};
    layout = GetLayout();
    ASSERT_EQ(layout.rows.size(), 12u) << int{type};
    EXPECT_EQ(layout.rows[1].PartitionNumber, 0u);
    EXPECT_EQ(OffsetOf(layout.rows[4]), 101 * kMiB);
  }
}

TEST_F(DiskMbrLayout, TableWithTwoExtendedPartitionsIsRaw) {
  MakeMbr({MbrRow(7, kFirst, kCount), MbrRow(7, 100 * kSectorsPerMiB, kCount)});
  Bytes sector = Sectors(0);
  sector[kEntry + 4] = std::byte{0x05};
  sector[kEntry + kEntryLength + 4] = std::byte{0x0F};
  SetSectors(0, sector);
  UpdateProperties();
  EXPECT_EQ(GetLayout().header.PartitionStyle, static_cast<DWORD>(PARTITION_STYLE_RAW));
}

TEST_F(DiskMbrLayout, TableWithAPartitionFarBehindTheDiskIsRaw) {
  MakeMbr({MbrRow(7, kFirst, kCount)});
  Bytes sector = Sectors(0);
  for (std::size_t i = 8; i < 11; ++i) sector[kEntry + i] = std::byte{0xFF};
  sector[kEntry + 11] = std::byte{0x7F};
  SetSectors(0, sector);
  UpdateProperties();
  EXPECT_EQ(GetLayout().header.PartitionStyle, static_cast<DWORD>(PARTITION_STYLE_RAW));
}

TEST_F(DiskMbrLayout, RowsThatOverlapAreTaken) {
  ASSERT_EQ(CreateMbr(), DWORD{ERROR_SUCCESS});
  EXPECT_EQ(SetLayout(MbrLayout({MbrRow(7, kFirst, kCount), MbrRow(7, kFirst + 8, kCount)})),
            DWORD{ERROR_SUCCESS});
}

}  // namespace
}  // namespace conformance
