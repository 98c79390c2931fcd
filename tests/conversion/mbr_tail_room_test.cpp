// The 33 sectors behind the last partition of an MBR disk that the second copy of a GPT needs:
// where they are missing, the last volume gives up 1 MiB. On a data disk one that cannot is no
// reason to end there, and the platform decides.
#include "conversion/converted_mbr_disk.h"
#include "conversion/rolled_back_disk.h"
#include "conversion/volumes.h"

namespace conversion {
namespace {

using Lines = std::vector<std::string>;

constexpr std::uint64_t kSize = 32 * kMib;
constexpr std::uint64_t kSectors = kSize / kSectorBytes;
constexpr std::uint64_t kFirst = 16 * kSectorsPerMib;

const Lines kWriting = {"percent 0",  "status 1", "status 5",   "percent 20", "status 2",
                        "percent 40", "status 3", "percent 60", "status 4"};
constexpr char kRefused[] = "IOCTL_DISK_SET_DRIVE_LAYOUT_EX Error: 87";

Partition Shortened(Partition partition) {
  partition.last -= kSectorsPerMib;
  return partition;
}

class MbrTailRoom : public ConversionTest {
 protected:
  // A table whose last row ends `room` sectors in front of the end of the disk.
  static MbrTable TableWithRoom(std::uint64_t room) {
    return {{{2048, 4095, kMbrNtfs}, {kFirst, kSectors - room - 1, kMbrNtfs}}, {}};
  }
  void MakeNtfsDisk(const MbrTable& table) {
    MakeMbrDisk(image(), kSize, table);
    PutNtfs(image(), table.Rows().back(), MakeFiles(1), folder_.path());
  }

  // Converts a disk whose last volume has to be shrunk. `record` is the boot record of that volume
  // if it is a logical one, else 0.
  void ExpectShrunkAndConverted(const MbrTable& table, std::uint64_t record,
                                const std::string& transcript) {
    Partitions rows = table.Rows();
    ExpectedImage expected(image(), File("expected.img"));
    ConversionRun run(image());
    const auto letters = run.Letters();
    EXPECT_EQ(run.Convert(), 0);
    ExpectTranscript(run.transcript(), transcript);
    EXPECT_EQ(run.Letters(), letters);
    EXPECT_EQ(run.OpenHandles(), Lines());
    rows.back() = Shortened(rows.back());
    expected.ShortenNtfs(rows.back().first, kSectorsPerMib);
    if (record != 0) expected.ChangeLogical(record, rows.back().range());
    ExpectConvertedGpt(image(), expected, rows);
    ExpectShrunkNtfs(image(), rows.back(), MakeFiles(1), folder_.path());
  }

  // Runs a conversion that fails on the empty disk, and expects the disk back as it was; what the
  // last volume had in the last MiB is lost.
  void ExpectRollback(ConversionRun& run, const MbrTable& table, const Lines& errors,
                      const std::string& transcript) {
    RolledBackDisk disk(image(), table.Rows());
    const PartNumbers numbers = PartNumbersOf(run);
    ExpectFailure(run, kWriting, errors, transcript);
    EXPECT_EQ(PartNumbersOf(run), numbers);
    disk.Expect();
  }
};

TEST_F(MbrTailRoom, ThirtyThreeSectorsAreEnough) {
  const MbrTable table = TableWithRoom(33);
  MakeMbrDisk(image(), kSize, table);
  ExpectedImage expected(image(), File("expected.img"));
  ConversionRun run(image());
  EXPECT_EQ(run.Convert(), 0);
  ExpectTranscript(run.transcript(), "mbr_tail_of_33");
  ExpectConvertedGpt(image(), expected, table.Rows());
}

// What the volume gives up is the last MiB of the disk, which the emptying zeroes.
TEST_F(MbrTailRoom, ThirtyTwoSectorsShrinkTheLastVolume) {
  const MbrTable table = TableWithRoom(32);
  MakeNtfsDisk(table);
  ExpectShrunkAndConverted(table, 0, "mbr_tail_of_32");
}

TEST_F(MbrTailRoom, AVolumeUpToTheEndOfTheDiskIsShrunk) {
  const MbrTable table = TableWithRoom(0);
  MakeNtfsDisk(table);
  ExpectShrunkAndConverted(table, 0, "mbr_tail_of_0");
}

// The boot record that tells the length of a logical partition changes too.
TEST_F(MbrTailRoom, ALogicalVolumeIsShrunkInItsBootRecord) {
  const MbrTable table = {{{2048, 4095, kMbrNtfs}, {8192, kSectors - 1, kMbrContainer}},
                          {{10240, 12287, kMbrNtfs}, {kFirst, kSectors - 1, kMbrNtfs}}};
  MakeNtfsDisk(table);
  ExpectShrunkAndConverted(table, kFirst - kSectorsPerMib, "mbr_logical_tail");
}

TEST_F(MbrTailRoom, WithoutRoomThatCanBeMadeThePlatformRefusesTheTable) {
  const MbrTable table = TableWithRoom(32);
  MakeMbrDisk(image(), kSize, table);
  PutExt4(image(), table.Rows().back(), MakeFiles(1), folder_.path());
  ConversionRun run(image());
  ExpectRollback(run, table, {"CompressPart fail!", kRefused}, "mbr_tail_cannot_be_made");
}

// The list is still the old one when the rescan behind the shrink fails.
TEST_F(MbrTailRoom, AFailedRescanBehindTheShrinkIsForgottenToo) {
  const MbrTable table = TableWithRoom(32);
  MakeNtfsDisk(table);
  ConversionRun run(image());
  run.machine().calls().FailOn("command", 1);
  ExpectRollback(
      run, table,
      {"GetExitCodeProcess fail, error: 31, last error: 0", "DISKPART_Rescan Failed!", kRefused},
      "mbr_tail_rescan_fails");
  ExpectShrunkNtfs(image(), table.Rows().back(), MakeFiles(1), folder_.path());
}

// A record that tells a disk smaller than it is: the room seems to be missing and is not.
TEST_F(MbrTailRoom, WithoutRoomThatCanBeMadeThePlatformMayAcceptTheTable) {
  const MbrTable table = TableWithRoom(4096);
  MakeMbrDisk(image(), kSize, table);
  ExpectedImage expected(image(), File("expected.img"));
  ConversionRun run(image());
  run.record().disk().size = kSize / 2;
  EXPECT_EQ(run.Convert(), 0);
  ExpectTranscript(run.transcript(), "mbr_tail_cannot_be_made_and_is_there");
  EXPECT_EQ(run.Errors(), Lines{"CompressPart fail!"});
  ExpectConvertedGpt(image(), expected, table.Rows());
}

// The volume has been shrunk, the list has been cleared, and the read sees the stop: what is left
// is a list without rows, which on a data disk is forgiven. The run ends in success with an empty
// table; the partitions are whole, but no entry leads to them.
TEST_F(MbrTailRoom, AStopBetweenTheShrinkAndTheReadEndsInSuccessWithAnEmptyTable) {
  MakeNtfsDisk(TableWithRoom(32));
  ExpectedImage expected(image(), File("expected.img"));
  ConversionRun run(image());
  run.StopAt("status 5");
  EXPECT_EQ(run.Convert(), 0);
  ExpectTranscript(run.transcript(), "mbr_stop_in_the_tail_shrink");
  EXPECT_EQ(run.OpenHandles(), Lines());
  expected.ShortenNtfs(kFirst, kSectorsPerMib);
  ExpectConvertedGpt(image(), expected, {});
  ExpectShrunkNtfs(image(), Shortened(TableWithRoom(32).Rows().back()), MakeFiles(1),
                   folder_.path());
}

}  // namespace
}  // namespace conversion
