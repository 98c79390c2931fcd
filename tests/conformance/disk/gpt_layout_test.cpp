// The GPT, as it is set and as it comes back.
#include <algorithm>

#include "conformance/disk/disk_fixture.h"

namespace conformance {
namespace {

constexpr std::uint64_t kM = kSectorsPerMiB;

using DiskGptLayout = DiskTest;

TEST_F(DiskGptLayout, PartitionsComeBackNumberedInTheOrderGiven) {
  PARTITION_INFORMATION_EX first = GptRow(kBasicDataType, 1, 60 * kM, 40 * kM);
  first.Gpt.Attributes = DWORD64{1} << 63;
  for (WCHAR& unit : first.Gpt.Name) unit = 0x65E5;
  MakeGpt({first, GptRow(kBasicDataType, 2, kM, 50 * kM)});
  const DriveLayout layout = GetLayout();
  ASSERT_EQ(layout.rows.size(), 2u);
  EXPECT_EQ(layout.rows[0].PartitionNumber, 1u);
  EXPECT_EQ(layout.rows[0].PartitionStyle, PARTITION_STYLE_GPT);
  EXPECT_EQ(OffsetOf(layout.rows[0]), 60 * kMiB);
  EXPECT_EQ(LengthOf(layout.rows[0]), 40 * kMiB);
  EXPECT_TRUE(SameGuid(layout.rows[0].Gpt.PartitionType, kBasicDataType));
  EXPECT_TRUE(SameGuid(layout.rows[0].Gpt.PartitionId, first.Gpt.PartitionId));
  EXPECT_EQ(layout.rows[0].Gpt.Attributes, DWORD64{1} << 63);
  EXPECT_TRUE(std::equal(first.Gpt.Name, first.Gpt.Name + 36, layout.rows[0].Gpt.Name));
  EXPECT_EQ(layout.rows[1].PartitionNumber, 2u);
  EXPECT_EQ(layout.rows[1].Gpt.Attributes, DWORD64{0});
  EXPECT_EQ(OffsetOf(layout.rows[1]), kMiB);
}

TEST_F(DiskGptLayout, UsableRangeLeavesRoomForBothCopies) {
  ASSERT_EQ(CreateGpt(), DWORD{ERROR_SUCCESS});
  const DriveLayout layout = GetLayout();
  EXPECT_EQ(layout.header.Gpt.StartingUsableOffset.QuadPart, 34 * LONGLONG{kSector});
  EXPECT_EQ(static_cast<std::uint64_t>(layout.header.Gpt.UsableLength.QuadPart),
            (sector_count_ - 67) * kSector);
  EXPECT_EQ(layout.header.Gpt.MaxPartitionCount, 128u);
}

TEST_F(DiskGptLayout, RowsWithoutATypeAreLeftOut) {
  MakeGpt({GptRow(kBasicDataType, 1, kM, 50 * kM), GptRow(GUID(), 2, 60 * kM, kM),
           GptRow(kBasicDataType, 3, 70 * kM, 50 * kM)});
  const DriveLayout layout = GetLayout();
  ASSERT_EQ(layout.rows.size(), 2u);
  EXPECT_EQ(OffsetOf(layout.rows[1]), 70 * kMiB);
  EXPECT_EQ(layout.rows[1].PartitionNumber, 2u);
}

TEST_F(DiskGptLayout, EntryOnDiskEndsWithItsLastSector) {
  MakeGpt({GptRow(kBasicDataType, 1, kM, 50 * kM)});
  for (const std::uint64_t array : {std::uint64_t{2}, sector_count_ - 33}) {
    const Bytes entries = Sectors(array);
    EXPECT_TRUE(SameGuid(LoadAt<GUID>(entries), kBasicDataType));
    EXPECT_EQ(LoadAt<std::uint64_t>(entries, 32), kM);
    EXPECT_EQ(LoadAt<std::uint64_t>(entries, 40), 51 * kM - 1);
    EXPECT_EQ(LoadAt<std::uint64_t>(entries, 128), 0u);
  }
}

TEST_F(DiskGptLayout, IdentityOfTheDiskStaysThatOfItsMaking) {
  ASSERT_EQ(CreateGpt(), DWORD{ERROR_SUCCESS});
  const GUID made = GetLayout().header.Gpt.DiskId;
  DriveLayout layout = GptLayout({GptRow(kBasicDataType, 1, kM, 50 * kM)});
  layout.header.Gpt.DiskId = {1, 2, 3, {4}};
  layout.header.Gpt.MaxPartitionCount = 256;
  ASSERT_EQ(SetLayout(layout), DWORD{ERROR_SUCCESS});
  EXPECT_TRUE(SameGuid(GetLayout().header.Gpt.DiskId, made));
  EXPECT_EQ(GetLayout().header.Gpt.MaxPartitionCount, 128u);
}

TEST_F(DiskGptLayout, ProtectiveRecordIsNotWrittenAgain) {
  ASSERT_EQ(CreateGpt(), DWORD{ERROR_SUCCESS});
  Bytes sector = Sectors(0);
  sector[0] = std::byte{0x77};
  SetSectors(0, sector);
  ASSERT_EQ(SetLayout(GptLayout({GptRow(kBasicDataType, 1, kM, 50 * kM)})), DWORD{ERROR_SUCCESS});
  EXPECT_EQ(Sectors(0), sector);
}

TEST_F(DiskGptLayout, BackupServesWhereThePrimaryIsGone) {
  MakeGpt({GptRow(kBasicDataType, 1, kM, 50 * kM)});
  SetSectors(1, Bytes(kSector));
  UpdateProperties();
  const DriveLayout layout = GetLayout();
  ASSERT_EQ(layout.rows.size(), 1u);
  EXPECT_EQ(OffsetOf(layout.rows[0]), kMiB);
}

TEST_F(DiskGptLayout, BothCopiesGoneIsError1393) {
  ASSERT_EQ(CreateGpt(), DWORD{ERROR_SUCCESS});
  SetSectors(1, Bytes(kSector));
  SetSectors(sector_count_ - 1, Bytes(kSector));
  UpdateProperties();
  EXPECT_EQ(Ask(OpenDisk(), IOCTL_DISK_GET_DRIVE_LAYOUT_EX, {}, 4096).error,
            DWORD{ERROR_DISK_CORRUPT});
}

TEST_F(DiskGptLayout, LayoutForADiskWithoutATableIsError1393) {
  EXPECT_EQ(SetLayout(GptLayout({GptRow(kBasicDataType, 1, kM, 50 * kM)})),
            DWORD{ERROR_DISK_CORRUPT});
}

TEST_F(DiskGptLayout, LayoutForAnMbrDiskIsError87) {
  ASSERT_EQ(CreateMbr(), DWORD{ERROR_SUCCESS});
  EXPECT_EQ(SetLayout(GptLayout({GptRow(kBasicDataType, 1, kM, 50 * kM)})),
            DWORD{ERROR_INVALID_PARAMETER});
}

TEST_F(DiskGptLayout, RowsThatOverlapAreError87) {
  ASSERT_EQ(CreateGpt(), DWORD{ERROR_SUCCESS});
  EXPECT_EQ(SetLayout(GptLayout({GptRow(kBasicDataType, 1, kM, 50 * kM),
                                 GptRow(kBasicDataType, 2, 51 * kM - 1, kM)})),
            DWORD{ERROR_INVALID_PARAMETER});
}

TEST_F(DiskGptLayout, RowInFrontOfTheUsableRangeIsError87) {
  ASSERT_EQ(CreateGpt(), DWORD{ERROR_SUCCESS});
  EXPECT_EQ(SetLayout(GptLayout({GptRow(kBasicDataType, 1, 33, kM)})),
            DWORD{ERROR_INVALID_PARAMETER});
}

TEST_F(DiskGptLayout, RowBehindTheUsableRangeIsError87) {
  ASSERT_EQ(CreateGpt(), DWORD{ERROR_SUCCESS});
  EXPECT_EQ(SetLayout(GptLayout({GptRow(kBasicDataType, 1, sector_count_ - 33 - kM, kM)})),
            DWORD{ERROR_SUCCESS});
  EXPECT_EQ(SetLayout(GptLayout({GptRow(kBasicDataType, 1, sector_count_ - 32 - kM, kM)})),
            DWORD{ERROR_INVALID_PARAMETER});
}

TEST_F(DiskGptLayout, RowPastTheEndOfTheDiskIsError87) {
  ASSERT_EQ(CreateGpt(), DWORD{ERROR_SUCCESS});
  EXPECT_EQ(SetLayout(GptLayout({GptRow(kBasicDataType, 1, sector_count_, kM)})),
            DWORD{ERROR_INVALID_PARAMETER});
}

TEST_F(DiskGptLayout, MoreRowsThanTheTableHoldsAreError87) {
  ASSERT_EQ(CreateGpt(), DWORD{ERROR_SUCCESS});
  std::vector<PARTITION_INFORMATION_EX> rows;
  for (BYTE i = 0; i < 129; ++i) rows.push_back(GptRow(kBasicDataType, i, kM + i * 8u, 8));
  EXPECT_EQ(SetLayout(GptLayout(rows)), DWORD{ERROR_INVALID_PARAMETER});
  rows.pop_back();
  ASSERT_EQ(SetLayout(GptLayout(rows)), DWORD{ERROR_SUCCESS});
  EXPECT_EQ(GetLayout().rows.size(), 128u);
}

}  // namespace
}  // namespace conformance
