// Two conversions in a row, there and back: what survives is as it was, byte by byte, but for the
// ends of the disk, the tables, and on a system disk what makes it start.
#include "conversion/system_disk.h"
#include "conversion/volumes.h"

namespace conversion {
namespace {

class RoundTrip : public ConversionTest {
 protected:
  void Convert(const std::string& transcript) {
    ConversionRun run(image());
    EXPECT_EQ(run.Convert(), 0);
    ExpectTranscript(run.transcript(), transcript);
  }
  void ConvertSystem(const Partition& system, const std::string& transcript) {
    ConversionRun run(image());
    RunFrom(run, system);
    EXPECT_EQ(run.Convert(), 0);
    ExpectTranscript(run.transcript(), transcript);
  }
  void PutVolumes(const Partitions& partitions) {
    PutNtfs(image(), partitions[0], MakeFiles(1), folder_.path());
    PutFat32(image(), partitions[1], MakeFiles(2), folder_.path());
    PutExt4(image(), partitions[2], MakeFiles(3), folder_.path());
    PutNtfs(image(), partitions[3], MakeFiles(4), folder_.path());
  }
  void ExpectVolumes(const Partitions& partitions) {
    ExpectNtfs(image(), partitions[0], MakeFiles(1), folder_.path());
    ExpectFat32(image(), partitions[1], MakeFiles(2), folder_.path());
    ExpectExt4(image(), partitions[2], MakeFiles(3), folder_.path());
    ExpectNtfs(image(), partitions[3], MakeFiles(4), folder_.path());
  }
};

TEST_F(RoundTrip, AnMbrDataDisk) {
  const MbrTable table = EvenLogicals(3, 36);
  const Partitions rows = table.Rows();
  MakeMbrDisk(image(), 160 * kMib, table);
  PutVolumes(rows);
  ExpectedImage expected(image(), File("expected.img"));
  const auto hashes = PartitionHashes(image(), rows);

  Convert("round_trip_mbr_1");
  ExpectConvertedGpt(image(), expected, rows);
  Convert("round_trip_to_mbr");

  expected.Convert(rows);
  EXPECT_EQ(DifferingSectors(expected.path(), image()), SectorRanges());
  EXPECT_EQ(PartitionHashes(image(), rows), hashes);
  ExpectMbr(image(), rows, kSignature);
  ExpectVolumes(rows);
}

TEST_F(RoundTrip, AGptDataDisk) {
  const Partitions partitions = EvenPartitions(4, 36, 1);
  MakeGptDisk(image(), 160 * kMib, partitions);
  PutVolumes(partitions);
  ExpectedImage expected(image(), File("expected.img"));
  const auto hashes = PartitionHashes(image(), partitions);

  Convert("round_trip_to_mbr");
  expected.Convert(partitions);
  EXPECT_EQ(DifferingSectors(expected.path(), image()), SectorRanges());
  Convert("round_trip_gpt_2");

  ExpectConvertedGpt(image(), expected, partitions);
  EXPECT_EQ(PartitionHashes(image(), partitions), hashes);
  ExpectVolumes(partitions);
}

// The EFI system partition leaves the table on the way back; its sectors stay as they are.
TEST_F(RoundTrip, AnMbrSystemDisk) {
  const Partitions rows = EvenPrimaries(3, 36);
  MakeMbrDisk(image(), 500 * kMib, {rows, {}});
  PutNtfs(image(), rows[1], MakeFiles(1), folder_.path());
  PutFat32(image(), rows[2], MakeFiles(2), folder_.path());
  ExpectedImage expected(image(), File("expected.img"));
  const auto hashes = PartitionHashes(image(), {rows[0], rows[2]});
  const Partition efi = EfiAt(rows[2].last + 1);

  ConvertSystem(rows[1], "round_trip_mbr_system_1");
  expected.TakeSectors(efi.range());
  ExpectConvertedGpt(image(), expected, {rows[0], rows[1], rows[2], efi});
  ConvertSystem(rows[1], "round_trip_mbr_system_2");

  expected.Convert(rows);
  expected.TakeBootCode(rows[1].first);
  expected.Activate(1);
  EXPECT_EQ(DifferingSectors(expected.path(), image()), SectorRanges());
  EXPECT_EQ(PartitionHashes(image(), {rows[0], rows[2]}), hashes);
  ExpectMbr(image(), rows, kSignature);
  ExpectShrunkNtfs(image(), rows[1], MakeFiles(1), folder_.path());
  ExpectFat32(image(), rows[2], MakeFiles(2), folder_.path());
}

// The old EFI system partition is lost, and a new one is made behind the last row.
TEST_F(RoundTrip, AGptSystemDisk) {
  Partitions partitions = EvenPartitions(4, 36, 1);
  partitions[0].type = kEfiSystem;
  partitions[1].type = kReserved;
  const Partitions kept = Kept(partitions);
  MakeGptDisk(image(), 500 * kMib, partitions);
  PutFat32(image(), partitions[0], {}, folder_.path());
  PutNtfs(image(), kept[0], MakeFiles(1), folder_.path());
  PutFat32(image(), kept[1], MakeFiles(2), folder_.path());
  ExpectedImage expected(image(), File("expected.img"));
  const auto hashes = PartitionHashes(image(), {partitions[0], partitions[1], kept[1]});

  ConvertSystem(kept[0], "round_trip_gpt_system_1");
  expected.Convert(kept);
  expected.TakeBootCode(kept[0].first);
  expected.Activate(0);
  EXPECT_EQ(DifferingSectors(expected.path(), image()), SectorRanges());
  ConvertSystem(kept[0], "round_trip_gpt_system_2");

  const Partition efi = EfiAt(kept[1].last + 1);
  expected.TakeSectors(efi.range());
  ExpectConvertedGpt(image(), expected, {kept[0], kept[1], efi});
  EXPECT_EQ(PartitionHashes(image(), {partitions[0], partitions[1], kept[1]}), hashes);
  ExpectEfiVolume(image(), efi, folder_.path());
  ExpectShrunkNtfs(image(), kept[0], MakeFiles(1), folder_.path());
  ExpectFat32(image(), kept[1], MakeFiles(2), folder_.path());
}

}  // namespace
}  // namespace conversion
