// The verbs of diskpart that work on partitions and volumes.
#include <gtest/gtest.h>

#include "simulator/commands/diskpart_layout.h"
#include "simulator/disk.h"
#include "simulator/diskpart_fixture.h"
#include "simulator/storage/file_system_probe.h"
#include "simulator/volume.h"

namespace testing_support {
namespace {

using simulator::Disk;
using simulator::DiskLayout;
using simulator::FileSystem;
using simulator::Volume;

class DiskpartPartitions : public DiskpartTest {
 protected:
  std::string LettersAt(std::uint64_t offset) {
    const Volume* volume = machine_.FindVolumeAt(1, offset);
    return volume == nullptr ? "no volume" : machine_.LettersOf(*volume);
  }
};

// ---- select, list, detail -----------------------------------------------------------------------

TEST_F(DiskpartPartitions, SelectGoesByTheNumberInTheBelievedTable) {
  Disk& disk = AttachDisk(200 * kMiB);
  MakeMbr(disk);
  EXPECT_EQ(RunOnDisk({"select part 3"}), 0U);
  EXPECT_TRUE(Printed("Partition 3 is now the selected partition."));
  EXPECT_EQ(RunOnDisk({"sel partition 1"}), 0U);
  EXPECT_EQ(RunOnDisk({"select part 4"}), kObjectNotFound);
  EXPECT_EQ(RunOnDisk({"select part 4294967297"}), kObjectNotFound);
  EXPECT_EQ(RunOnDisk({"select part x"}), kSyntaxError);
  Fill(disk, 0, 512, std::byte{0});
  EXPECT_EQ(RunOnDisk({"select part 3"}), 0U);
  EXPECT_EQ(RunOnDisk({"rescan", "select part 3"}), kObjectNotFound);
}

TEST_F(DiskpartPartitions, UnusedRowsAndContainersCannotBeSelected) {
  MakeMbr(AttachDisk(200 * kMiB));
  EXPECT_EQ(RunOnDisk({"select part 0"}), kObjectNotFound);
}

TEST_F(DiskpartPartitions, AFailedSelectionLeavesNoneInFocus) {
  MakeGpt(AttachDisk(200 * kMiB), {{kMiB, 8 * kMiB}});
  EXPECT_EQ(RunOnDisk({"select part 1", "select part 2", "detail volume"}), kObjectNotFound);
}

TEST_F(DiskpartPartitions, ListShowsEachPartitionAndTheFocus) {
  MakeMbr(AttachDisk(200 * kMiB));
  EXPECT_EQ(RunOnDisk({"select part 2", "list part"}), 0U);
  EXPECT_TRUE(Printed("  Partition ###  Type                  Size    Offset\r\n"));
  EXPECT_TRUE(Printed("  Partition 1    Primary            8192 KB   1024 KB\r\n"));
  EXPECT_TRUE(Printed("  * Partition 2  Primary            8192 KB     16 MB\r\n"));
  EXPECT_TRUE(Printed("  Partition 3    Logical            8192 KB     33 MB\r\n"));
  EXPECT_FALSE(Printed("Partition 0"));
}

TEST_F(DiskpartPartitions, ListNamesTheSystemTypes) {
  AttachDisk(200 * kMiB);
  EXPECT_EQ(RunOnDisk({"convert gpt", "create part efi size=100", "list part"}), 0U);
  EXPECT_TRUE(Printed("Reserved"));
  EXPECT_TRUE(Printed("System              100 MB     16 MB"));
}

TEST_F(DiskpartPartitions, DetailNeedsAVolumeThatIsPresent) {
  AttachDisk(200 * kMiB);
  // Partition 1 is the reserved one, which has no volume.
  ASSERT_EQ(RunOnDisk({"convert gpt", "create part efi size=100"}), 0U);
  EXPECT_EQ(RunOnDisk({"select part 1", "detail volume"}), kObjectNotFound);
  EXPECT_EQ(RunOnDisk({"select part 2", "detail volume"}), 0U);
  EXPECT_TRUE(Printed("* Disk 1"));
}

// ---- create part efi ----------------------------------------------------------------------------

TEST_F(DiskpartPartitions, CreateTakesTheFirstRegionThatFits) {
  Disk& disk = AttachDisk(400 * kMiB);
  // Free: 4 MiB behind the first partition, of which 3 are aligned; 10 MiB; the rest.
  MakeGpt(disk, {{40 * kMiB, 60 * kMiB}, {kMiB, 8 * kMiB + 512}, {13 * kMiB, 17 * kMiB}});
  EXPECT_EQ(RunOnDisk({"create part efi size=4"}), 0U);
  EXPECT_EQ(RunOnDisk({"create part efi size=3"}), 0U);
  EXPECT_EQ(RunOnDisk({"create part efi size=7"}), 0U);
  disk.Forget();
  const DiskLayout layout = LayoutOf(disk);
  ASSERT_EQ(layout.rows.size(), 6U);
  EXPECT_EQ(layout.rows[3].StartingOffset.QuadPart, static_cast<LONGLONG>(30 * kMiB));
  EXPECT_EQ(layout.rows[4].StartingOffset.QuadPart, static_cast<LONGLONG>(10 * kMiB));
  EXPECT_EQ(layout.rows[5].StartingOffset.QuadPart, static_cast<LONGLONG>(100 * kMiB));
  EXPECT_EQ(layout.rows[5].PartitionLength.QuadPart, static_cast<LONGLONG>(7 * kMiB));
}

TEST_F(DiskpartPartitions, CreateEndsAtTheLastUsableSector) {
  AttachDisk(200 * kMiB);
  EXPECT_EQ(RunOnDisk({"convert gpt", "create part efi size=184"}), kNotEnoughSpace);
  EXPECT_EQ(RunOnDisk({"create part efi size=183"}), 0U);
  EXPECT_EQ(RunOnDisk({"create part efi size=1"}), kNotEnoughSpace);
}

TEST_F(DiskpartPartitions, CreateRefusesSizesThatAreNone) {
  AttachDisk(200 * kMiB);
  ASSERT_EQ(RunOnDisk({"convert gpt"}), 0U);
  for (const std::string_view line :
       {"create part efi size=", "create part efi size=0", "create part efi size=x",
        "create part efi 100", "create part efi size=17592186044416"}) {
    EXPECT_EQ(RunOnDisk({line}), kSyntaxError) << line;
  }
  EXPECT_EQ(RunOnDisk({"create part efi size=17592186044415"}), kNotEnoughSpace);
}

TEST_F(DiskpartPartitions, CreateNeedsAGpt) {
  AttachDisk(200 * kMiB);
  EXPECT_EQ(RunOnDisk({"create part efi size=10"}), kOperationDenied);
}

// ---- format -------------------------------------------------------------------------------------

TEST_F(DiskpartPartitions, FormatMakesAFat32VolumeAndMountsIt) {
  Disk& disk = AttachDisk(200 * kMiB);
  EXPECT_EQ(
      RunOnDisk({"convert gpt", "create part efi size=100", "format fs=FAT32 quick override"}), 0U);
  const Volume* volume = machine_.FindVolumeAt(1, 16 * kMiB);
  ASSERT_NE(volume, nullptr);
  EXPECT_EQ(volume->file_system, FileSystem::kFat32);
  EXPECT_TRUE(volume->mounted);
  const auto info = simulator::ProbeFileSystem(disk.device(), 16 * kMiB);
  EXPECT_EQ(info.total_sectors, 100 * kMiB / 512);
  // Hidden sectors.
  EXPECT_EQ(Bytes(disk, 16 * kMiB + 28, 4),
            (std::vector<std::byte>{std::byte{0}, std::byte{0x80}, std::byte{0}, std::byte{0}}));
}

TEST_F(DiskpartPartitions, OnlyAQuickFormatLeavesTheRestOfTheVolume) {
  Disk& disk = AttachDisk(200 * kMiB);
  ASSERT_EQ(RunOnDisk({"convert gpt", "create part efi size=100"}), 0U);
  const std::uint64_t inside = 116 * kMiB - 512;
  Fill(disk, inside, 1024, std::byte{0xA5});
  EXPECT_EQ(RunOnDisk({"select part 2", "format fs=fat32 quick override"}), 0U);
  EXPECT_EQ(Bytes(disk, inside, 512), std::vector<std::byte>(512, std::byte{0xA5}));
  EXPECT_EQ(RunOnDisk({"select part 2", "format fs=fat32 override"}), 0U);
  EXPECT_EQ(Bytes(disk, inside, 512), std::vector<std::byte>(512));
  EXPECT_EQ(Bytes(disk, inside + 512, 512), std::vector<std::byte>(512, std::byte{0xA5}));
}

TEST_F(DiskpartPartitions, FormatRefusesOtherFileSystemsAndLeavesTheVolume) {
  Disk& disk = AttachDisk(200 * kMiB);
  ASSERT_EQ(RunOnDisk({"convert gpt", "create part efi size=100"}), 0U);
  EXPECT_EQ(RunOnDisk({"select part 2", "format fs=ntfs quick override"}), kIncompatibleFileSystem);
  EXPECT_EQ(RunOnDisk({"select part 2", "format fs= quick"}), kSyntaxError);
  EXPECT_EQ(RunOnDisk({"select part 2", "format quick override"}), kSyntaxError);
  EXPECT_EQ(RunOnDisk({"select part 2", "format fs=fat32 slow"}), kSyntaxError);
  EXPECT_EQ(Bytes(disk, 16 * kMiB, 4096), std::vector<std::byte>(4096));
}

TEST_F(DiskpartPartitions, FormatTakesAtMost32GiB) {
  const std::uint64_t limit = 32 * 1024 * kMiB;
  Disk& disk = AttachDisk(80 * 1024 * kMiB);
  MakeGpt(disk, {{kMiB, limit}, {limit + 2 * kMiB, limit + 512}});
  EXPECT_EQ(RunOnDisk({"select part 2", "format fs=fat32 quick override"}), kVolumeTooBig);
  EXPECT_EQ(RunOnDisk({"select part 1", "format fs=fat32 quick override"}), 0U);
}

TEST_F(DiskpartPartitions, FormatNeedsAVolume) {
  AttachDisk(200 * kMiB);
  EXPECT_EQ(RunOnDisk({"convert gpt", "select part 1", "format fs=fat32 quick override"}),
            kObjectNotFound);
}

// ---- active -------------------------------------------------------------------------------------

std::vector<int> BootFlags(Disk& disk) {
  std::vector<int> flags;
  for (const std::size_t entry : {0U, 1U, 2U, 3U}) {
    flags.push_back(std::to_integer<int>(Bytes(disk, 446 + 16 * entry, 1).front()));
  }
  return flags;
}

TEST_F(DiskpartPartitions, ActiveMarksOnePrimaryAndClearsTheOthers) {
  Disk& disk = AttachDisk(200 * kMiB);
  MakeMbr(disk);
  const auto entries = Bytes(disk, 446, 64);
  EXPECT_EQ(RunOnDisk({"select part 1", "active"}), 0U);
  EXPECT_EQ(BootFlags(disk), (std::vector<int>{0x80, 0, 0, 0}));
  EXPECT_EQ(RunOnDisk({"select part 2", "active"}), 0U);
  EXPECT_EQ(BootFlags(disk), (std::vector<int>{0, 0x80, 0, 0}));
  // Apart from the flag nothing of the table has changed.
  auto expected = entries;
  expected[16] = std::byte{0x80};
  EXPECT_EQ(Bytes(disk, 446, 64), expected);
  EXPECT_EQ(machine_.volumes().size(), 3U);
}

TEST_F(DiskpartPartitions, ActiveOnceMoreWritesNothing) {
  Disk& disk = AttachDisk(200 * kMiB);
  MakeMbr(disk);
  ASSERT_EQ(RunOnDisk({"select part 2", "active"}), 0U);
  const std::uint64_t written = disk.device().bytes_written();
  EXPECT_EQ(RunOnDisk({"select part 2", "active"}), 0U);
  EXPECT_EQ(disk.device().bytes_written(), written);
}

// ---- assign, remove -----------------------------------------------------------------------------

TEST_F(DiskpartPartitions, AssignRefusesWhatIsNoLetter) {
  MakeGpt(AttachDisk(200 * kMiB), {{kMiB, 8 * kMiB}});
  for (const std::string_view line : {"assign letter=", "assign letter=1", "assign letter=S:",
                                      "assign S", "assign", "remove letter=", "remove"}) {
    EXPECT_EQ(RunOnDisk({"select part 1", line}), kSyntaxError) << line;
  }
}

TEST_F(DiskpartPartitions, RemoveRefusesALetterOfAnotherVolume) {
  MakeGpt(AttachDisk(200 * kMiB), {{kMiB, 8 * kMiB}, {16 * kMiB, 8 * kMiB}});
  EXPECT_EQ(RunOnDisk({"select part 1", "remove letter=D"}), kBadDriveLetter);
  EXPECT_EQ(LettersAt(16 * kMiB), "D");
}

}  // namespace
}  // namespace testing_support
