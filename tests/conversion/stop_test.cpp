// A request to stop, at each point where the conversion looks at it and at those where it does not.
#include <gmock/gmock.h>

#include "conversion/converted_disk_fixture.h"
#include "conversion/rolled_back_disk.h"
#include "conversion/volumes.h"

namespace conversion {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;

using Lines = std::vector<std::string>;

constexpr std::uint64_t kSize = 128 * kMib;

// What lies on the disk in the end. A disk that was rolled back after the table had been written
// has its boot records between the partitions.
enum class DiskState { kUntouched, kConverted, kRolledBack, kRolledBackWithBootRecords };

// What a run shows to the application.
struct Shown {
  std::int32_t result;
  Lines callbacks;
  DiskState state;
};

class Stop : public ConversionTest {
 protected:
  explicit Stop(std::size_t count = 5) : partitions_(EvenPartitions(count, 2, 1)) {
    MakeGptDisk(image(), kSize, partitions_);
  }

  // Converts with a stop at this line of the transcript ("" for none).
  void Run(ConversionRun& run, const std::string& line, const Shown& shown) {
    RolledBackDisk disk(image(), partitions_);
    const PartNumbers numbers = PartNumbersOf(run);
    run.StopAt(line);
    EXPECT_EQ(run.Convert(), shown.result);
    EXPECT_EQ(run.Callbacks(), shown.callbacks);
    if (shown.state == DiskState::kConverted ||
        shown.state == DiskState::kRolledBackWithBootRecords) {
      disk.expected().Convert(partitions_);
      EXPECT_EQ(PartNumbersOf(run), NewPartNumbers(numbers, partitions_));
    } else {
      EXPECT_EQ(PartNumbersOf(run), numbers);
    }
    if (shown.state == DiskState::kUntouched || shown.state == DiskState::kConverted) {
      EXPECT_EQ(DifferingSectors(disk.expected().path(), image()), SectorRanges());
    } else {
      disk.Expect();
      ExpectLettersLeft(run);
    }
  }

  // The walk over the volumes ends at the stop, and its handle stays open: the library gives no
  // letter back.
  static void ExpectLettersLeft(ConversionRun& run) {
    EXPECT_THAT(run.Errors().back(), testing::StartsWith("RestoreVolumeInfos Error: "));
    EXPECT_THAT(run.OpenHandles(), ElementsAre("volume walk"));
    EXPECT_EQ(run.machine().calls().Count("DeleteVolumeMountPointA"), 0u);
    EXPECT_EQ(run.machine().calls().Count("SetVolumeMountPointA"), 0u);
  }

  // The same on a machine of its own.
  void Run(const std::string& line, const Shown& shown, const std::string& transcript) {
    ConversionRun run(image());
    Run(run, line, shown);
    EXPECT_THAT(run.Lines("log 1: "), Contains("Set Convert Stop!").Times(1));
    ExpectTranscript(run.transcript(), transcript);
  }

  Partitions partitions_;
};

class StopWithThree : public Stop {
 protected:
  StopWithThree() : Stop(3) {}
};

const Lines kChecked = RolledBack({"percent 0", "status 1"});
const Lines kCleaned = RolledBack({"percent 0", "status 1", "percent 20", "status 2"});
const Lines kCreated =
    RolledBack({"percent 0", "status 1", "percent 20", "status 2", "percent 40", "status 3"});
const Lines kWritten = RolledBack({"percent 0", "status 1", "percent 20", "status 2", "percent 40",
                                   "status 3", "percent 60", "status 4"});
const Lines kFinished = {"percent 0", "status 1",   "percent 20", "status 2",    "percent 40",
                         "status 3",  "percent 60", "status 4",   "percent 100", "status 7"};

TEST_F(Stop, BeforeConvertTheReadFailsWithoutACallback) {
  ConversionRun run(image());
  run.Stop();
  Run(run, "", {1, {}, DiskState::kUntouched});
  EXPECT_THAT(run.Errors(), ElementsAre("Get partitions fail!"));
  EXPECT_EQ(run.OpenHandles(), Lines());
  ExpectTranscript(run.transcript(), "stop_before_convert");
}

TEST_F(Stop, WhileTheRecordIsPrintedTheReadFails) {
  Run("log 1: -----------diskinfo-----------", {1, {}, DiskState::kUntouched},
      "stop_while_the_record_is_printed");
}

// A seek between the table's sectors fails and is logged, which gives a place to stop within the
// read.
TEST_F(Stop, WithinTheTableTheReadFails) {
  ConversionRun run(image());
  run.machine().calls().FailOn("SetFilePointer", 3);
  Run(run, "log 3: SetFilePointer Error: 31", {1, {}, DiskState::kUntouched});
  EXPECT_THAT(run.Errors(), ElementsAre("SetFilePointer Error: 31", "Get partitions fail!"));
  ExpectTranscript(run.transcript(), "stop_within_the_table");
}

TEST_F(Stop, AtTheFirstPercentageTheGapCheckFails) {
  Run("percent 0", {1, kChecked, DiskState::kRolledBack}, "stop_at_percent_0");
}

TEST_F(Stop, AtTheFirstStatusTheGapCheckFails) {
  Run("status 1", {1, kChecked, DiskState::kRolledBack}, "stop_at_status_1");
}

// Three rows have no gaps to check: the stop is seen when the disk is empty.
TEST_F(StopWithThree, AtTheFirstStatusTheTableIsNotWritten) {
  Run("status 1", {1, kCreated, DiskState::kRolledBack}, "stop_at_status_1_with_three_partitions");
}

TEST_F(StopWithThree, WhileTheDiskIsCreatedTheTableIsNotWritten) {
  Run("status 3", {1, kCreated, DiskState::kRolledBack}, "stop_at_status_3_with_three_partitions");
}

TEST_F(Stop, WhenTheRoomIsMadeTheLogicalPartitionsAreNotBuilt) {
  Run("percent 20", {1, kCreated, DiskState::kRolledBack}, "stop_at_percent_20");
}

TEST_F(Stop, WhileTheDiskIsCleaned) {
  Run("status 2", {1, kCreated, DiskState::kRolledBack}, "stop_at_status_2");
}

TEST_F(Stop, WhenTheDiskIsClean) {
  Run("percent 40", {1, kCreated, DiskState::kRolledBack}, "stop_at_percent_40");
}

TEST_F(Stop, WhileTheDiskIsCreated) {
  Run("status 3", {1, kCreated, DiskState::kRolledBack}, "stop_at_status_3");
}

// A stop does not hide an earlier failure, nor change what that leaves.
TEST_F(Stop, TogetherWithAFailedClean) {
  ConversionRun run(image());
  run.machine().calls().FailOn("GetExitCodeProcess");
  Run(run, "status 2", {1, kCleaned, DiskState::kRolledBack});
}

// An identity that cannot be drawn is logged, which gives a place to stop within the building: the
// fifth is that of the first logical partition, behind three primary ones and the container.
TEST_F(Stop, WithinTheLogicalPartitionsTheRestIsNotBuilt) {
  ConversionRun run(image());
  run.machine().calls().FailOn("CoCreateGuid", 5);
  Run(run, "log 3: CoCreateGuid Error: 31", {1, kCreated, DiskState::kRolledBack});
  EXPECT_EQ(run.machine().calls().Count("CoCreateGuid"), 8u);
  ExpectTranscript(run.transcript(), "stop_within_the_logical_partitions");
}

// The last of the twelve: the layout is whole, and not written.
TEST_F(Stop, BeforeTheTableIsWritten) {
  ConversionRun run(image());
  run.machine().calls().FailOn("CoCreateGuid", 12);
  Run(run, "log 3: CoCreateGuid Error: 31", {1, kCreated, DiskState::kRolledBack});
  EXPECT_EQ(run.machine().calls().Count("DeviceIoControl/IOCTL_DISK_SET_DRIVE_LAYOUT_EX"), 0u);
  ExpectTranscript(run.transcript(), "stop_before_the_table_is_written");
}

TEST_F(Stop, WhenTheTableIsBuiltItIsWrittenAndTheConversionFails) {
  Run("percent 60", {1, kWritten, DiskState::kRolledBackWithBootRecords}, "stop_at_percent_60");
}

TEST_F(Stop, WhileTheTableIsWrittenTheConversionFails) {
  Run("status 4", {1, kWritten, DiskState::kRolledBackWithBootRecords}, "stop_at_status_4");
}

TEST_F(StopWithThree, WhileTheTableIsWrittenTheConversionFails) {
  Run("status 4", {1, kWritten, DiskState::kRolledBackWithBootRecords},
      "stop_at_status_4_with_three_partitions");
}

// The volumes of the new table took the letters that came first, and the system forgot whose they
// were. Of the volumes that come back only the last has its letter.
TEST_F(Stop, LeavesTheLettersOfARolledBackDiskAsTheSystemGivesThem) {
  ConversionRun run(image());
  run.SetLetters('D');
  Run(run, "status 4", {1, kWritten, DiskState::kRolledBackWithBootRecords});
  Lines letters;
  for (const auto& [offset, letter] : run.Letters()) letters.push_back(letter);
  EXPECT_THAT(letters, ElementsAre("C", "D", "E", "F", "H"));
}

// Nothing fails any more, but the walk over the volumes ends, and with it the letters. Its handle
// stays open.
TEST_F(Stop, BeforeTheLettersLeavesThemAndTheWalkOpen) {
  ConversionRun run(image());
  run.SetLetters('M');
  Run(run, "log 1: RestoreVolumeInfosAfterConvert Begin...", {0, kFinished, DiskState::kConverted});
  EXPECT_THAT(run.Errors(), ElementsAre(testing::StartsWith("RestoreVolumeInfos Error: ")));
  EXPECT_THAT(run.OpenHandles(), ElementsAre("volume walk"));
  Lines letters;
  for (const auto& [offset, letter] : run.Letters()) letters.push_back(letter);
  EXPECT_THAT(letters, ElementsAre("C", "D", "E", "F", "G"));
  ExpectTranscript(run.transcript(), "stop_before_the_letters");
}

TEST_F(Stop, AtTheLastPercentageChangesNothing) {
  Run("percent 100", {0, kFinished, DiskState::kConverted}, "stop_at_percent_100");
}

TEST_F(Stop, AtTheLastStatusChangesNothing) {
  Run("status 7", {0, kFinished, DiskState::kConverted}, "stop_at_status_7");
}

// The request is never taken back.
TEST_F(Stop, AfterAConversionTheNextOneFailsAtOnce) {
  ConversionRun run(image());
  Run(run, "", {0, kFinished, DiskState::kConverted});
  MakeGptDisk(image(), kSize, partitions_);
  run.machine().Rescan();
  run.Stop();
  const std::uint64_t hash = Hash(image());
  EXPECT_EQ(run.Convert(), 1);
  EXPECT_EQ(run.Callbacks(), kFinished);
  EXPECT_THAT(run.Errors(), ElementsAre("Get partitions fail!"));
  EXPECT_EQ(Hash(image()), hash);
}

class StopInTheShrink : public ConversionTest {
 protected:
  // NTFS volumes without gaps between them; those from the third to the last but one have to give
  // room.
  void MakeDisk(std::size_t count) {
    partitions_ = EvenPartitions(count, 16, 0);
    MakeGptDisk(image(), kSize, partitions_);
    for (std::size_t place = 2; place + 1 < count; ++place) {
      PutNtfs(image(), partitions_[place], files_, folder_.path());
    }
  }

  // The shrink under way comes to its end, and is undone.
  void ExpectRolledBack(ConversionRun& run, const std::string& line) {
    RolledBackDisk disk(image(), partitions_);
    const PartNumbers numbers = PartNumbersOf(run);
    run.StopAt(line);
    EXPECT_EQ(run.Convert(), 1);
    EXPECT_EQ(run.Callbacks(), RolledBack({"percent 0", "status 1", "status 5"}));
    EXPECT_EQ(PartNumbersOf(run), numbers);
    EXPECT_THAT(run.OpenHandles(), ElementsAre("volume walk"));
    disk.Expect();
    for (std::size_t place = 2; place + 1 < partitions_.size(); ++place) {
      ExpectNtfs(image(), partitions_[place], files_, folder_.path());
    }
  }

  const Files files_ = MakeFiles(1);
  Partitions partitions_;
};

// The next pass of the check sees the stop.
TEST_F(StopInTheShrink, EndsTheGapCheckBehindTheVolumeThatWasShrunk) {
  MakeDisk(5);
  ConversionRun run(image());
  ExpectRolledBack(run, "status 5");
  EXPECT_THAT(run.Errors(), ElementsAre("RestoreVolumeInfos Error: 6"));
  ExpectTranscript(run.transcript(), "stop_in_the_shrink");
}

// The check makes one pass more than there are gaps, which looks at the flag alone.
TEST_F(StopInTheShrink, IsSeenBehindTheLastGapToo) {
  MakeDisk(4);
  ConversionRun run(image());
  ExpectRolledBack(run, "status 5");
  EXPECT_EQ(run.Lines("script: ").front(), "select disk 1\\r\\nclean\\r\\n");  // no rescan
}

// The rescan behind a shrink still runs; reading the table again then fails.
TEST_F(StopInTheShrink, DuringTheRescanTheSecondReadFails) {
  MakeDisk(4);
  ConversionRun run(image());
  ExpectRolledBack(run, "log 1: DISKPART_Rescan Begin...");
  EXPECT_THAT(run.Errors(), ElementsAre("Get partitions Error!",
                                        testing::StartsWith("RestoreVolumeInfos Error: ")));
  EXPECT_EQ(run.Lines("script: ").front(), "rescan\\r\\n");
  ExpectTranscript(run.transcript(), "stop_in_the_rescan");
}

}  // namespace
}  // namespace conversion
