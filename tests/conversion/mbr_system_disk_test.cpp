// MBR disks that the machine runs from: they get an EFI system partition of 300 MiB, in the first
// gap that is longer or behind the last partition.
#include "conversion/rolled_back_disk.h"
#include "conversion/system_disk.h"
#include "conversion/volumes.h"

namespace conversion {
namespace {

using Lines = std::vector<std::string>;

const Lines kShrinking = {"percent 0", "status 1", "status 5"};

constexpr std::uint64_t kSmall = 4 * kSectorsPerMib;
constexpr std::uint64_t kFirstEnd = kSectorsPerMib + kSmall;

class MbrSystemDisk : public ConversionTest {
 protected:
  // Two small rows, the first at 1 MiB, with `gap` sectors between them and `tail` behind.
  Partitions MakeTwoRows(std::uint64_t gap, std::uint64_t tail) {
    const std::uint64_t second = kFirstEnd + gap;
    return MakeRows(
        {{kSectorsPerMib, kFirstEnd - 1, kMbrNtfs}, {second, second + kSmall - 1, kMbrNtfs}}, tail);
  }
  // The first row is the NTFS volume that the machine runs from.
  Partitions MakeRows(const Partitions& rows, std::uint64_t tail) {
    MakeDisk({rows, {}}, tail);
    return rows;
  }
  void MakeDisk(const MbrTable& table, std::uint64_t tail) {
    table_ = table;
    const Partitions rows = table.Rows();
    MakeMbrDisk(image(), (rows.back().last + 1 + tail) * kSectorBytes, table);
    system_ = rows.front();
    PutNtfs(image(), system_, MakeFiles(1), folder_.path());
  }

  void ExpectConverted(const Partitions& rows, const std::string& transcript) {
    ExpectedImage expected(image(), File("expected.img"));
    ExpectSystemConversion(image(), system_, expected, rows, transcript);
    ExpectNtfs(image(), system_, MakeFiles(1), folder_.path());
  }

  // Converts a disk that fails while room is made, before anything has been changed. It is emptied
  // and written back all the same.
  void ExpectNoRoom(const Lines& callbacks, const Lines& errors, const std::string& transcript) {
    RolledBackDisk disk(image(), table_.Rows());
    ConversionRun run(image());
    run.SetLetters('C');
    RunFrom(run, system_);
    const PartNumbers numbers = PartNumbersOf(run);
    ExpectFailure(run, callbacks, errors, transcript);
    EXPECT_EQ(PartNumbersOf(run), numbers);
    disk.Expect();
  }

  // A disk on which the boot repair fails, when the EFI system partition has been made.
  void ExpectNoRepair(ConversionRun& run, const Partitions& rows, const Lines& errors,
                      const std::string& transcript) {
    RolledBackDisk disk(image(), table_.Rows());
    const Partition efi = EfiAt(rows.back().last + 1);
    const PartNumbers numbers = PartNumbersOf(run);
    ExpectFailure(run, kRepairing, errors, transcript);
    EXPECT_EQ(PartNumbersOf(run), NewPartNumbers(numbers, {rows[0], rows[1], efi}));
    disk.expected().TakeSectors(efi.range());
    disk.Expect();
  }

  const Lines kRepairing = {"percent 0", "status 1",   "percent 20", "status 2",   "percent 40",
                            "status 3",  "percent 60", "status 4",   "percent 80", "status 6"};
  MbrTable table_;
  Partition system_;
};

TEST_F(MbrSystemDisk, AGapOfOneSectorMoreThan300MiBIsTaken) {
  const Partitions rows = MakeTwoRows(kEfiSectors + 1, 2 * kEfiSectors);
  ExpectConverted({rows[0], EfiAt(kFirstEnd), rows[1]}, "mbr_system_gap_above_300");
}

TEST_F(MbrSystemDisk, AGapOfExactly300MiBIsPassedOver) {
  const Partitions rows = MakeTwoRows(kEfiSectors, 2 * kEfiSectors);
  ExpectConverted({rows[0], rows[1], EfiAt(rows[1].last + 1)}, "mbr_system_gap_of_300");
}

TEST_F(MbrSystemDisk, TheFirstGapThatIsLongEnoughIsTaken) {
  const std::uint64_t gap = kEfiSectors + kSectorsPerMib;
  Partitions rows = EvenPrimaries(2, 4);
  for (int i = 0; i < 2; ++i) {
    const std::uint64_t first = rows.back().last + 1 + gap;
    rows.push_back({first, first + kSmall - 1, kMbrNtfs});
  }
  MakeRows(rows, kSectorsPerMib);
  ExpectConverted({rows[0], rows[1], EfiAt(rows[1].last + 1), rows[2], rows[3]},
                  "mbr_system_two_gaps");
}

// In front of the first row the partition starts at 1 MiB, and every other number rises by one.
TEST_F(MbrSystemDisk, AFirstRowFarFromTheStartLeavesNumberOneToTheBootPartition) {
  const std::uint64_t first = kSectorsPerMib + kEfiSectors + 1;
  const Partitions rows = MakeRows({{first, first + kSmall - 1, kMbrNtfs}}, kSectorsPerMib);
  ExpectConverted({EfiAt(kSectorsPerMib), rows[0]}, "mbr_system_efi_first");
}

TEST_F(MbrSystemDisk, RoomBehindTheLastRow) {
  const Partitions rows = MakeTwoRows(0, 2 * kEfiSectors);
  ExpectConverted({rows[0], rows[1], EfiAt(rows[1].last + 1)}, "mbr_system_room_at_the_end");
}

TEST_F(MbrSystemDisk, RoomBehindTheLastRowWith33SectorsLeft) {
  const Partitions rows = MakeTwoRows(0, kEfiSectors + kGptSectors);
  ExpectConverted({rows[0], rows[1], EfiAt(rows[1].last + 1)}, "mbr_system_33_sectors_left");
}

// Room for the boot partition alone is taken, though no 33 sectors are left behind it for the
// second copy of the table. It is the platform that refuses, on the empty disk.
TEST_F(MbrSystemDisk, EndOfTheBootPartitionPlus33SectorsIsNotTested) {
  for (const std::uint64_t left : {kGptSectors - 1, std::uint64_t{1}}) {
    SCOPED_TRACE(left);
    const Partitions rows = MakeTwoRows(0, kEfiSectors + left);
    RolledBackDisk disk(image(), rows);
    ConversionRun run(image());
    RunFrom(run, system_);
    const auto letters = run.Letters();
    const PartNumbers numbers = PartNumbersOf(run);
    EXPECT_EQ(run.Convert(), 1);
    if (left > 1) ExpectTranscript(run.transcript(), "mbr_system_32_sectors_left");
    EXPECT_EQ(run.Callbacks(), RolledBack({"percent 0", "status 1", "percent 20", "status 2",
                                           "percent 40", "status 3", "percent 60", "status 4"}));
    EXPECT_EQ(run.Errors(), Lines{"IOCTL_DISK_SET_DRIVE_LAYOUT_EX Error: 87"});
    EXPECT_EQ(run.Letters(), letters);
    EXPECT_EQ(PartNumbersOf(run), numbers);
    EXPECT_EQ(run.OpenHandles(), Lines());
    disk.Expect();
  }
}

TEST_F(MbrSystemDisk, BetweenLogicalRows) {
  const std::uint64_t second = kFirstEnd + kSectorsPerMib;
  const std::uint64_t third = second + kSmall + kEfiSectors + 2 * kSectorsPerMib;
  const MbrTable table = {
      {{kSectorsPerMib, kFirstEnd - 1, kMbrNtfs}, {kFirstEnd, third + kSmall - 1, kMbrContainer}},
      {{second, second + kSmall - 1, kMbrNtfs}, {third, third + kSmall - 1, kMbrNtfs}}};
  MakeDisk(table, kSectorsPerMib);
  const Partitions rows = table.Rows();
  ExpectConverted({rows[0], rows[1], EfiAt(rows[1].last + 1), rows[2]},
                  "mbr_system_between_logicals");
}

TEST_F(MbrSystemDisk, WithoutARowOver1GiBThereIsNoRoomToMake) {
  MakeRows({{kSectorsPerMib, 1025 * kSectorsPerMib - 1, kMbrNtfs}}, kSectorsPerMib);
  ExpectNoRoom({"percent 0", "status 1"}, {"Need compress for efi but not"}, "mbr_system_no_room");
}

// What a data disk is forgiven.
TEST_F(MbrSystemDisk, TailRoomThatCannotBeMadeEndsTheRun) {
  MakeTwoRows(kEfiSectors + 1, 32);
  ExpectNoRoom(kShrinking, {"CompressPart fail!"}, "mbr_system_tail_cannot_be_made");
}

TEST_F(MbrSystemDisk, ARowThatIsNoNtfsVolumeGivesNoRoom) {
  Partitions rows = EvenPrimaries(1, 4);
  rows.push_back({kFirstEnd, kFirstEnd + 1024 * kSectorsPerMib, kMbrNtfs});
  MakeRows(rows, kSectorsPerMib);
  ExpectNoRoom(kShrinking, {"CompressPart fail!"}, "mbr_system_no_ntfs_to_shrink");
}

// The EFI system partition has been made by then. Its volume stays, and no entry leads to it.
TEST_F(MbrSystemDisk, WithoutALetterTheSystemVolumeGetsNoBootStore) {
  const Partitions rows = MakeTwoRows(0, 2 * kEfiSectors);
  ConversionRun run(image());
  run.machine().RemoveLetter(run.Letters().at(rows[0].offset()).front());
  RunFrom(run, system_);
  ExpectNoRepair(run, rows, {}, "mbr_system_without_letter");
}

TEST_F(MbrSystemDisk, WithoutAWindowsFolderThereIsNoBootStore) {
  const Partitions rows = MakeTwoRows(0, 2 * kEfiSectors);
  ConversionRun run(image());
  run.record().MarkSystem('C');
  ExpectNoRepair(run, rows, {"RecoverBcd fail!"}, "mbr_system_without_windows");
}

}  // namespace
}  // namespace conversion
