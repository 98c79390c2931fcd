// Disks that the machine runs from, whose volumes need a while to come back after the new table has
// been written: the letters wait for them.
#include "conversion/system_disk.h"
#include "conversion/volumes.h"

namespace conversion {
namespace {

using Lines = std::vector<std::string>;

// A pass asks for two partitions, and after its pause for the first again. So the second partition
// is the first to answer, in the second pass.
constexpr std::uint32_t kFailingRuns = 4;

class MountDelayConversion : public ConversionTest {
 protected:
  // Converts with volumes that come back late, and expects the letters where they were.
  void Convert(ConversionRun& run, const std::map<std::uint64_t, std::string>& letters,
               const std::string& transcript) {
    run.machine().mount_delay_runs = kFailingRuns;
    EXPECT_EQ(run.Convert(), 0);
    ExpectTranscript(run.transcript(), transcript);
    EXPECT_EQ(run.Errors(), Lines{"System Volume Not Mounted! Retry..."});
    EXPECT_EQ(Pauses(run), Lines{"3000"});
    EXPECT_EQ(run.Letters(), letters);
    EXPECT_EQ(run.OpenHandles(), Lines());
  }

  static Lines Pauses(ConversionRun& run) {
    Lines pauses;
    for (const simulator::Call& call : run.machine().calls().calls()) {
      if (call.name == "Sleep") pauses.push_back(call.arguments);
    }
    return pauses;
  }
};

TEST_F(MountDelayConversion, TowardsMbrTheLettersWaitForTheVolumes) {
  Partitions partitions = EvenPartitions(3, 16, 1);
  partitions[0].type = kEfiSystem;
  MakeGptDisk(image(), 128 * kMib, partitions);
  const Partitions kept = Kept(partitions);
  PutNtfs(image(), kept[0], MakeFiles(1), folder_.path());
  ExpectedImage expected(image(), File("expected.img"));
  ConversionRun run(image());
  run.SetLetters('M');
  auto letters = run.Letters();
  letters.erase(partitions[0].offset());
  RunFrom(run, kept[0]);
  Convert(run, letters, "volumes_come_back_later");
  expected.Convert(kept);
  expected.TakeBootCode(kept[0].first);
  expected.Activate(0);
  EXPECT_EQ(DifferingSectors(expected.path(), image()), SectorRanges());
  ExpectMbr(image(), kept, kSignature);
  EXPECT_EQ(BootableRows(image()), std::vector<unsigned>{1});
}

TEST_F(MountDelayConversion, TowardsGptTheLettersWaitForTheVolumes) {
  const Partitions rows = EvenPrimaries(2, 16);
  const Partition efi = EfiAt(rows[1].last + 1);
  MakeMbrDisk(image(), 512 * kMib, {rows, {}});
  PutNtfs(image(), rows[0], MakeFiles(1), folder_.path());
  ExpectedImage expected(image(), File("expected.img"));
  ConversionRun run(image());
  run.SetLetters('M');
  RunFrom(run, rows[0]);
  auto letters = run.Letters();
  letters[efi.offset()] = "C";  // the first that is free
  Convert(run, letters, "mbr_volumes_come_back_later");
  expected.TakeSectors(efi.range());
  ExpectConvertedGpt(image(), expected, {rows[0], rows[1], efi});
  ExpectEfiVolume(image(), efi, folder_.path());
}

}  // namespace
}  // namespace conversion
