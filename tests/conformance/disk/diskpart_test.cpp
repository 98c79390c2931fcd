// diskpart: its exit statuses, and what its verbs do to the table.
#include "conformance/disk/disk_fixture.h"

namespace conformance {
namespace {

constexpr DWORD kSyntaxError = 0x80070057;
constexpr DWORD kObjectNotFound = 0x80042405;
constexpr DWORD kOperationDenied = 0x8004240A;
constexpr DWORD kNotEnoughSpace = 0x8004240F;
constexpr DWORD kVolumeTooSmall = 0x8004242C;
constexpr DWORD kCannotShrink = 0x8004251E;
constexpr DWORD kNotConvertible = 0x80042559;
constexpr DWORD kBadDriveLetter = 0x8004255E;
constexpr DWORD kDiskOffline = 0x8004280A;

class DiskDiskpart : public DiskTest {
 protected:
  void MakePartition() const { MakeMbr({MbrRow(7, kSectorsPerMiB, 100 * kSectorsPerMiB)}); }
};

TEST_F(DiskDiskpart, LineThatItDoesNotUnderstandIsSyntaxError) {
  EXPECT_EQ(Diskpart("frobnicate\r\n"), kSyntaxError);
}

TEST_F(DiskDiskpart, ScriptStopsAtTheFirstLineThatFails) {
  EXPECT_EQ(Diskpart("select partition 9\r\nconvert mbr\r\n"), kObjectNotFound);
  EXPECT_EQ(GetLayout().header.PartitionStyle, static_cast<DWORD>(PARTITION_STYLE_RAW));
}

TEST_F(DiskDiskpart, ScriptThatIsNotThereIsStatus3) {
  const std::string line = "diskpart /s " + Path("absent.txt") + " > " + Path("diskpart.txt");
  EXPECT_EQ(win32::system(line.c_str()), 3);
}

TEST_F(DiskDiskpart, UnknownParameterIsStatus2) {
  const std::string line = "diskpart /frobnicate > " + Path("diskpart.txt");
  EXPECT_EQ(win32::system(line.c_str()), 2);
}

TEST_F(DiskDiskpart, DiskThatIsNotThereIsObjectNotFound) {
  EXPECT_EQ(RunDiskpartScript("select disk 97\r\n"), kObjectNotFound);
}

TEST_F(DiskDiskpart, VerbWithoutAPartitionInFocusIsObjectNotFound) {
  MakePartition();
  EXPECT_EQ(Diskpart("active\r\n"), kObjectNotFound);
  EXPECT_EQ(Diskpart("detail volume\r\n"), kObjectNotFound);
}

TEST_F(DiskDiskpart, ConvertToGptMakesAReservedPartition) {
  ASSERT_EQ(Diskpart("convert gpt\r\n"), 0u);
  const DriveLayout layout = GetLayout();
  ASSERT_EQ(layout.rows.size(), 1u);
  EXPECT_TRUE(SameGuid(layout.rows[0].Gpt.PartitionType, kReservedType));
  EXPECT_EQ(OffsetOf(layout.rows[0]), 17408u);
  EXPECT_EQ(LengthOf(layout.rows[0]), 16'759'808u);
  EXPECT_EQ(layout.rows[0].Gpt.Name[0], 'M');
}

TEST_F(DiskDiskpart, ConvertTakesAnEmptyDiskOrOneWithTheReservedPartitionAlone) {
  ASSERT_EQ(Diskpart("convert mbr\r\nconvert gpt\r\n"), 0u);
  EXPECT_EQ(Diskpart("convert mbr\r\n"), 0u);
  EXPECT_EQ(GetLayout().header.PartitionStyle, static_cast<DWORD>(PARTITION_STYLE_MBR));
}

TEST_F(DiskDiskpart, ConvertRefusesADiskWithPartitions) {
  MakePartition();
  EXPECT_EQ(Diskpart("convert gpt\r\n"), kNotConvertible);
  MakeGpt({GptRow(kBasicDataType, 1, kSectorsPerMiB, 100 * kSectorsPerMiB)});
  EXPECT_EQ(Diskpart("convert mbr\r\n"), kNotConvertible);
}

TEST_F(DiskDiskpart, ConvertToTheSameStyleIsRefused) {
  ASSERT_EQ(Diskpart("convert mbr\r\n"), 0u);
  EXPECT_EQ(Diskpart("convert mbr\r\n"), kNotConvertible);
  ASSERT_EQ(Diskpart("convert gpt\r\n"), 0u);
  EXPECT_EQ(Diskpart("convert gpt\r\n"), kNotConvertible);
}

TEST_F(DiskDiskpart, EfiPartitionGoesToTheFirstAlignedGap) {
  ASSERT_EQ(Diskpart("convert gpt\r\ncreate part efi size=100\r\n"), 0u);
  const DriveLayout layout = GetLayout();
  ASSERT_EQ(layout.rows.size(), 2u);
  EXPECT_TRUE(SameGuid(layout.rows[1].Gpt.PartitionType, kEfiSystemType));
  EXPECT_EQ(OffsetOf(layout.rows[1]), 16 * kMiB);
  EXPECT_EQ(LengthOf(layout.rows[1]), 100 * kMiB);
  EXPECT_EQ(layout.rows[1].PartitionNumber, 2u);
  EXPECT_EQ(layout.rows[1].Gpt.Attributes, DWORD64{0});
}

TEST_F(DiskDiskpart, EfiPartitionGetsTheFocus) {
  EXPECT_EQ(Diskpart("convert gpt\r\ncreate part efi size=100\r\n"
                     "format fs=fat32 quick override\r\n"),
            0u);
}

TEST_F(DiskDiskpart, EfiPartitionThatDoesNotFitIsNotEnoughSpace) {
  const std::uint64_t size = sector_count_ / kSectorsPerMiB;
  EXPECT_EQ(Diskpart("convert gpt\r\ncreate part efi size=" + std::to_string(size) + "\r\n"),
            kNotEnoughSpace);
}

TEST_F(DiskDiskpart, EfiPartitionOnAnMbrDiskIsDenied) {
  EXPECT_EQ(Diskpart("convert mbr\r\ncreate part efi size=100\r\n"), kOperationDenied);
}

TEST_F(DiskDiskpart, Fat32OfTooFewClustersIsTooSmall) {
  MakeMbr({MbrRow(0x0C, kSectorsPerMiB, 20 * kSectorsPerMiB)});
  WaitForVolume(kMiB);
  EXPECT_EQ(Diskpart("select part 1\r\nformat fs=fat32 quick override\r\n"), kVolumeTooSmall);
}

TEST_F(DiskDiskpart, ActiveMarksOnePartitionAndClearsTheOthers) {
  PARTITION_INFORMATION_EX first = MbrRow(7, kSectorsPerMiB, 50 * kSectorsPerMiB);
  first.Mbr.BootIndicator = TRUE;
  MakeMbr({first, MbrRow(7, 60 * kSectorsPerMiB, 50 * kSectorsPerMiB)});
  WaitForVolume(60 * kMiB);
  ASSERT_EQ(Diskpart("select part 2\r\nactive\r\n"), 0u);
  const DriveLayout layout = GetLayout();
  EXPECT_EQ(layout.rows[0].Mbr.BootIndicator, 0);
  EXPECT_NE(layout.rows[1].Mbr.BootIndicator, 0);
  EXPECT_EQ(std::to_integer<int>(Sectors(0)[446 + 16]), 0x80);
}

TEST_F(DiskDiskpart, ActiveIsDeniedForALogicalPartition) {
  ASSERT_EQ(CreateMbr(), DWORD{ERROR_SUCCESS});
  ASSERT_EQ(SetLayout(LayoutWithLogicals()), DWORD{ERROR_SUCCESS});
  WaitForVolume(101 * kMiB);
  EXPECT_EQ(Diskpart("select part 2\r\nactive\r\n"), kOperationDenied);
}

TEST_F(DiskDiskpart, ActiveIsDeniedOnAGptDisk) {
  MakeGpt({GptRow(kBasicDataType, 1, kSectorsPerMiB, 100 * kSectorsPerMiB)});
  WaitForVolume(kMiB);
  EXPECT_EQ(Diskpart("select part 1\r\nactive\r\n"), kOperationDenied);
}

TEST_F(DiskDiskpart, LetterInUseIsABadLetter) {
  MakePartition();
  WaitForLetter(WaitForVolume(kMiB));
  EXPECT_EQ(
      Diskpart(std::string("select part 1\r\nassign letter=") + machine_.current_drive() + "\r\n"),
      kBadDriveLetter);
}

TEST_F(DiskDiskpart, RemovingALetterThatTheVolumeLacksIsABadLetter) {
  MakePartition();
  WaitForLetter(WaitForVolume(kMiB));
  EXPECT_EQ(Diskpart(std::string("select part 1\r\nremove letter=") + FreeLetter() + "\r\n"),
            kBadDriveLetter);
}

TEST_F(DiskDiskpart, AssignReplacesTheLetter) {
  MakePartition();
  const std::string root = WaitForVolume(kMiB);
  WaitForLetter(root);
  const char letter = FreeLetter();
  ASSERT_EQ(Diskpart(std::string("select part 1\r\nassign letter=") + letter + "\r\n"), 0u);
  EXPECT_EQ(LettersOf(root), std::string(1, letter));
}

TEST_F(DiskDiskpart, ShrinkOfFat32IsRefused) {
  MakeFat32();
  EXPECT_EQ(Diskpart("select part 1\r\nshrink desired=10\r\n"), kCannotShrink);
}

TEST_F(DiskDiskpart, ListAndDetailSucceedWithTheRightFocus) {
  MakeFat32();
  EXPECT_EQ(Diskpart("list part\r\nselect part 1\r\ndetail volume\r\n"), 0u);
}

TEST_F(DiskDiskpart, RescanFindsATableWrittenByHand) {
  MakePartition();
  Bytes sector = Sectors(0);
  sector[446 + 4] = std::byte{0x0C};
  SetSectors(0, sector);
  ASSERT_EQ(RunDiskpartScript("rescan\r\n"), 0u);
  EXPECT_EQ(GetLayout().rows[0].Mbr.PartitionType, 0x0C);
}

TEST_F(DiskDiskpart, OfflineDiskRefusesEveryVerbUntilItIsOnline) {
  MakePartition();
  ASSERT_EQ(Diskpart("offline disk\r\n"), 0u);
  EXPECT_EQ(Diskpart("clean\r\n"), kDiskOffline);
  EXPECT_EQ(FindVolume(kMiB), "");
  ASSERT_EQ(Diskpart("online disk\r\n"), 0u);
  WaitForVolume(kMiB);
}

TEST_F(DiskDiskpart, OnlineOfAnOnlineDiskIsDenied) {
  EXPECT_EQ(Diskpart("online disk\r\n"), kOperationDenied);
}

}  // namespace
}  // namespace conformance
