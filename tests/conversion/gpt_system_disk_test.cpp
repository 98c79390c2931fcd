// GPT disks that the machine runs from: the system volume gets boot code, a boot store and the boot
// mark.
#include <gmock/gmock.h>

#include "conversion/rolled_back_disk.h"
#include "conversion/system_disk.h"
#include "conversion/volumes.h"

namespace conversion {
namespace {

using ::testing::ElementsAre;
using Lines = std::vector<std::string>;

constexpr std::uint64_t kSize = 128 * kMib;

class GptSystemDisk : public ConversionTest {
 protected:
  // An EFI system partition, a reserved one and `count` volumes, of which the one at `system` is
  // NTFS with files in it.
  void MakeDisk(std::size_t count, std::size_t system) {
    partitions_ = EvenPartitions(count + 2, 16, 1);
    partitions_[0].type = kEfiSystem;
    partitions_[1].type = kReserved;
    MakeGptDisk(image(), kSize, partitions_);
    kept_ = Kept(partitions_);
    system_ = kept_.at(system);
    PutNtfs(image(), system_, MakeFiles(1), folder_.path());
  }

  // Letters of the volumes that are kept.
  std::map<std::uint64_t, std::string> KeptLetters(ConversionRun& run) {
    const auto all = run.Letters();
    std::map<std::uint64_t, std::string> letters;
    for (const Partition& partition : kept_)
      letters[partition.offset()] = all.at(partition.offset());
    return letters;
  }

  // Converts, and expects success, these numbers with the boot mark, and every byte as worked out.
  void Convert(ConversionRun& run, bool boot_code, const std::vector<unsigned>& bootable,
               const std::string& transcript) {
    ExpectedImage expected(image(), File("expected.img"));
    const auto letters = KeptLetters(run);
    const PartNumbers numbers = PartNumbersOf(run);
    EXPECT_EQ(run.Convert(), 0);
    ExpectTranscript(run.transcript(), transcript);
    EXPECT_EQ(run.Errors(), Lines());
    EXPECT_EQ(run.Letters(), letters);
    EXPECT_EQ(PartNumbersOf(run), NewPartNumbers(numbers, kept_));
    EXPECT_EQ(run.OpenHandles(), Lines());
    EXPECT_EQ(run.OpenProcesses(), 0u);
    expected.Convert(kept_);
    if (boot_code) expected.TakeBootCode(system_.first);
    for (const unsigned number : bootable) expected.Activate(number - 1);
    EXPECT_EQ(DifferingSectors(expected.path(), image()), SectorRanges());
    ExpectMbr(image(), kept_, kSignature);
    EXPECT_EQ(BootableRows(image()), bootable);
    const auto expect_volume = boot_code ? ExpectShrunkNtfs : ExpectNtfs;
    expect_volume(image(), system_, MakeFiles(1), folder_.path());
  }

  // Converts a disk whose boot repair fails with these errors, and expects it back as it was. Boot
  // code is undone with the boot sectors; the record keeps the numbers of the table that stood for
  // a while.
  void FailToConvert(ConversionRun& run, const Lines& errors, const std::string& transcript) {
    RolledBackDisk disk(image(), kept_);
    const PartNumbers numbers = PartNumbersOf(run);
    ExpectFailure(run,
                  {"percent 0", "status 1", "percent 20", "status 2", "percent 40", "status 3",
                   "percent 60", "status 4", "percent 80", "status 6"},
                  errors, transcript);
    EXPECT_EQ(PartNumbersOf(run), NewPartNumbers(numbers, kept_));
    EXPECT_EQ(run.OpenProcesses(), 0u);
    disk.expected().Convert(kept_);
    disk.Expect();
    ExpectNtfs(image(), system_, MakeFiles(1), folder_.path());
  }

  Partitions partitions_;
  Partitions kept_;
  Partition system_;
};

TEST_F(GptSystemDisk, TheSystemVolumeStartsTheMachine) {
  MakeDisk(2, 0);
  ConversionRun run(image());
  RunFrom(run, system_);
  Convert(run, true, {1}, "system_disk");
}

TEST_F(GptSystemDisk, AsTheThirdRow) {
  MakeDisk(4, 2);
  ConversionRun run(image());
  RunFrom(run, system_);
  Convert(run, true, {3}, "system_volume_third");
}

// Nothing is repaired, yet the volume is made active.
TEST_F(GptSystemDisk, ASystemVolumeWithoutALetterIsOnlyMadeActive) {
  MakeDisk(2, 0);
  ConversionRun run(image());
  run.machine().RemoveLetter(run.Letters().at(system_.offset()).front());
  RunFrom(run, system_);
  Convert(run, false, {1}, "system_volume_without_letter");
}

TEST_F(GptSystemDisk, WithoutASystemVolumeTheRunFails) {
  MakeDisk(2, 0);
  ConversionRun run(image());
  run.record().disk().is_system = 1;
  FailToConvert(run, {"system volume not found!"}, "without_system_volume");
}

// The fourth row becomes a logical partition, which cannot be active.
TEST_F(GptSystemDisk, AsTheFourthRowTheSystemVolumeCannotBeMadeActive) {
  MakeDisk(4, 3);
  ConversionRun run(image());
  RunFrom(run, system_);
  FailToConvert(run, {"DISKPART_Active Failed!"}, "system_volume_fourth");
}

TEST_F(GptSystemDisk, WithoutAWindowsFolderThereIsNoBootStore) {
  MakeDisk(2, 0);
  ConversionRun run(image());
  run.record().MarkSystem('C');
  FailToConvert(run, {"RecoverBcd fail!"}, "without_windows_folder");
}

// Nothing is left to start from, and the run ends in front of the repair.
TEST_F(GptSystemDisk, WithoutPartitionsToKeepThereIsNoRepair) {
  Partitions partitions = EvenPartitions(2, 16, 1);
  partitions[0].type = kEfiSystem;
  partitions[1].type = kReserved;
  MakeGptDisk(image(), kSize, partitions);
  ExpectedImage expected(image(), File("expected.img"));
  ConversionRun run(image());
  run.record().disk().is_system = 1;
  EXPECT_EQ(run.Convert(), 0);
  ExpectTranscript(run.transcript(), "system_disk_without_partitions_to_keep");
  EXPECT_THAT(run.Errors(), ElementsAre());
  expected.Convert({});
  EXPECT_EQ(DifferingSectors(expected.path(), image()), SectorRanges());
}

}  // namespace
}  // namespace conversion
