// Requests to stop that come with something else: before a conversion, after one, with a failure,
// in the middle of a shrink. tests/campaign stops whole conversions at every call.
#include <gmock/gmock.h>

#include "conversion/converted_disk_fixture.h"
#include "conversion/rolled_back_disk.h"
#include "conversion/volumes.h"

namespace conversion {
namespace {

using ::testing::ElementsAre;

using Lines = std::vector<std::string>;

constexpr std::uint64_t kSize = 128 * kMib;

class Stop : public ConversionTest {
 protected:
  void MakeDisk(const Partitions& partitions) {
    partitions_ = partitions;
    MakeGptDisk(image(), kSize, partitions_);
  }

  // Converts with a stop at this line of the transcript, and expects the disk back. The walk over
  // the volumes ends at the stop, and its handle stays open: the library gives no letter back.
  void ExpectRolledBack(ConversionRun& run, const std::string& line, const Lines& callbacks,
                        bool table_was_written = false) {
    RolledBackDisk disk(image(), partitions_);
    run.StopAt(line);
    EXPECT_EQ(run.Convert(), 1);
    EXPECT_EQ(run.Callbacks(), RolledBack(callbacks));
    EXPECT_EQ(run.OpenHandles(), Lines{"volume walk"});
    // The boot records stay between the partitions.
    if (table_was_written) disk.expected().Convert(partitions_);
    disk.Expect();
  }

  Partitions partitions_;
};

TEST_F(Stop, BeforeConvertTheReadFailsWithoutACallback) {
  MakeDisk(EvenPartitions(5, 2, 1));
  const std::uint64_t hash = Hash(image());
  ConversionRun run(image());
  run.Stop();
  EXPECT_EQ(run.Convert(), 1);
  EXPECT_EQ(run.OpenHandles(), Lines());
  EXPECT_EQ(Hash(image()), hash);
  ExpectTranscript(run.transcript(), "stop_before_convert");
}

// A stop does not hide an earlier failure, nor change what that leaves.
TEST_F(Stop, TogetherWithAFailedClean) {
  MakeDisk(EvenPartitions(5, 2, 1));
  ConversionRun run(image());
  run.machine().calls().FailOn("GetExitCodeProcess");
  ExpectRolledBack(run, "status 2", {"percent 0", "status 1", "percent 20", "status 2"});
}

// The volumes of the new table took the letters that came first, and the system forgot whose they
// were. Of the volumes that come back only the last has its letter.
TEST_F(Stop, LeavesTheLettersOfARolledBackDiskAsTheSystemGivesThem) {
  MakeDisk(EvenPartitions(5, 2, 1));
  ConversionRun run(image());
  run.SetLetters('D');
  ExpectRolledBack(run, "status 4",
                   {"percent 0", "status 1", "percent 20", "status 2", "percent 40", "status 3",
                    "percent 60", "status 4"},
                   /*table_was_written=*/true);
  Lines letters;
  for (const auto& [offset, letter] : run.Letters()) letters.push_back(letter);
  EXPECT_THAT(letters, ElementsAre("C", "D", "E", "F", "H"));
}

// The request is never taken back.
TEST_F(Stop, AfterAConversionTheNextOneFailsAtOnce) {
  MakeDisk(EvenPartitions(5, 2, 1));
  ConversionRun run(image());
  EXPECT_EQ(run.Convert(), 0);
  const Lines callbacks = run.Callbacks();
  MakeDisk(partitions_);
  run.machine().Rescan();
  run.Stop();
  const std::uint64_t hash = Hash(image());
  EXPECT_EQ(run.Convert(), 1);
  EXPECT_EQ(run.Callbacks(), callbacks);
  EXPECT_THAT(run.Errors(), ElementsAre("Get partitions fail!"));
  EXPECT_EQ(Hash(image()), hash);
}

// NTFS volumes without gaps between them, of which the third and the fourth have to give room. The
// shrink under way comes to its end and is undone, and the next pass of the check sees the stop.
TEST_F(Stop, InTheShrinkEndsTheGapCheckBehindTheVolumeThatWasShrunk) {
  MakeDisk(EvenPartitions(5, 16, 0));
  const Files files = MakeFiles(1);
  PutNtfs(image(), partitions_[2], files, folder_.path());
  PutNtfs(image(), partitions_[3], files, folder_.path());
  ConversionRun run(image());
  ExpectRolledBack(run, "status 5", {"percent 0", "status 1", "status 5"});
  ExpectNtfs(image(), partitions_[2], files, folder_.path());
  ExpectNtfs(image(), partitions_[3], files, folder_.path());
  ExpectTranscript(run.transcript(), "stop_in_the_shrink");
}

}  // namespace
}  // namespace conversion
