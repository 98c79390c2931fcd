// What the emptying of the disk takes: its first and last MiB, whatever lies there.
#include <algorithm>
#include <gmock/gmock.h>

#include "conversion/converted_disk_fixture.h"

namespace conversion {
namespace {

using ::testing::ElementsAre;

constexpr std::uint64_t kSize = 16 * kMib;
constexpr std::uint64_t kSectors = kSize / kSectorBytes;
constexpr std::uint64_t kLastUsable = kSectors - 34;

class DiskEnds : public ConversionTest {
 protected:
  // Converts and returns the sectors in which the partitions have changed.
  SectorRanges Convert(const Partitions& partitions, const std::string& transcript) {
    MakeGptDisk(image(), kSize, partitions);
    CopyImage(image(), File("before.img"));
    ExpectedImage expected(image(), File("expected.img"));
    ConversionRun run(image());
    EXPECT_EQ(run.Convert(), 0);
    ExpectTranscript(run.transcript(), transcript);
    expected.Convert(partitions);
    EXPECT_EQ(DifferingSectors(expected.path(), image()), SectorRanges());
    ExpectMbr(image(), partitions, kSignature);
    SectorRanges changed;
    for (const SectorRange& range : DifferingSectors(File("before.img"), image())) {
      for (const Partition& partition : partitions) {
        const SectorRange part = {std::max(range.first, partition.first),
                                  std::min(range.last, partition.last)};
        if (part.first <= part.last) changed.push_back(part);
      }
    }
    return changed;
  }

  void ExpectZero(const SectorRange& range) {
    for (std::uint64_t sector = range.first; sector <= range.last; ++sector) {
      EXPECT_EQ(ImageFile(image()).ReadSector(sector), Sector()) << sector;
    }
  }
};

TEST_F(DiskEnds, APartitionFromSector63LosesAllUpTo1MiB) {
  const Partitions partitions = {{63, 8191}, {10240, 12287}};
  EXPECT_THAT(Convert(partitions, "first_sector_63"), ElementsAre(SectorRange{63, 2047}));
  ExpectZero({63, 2047});
}

TEST_F(DiskEnds, APartitionUpToTheLastUsableSectorLosesItsLastMiB) {
  const Partitions partitions = {{2048, 4095}, {6144, kLastUsable}};
  EXPECT_THAT(Convert(partitions, "last_usable_sector"),
              ElementsAre(SectorRange{kSectors - 2048, kLastUsable}));
  ExpectZero({kSectors - 2048, kSectors - 1});
}

TEST_F(DiskEnds, ALogicalPartitionToo) {
  const Partitions partitions = {{2048, 4095}, {6144, 8191}, {10240, 12287}, {14336, kLastUsable}};
  EXPECT_THAT(Convert(partitions, "last_usable_sector_logical"),
              ElementsAre(SectorRange{kSectors - 2048, kLastUsable}));
}

TEST_F(DiskEnds, PartitionsBetweenTheTwoMiBLoseNothing) {
  const Partitions partitions = {{2048, 8191}, {8192, kSectors - 2049}};
  EXPECT_THAT(Convert(partitions, "between_the_ends"), ElementsAre());
}

}  // namespace
}  // namespace conversion
