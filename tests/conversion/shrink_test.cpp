// Room for boot records: where it is missing, the NTFS volume in front gives up 5 MiB, and a volume
// that cannot ends the conversion.
#include <gmock/gmock.h>

#include "conversion/converted_disk_fixture.h"
#include "conversion/rolled_back_disk.h"
#include "conversion/volumes.h"

namespace conversion {
namespace {

using Lines = std::vector<std::string>;

constexpr std::uint64_t kSize = 96 * kMib;
constexpr std::uint64_t kRoom = 5 * kSectorsPerMib;
constexpr char kLongText[] =
    "GPT is larger than 4 partitions and there is no partition gap, and it is necessary "
    "\\t\\t\\t\\tto compress partitions to convert to MBR, but currently compressed partitions "
    "only "
    "support NTFS and fat32.";

Partition Shortened(Partition partition) {
  partition.last -= kRoom;
  return partition;
}

// Four partitions of 16 MiB, the third of them followed by the fourth at `distance` sectors from
// its last sector.
Partitions FourWithDistance(std::uint64_t distance) {
  Partitions partitions = EvenPartitions(3, 16, 0);
  const std::uint64_t first = partitions[2].last + distance;
  partitions.push_back({first, first + 36 * kSectorsPerMib - 1});
  return partitions;
}

class Shrink : public ConversionTest {
 protected:
  // Converts a disk on which the partitions at these places have to be shrunk, and judges it.
  void ExpectShrunk(const Partitions& partitions, const std::vector<std::size_t>& places,
                    const std::string& transcript) {
    ExpectedImage expected(image(), File("expected.img"));
    ConversionRun run(image());
    run.SetLetters('F');
    const auto letters = run.Letters();
    EXPECT_EQ(run.Convert(), 0);
    ExpectTranscript(run.transcript(), transcript);
    EXPECT_EQ(run.Letters(), letters);
    EXPECT_EQ(run.OpenHandles(), Lines());

    Partitions shortened = partitions;
    for (const std::size_t place : places) {
      expected.ShortenNtfs(partitions[place].first, kRoom);
      shortened[place] = Shortened(partitions[place]);
    }
    expected.Convert(shortened);
    EXPECT_EQ(DifferingSectors(expected.path(), image()), SectorRanges());
    ExpectMbr(image(), shortened, kSignature);
  }

  // Converts a disk of which a partition cannot be shrunk, and expects it back. It is emptied in
  // any case, and below 128 MiB its GPT has no protective record then: the system sees no volumes.
  void ExpectRefusal(ConversionRun& run, const Partitions& partitions,
                     const std::string& transcript, const Lines& callbacks) {
    RolledBackDisk disk(image(), partitions);
    const PartNumbers numbers = PartNumbersOf(run);
    EXPECT_EQ(run.Convert(), 1);
    ExpectTranscript(run.transcript(), transcript);
    EXPECT_EQ(run.Callbacks(), RolledBack(callbacks));
    EXPECT_EQ(run.Errors(), (Lines{"CompressPart fail!",
                                   "GetExitCodeProcess fail, error: -2147211943, last error: 0",
                                   "DISKPART_Convert Failed!", "FindFirstVolumeA error 18",
                                   "RestoreVolumeInfos Error: 18"}));
    EXPECT_THAT(run.Letters(), ::testing::IsEmpty());
    EXPECT_EQ(PartNumbersOf(run), numbers);
    EXPECT_EQ(run.OpenHandles(), Lines());
    disk.Expect();
  }
};

TEST_F(Shrink, ADistanceOf2047SectorsShrinksTheVolumeInFront) {
  const Partitions partitions = FourWithDistance(2047);
  MakeGptDisk(image(), kSize, partitions);
  PutNtfs(image(), partitions[2], MakeFiles(1), folder_.path());
  PutFat32(image(), partitions[3], MakeFiles(2), folder_.path());
  ExpectShrunk(partitions, {2}, "distance_2047");
  ExpectShrunkNtfs(image(), Shortened(partitions[2]), MakeFiles(1), folder_.path());
  ExpectFat32(image(), partitions[3], MakeFiles(2), folder_.path());
}

TEST_F(Shrink, ADistanceOf2048SectorsIsRoomEnough) {
  const Partitions partitions = FourWithDistance(2048);
  MakeGptDisk(image(), kSize, partitions);
  PutNtfs(image(), partitions[2], MakeFiles(1), folder_.path());
  ExpectConversion(image(), partitions, "distance_2048");
  ExpectNtfs(image(), partitions[2], MakeFiles(1), folder_.path());
}

// The rows in front of the third stay primary and may touch each other.
TEST_F(Shrink, EachRowFromTheThirdOnGivesItsOwnRoom) {
  const Partitions partitions = EvenPartitions(5, 16, 0);
  MakeGptDisk(image(), kSize, partitions);
  for (const unsigned place : {2u, 3u, 4u}) {
    PutNtfs(image(), partitions[place], MakeFiles(place), folder_.path());
  }
  ExpectShrunk(partitions, {2, 3}, "two_volumes_shrunk");
  ExpectShrunkNtfs(image(), Shortened(partitions[2]), MakeFiles(2), folder_.path());
  ExpectShrunkNtfs(image(), Shortened(partitions[3]), MakeFiles(3), folder_.path());
  ExpectNtfs(image(), partitions[4], MakeFiles(4), folder_.path());
}

// Rows are compared as they stand in the table: the third row lies behind the fourth on the disk,
// and is shrunk although every gap is wide enough.
TEST_F(Shrink, AnOrderOfRowsCanShrinkAVolumeWithRoom) {
  const Partitions on_disk = EvenPartitions(4, 16, 2);
  const Partitions partitions = {on_disk[0], on_disk[1], on_disk[3], on_disk[2]};
  MakeGptDisk(image(), kSize, partitions);
  PutNtfs(image(), partitions[2], MakeFiles(1), folder_.path());
  ExpectShrunk(partitions, {2}, "out_of_order_shrunk");
  ExpectShrunkNtfs(image(), Shortened(partitions[2]), MakeFiles(1), folder_.path());
}

TEST_F(Shrink, AnExt4VolumeWithoutRoomBehindItFails) {
  const Partitions partitions = FourWithDistance(1);
  MakeGptDisk(image(), kSize, partitions);
  PutExt4(image(), partitions[2], MakeFiles(1), folder_.path());
  ConversionRun run(image());
  ExpectRefusal(run, partitions, "ext4_without_room", {"percent 0", "status 1", "status 5"});
  EXPECT_THAT(run.Lines("log 1: "), ::testing::Contains(kLongText));
  ExpectExt4(image(), partitions[2], MakeFiles(1), folder_.path());
}

// The volume in front has been shrunk by then, in its boot sector and in both copies of the table,
// and gets its length back.
TEST_F(Shrink, ALaterVolumeThatCannotBeShrunkFailsToo) {
  const Partitions partitions = EvenPartitions(5, 16, 0);
  MakeGptDisk(image(), kSize, partitions);
  PutNtfs(image(), partitions[2], MakeFiles(1), folder_.path());
  PutExt4(image(), partitions[3], MakeFiles(2), folder_.path());
  ConversionRun run(image());
  ExpectRefusal(run, partitions, "ext4_behind_a_shrunk_volume",
                {"percent 0", "status 1", "status 5", "status 5"});
  EXPECT_THAT(run.Lines("log 1: "), ::testing::Contains(kLongText));
  ExpectNtfs(image(), partitions[2], MakeFiles(1), folder_.path());
  ExpectExt4(image(), partitions[3], MakeFiles(2), folder_.path());
}

// A record without volumes: nothing to shrink is found where room is missing.
TEST_F(Shrink, WithoutAVolumeInTheRecordThereIsNothingToShrink) {
  const Partitions partitions = FourWithDistance(1);
  MakeGptDisk(image(), kSize, partitions);
  ConversionRun run(image());
  run.record().disk().volume_count = 0;
  ExpectRefusal(run, partitions, "no_volume_to_shrink", {"percent 0", "status 1", "status 5"});
}

}  // namespace
}  // namespace conversion
