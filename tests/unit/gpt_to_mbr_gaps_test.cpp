// The room in front of logical partitions, and the search for the system volume.
#include <gtest/gtest.h>
#include <vector>

#include "convert/gpt_to_mbr.h"
#include "frame/global_context.h"
#include "support/gpt_disk_fixture.h"

namespace velkora {
namespace {

using namespace testing_support;

using Sectors = std::vector<std::uint64_t>;

constexpr std::uint64_t kShrinkSectors = 5 * 2048;

// The lines of a shrink that went well.
const Texts kShrinkLines = {"1 CompressPart Begin...", "1 Compress NTFS Partition...",
                            "1 Compress NTFS Partition End!"};
const Texts kRescanLines = {"1 DISKPART_Rescan Begin...", "1 DISKPART_Rescan Success!"};
constexpr char kUnsupported[] =
    "1 GPT is larger than 4 partitions and there is no partition gap, and it is necessary "
    "\t\t\t\tto compress partitions to convert to MBR, but currently compressed partitions only "
    "support NTFS and fat32.";

Texts operator+(Texts left, const Texts& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

class LogicalGaps : public GptDiskTest {
 protected:
  // Entries of which the one at `place` ends so that the next starts `distance` sectors behind its
  // last one.
  static std::vector<GptEntry> WithDistance(std::size_t count, std::size_t place,
                                            std::uint64_t distance) {
    std::vector<GptEntry> entries = SpacedEntries(count);
    entries[place].last_sector = entries[place + 1].first_sector - distance;
    return entries;
  }

  void Begin(const std::vector<GptEntry>& entries, bool with_record = true) {
    SetUpDisk(entries, with_record);
    rows_ = Rows(entries);
  }

  bool Ensure() { return EnsureLogicalGaps(converter_, rows_); }

  Sectors LastSectors() const {
    Sectors sectors;
    for (const GptPartitionRow& row : rows_) sectors.push_back(row.last_sector);
    return sectors;
  }

  GptPartitionList rows_;
};

TEST_F(LogicalGaps, AreNotLookedAtWithThreeRows) {
  Begin(WithDistance(3, 1, 1));
  converter_.Stop();
  log_.clear();
  EXPECT_TRUE(Ensure());
  EXPECT_TRUE(log_.empty());
  EXPECT_TRUE(Events().empty());
  EXPECT_TRUE(machine_.calls().calls().empty());
}

TEST_F(LogicalGaps, ADistanceOf2048SectorsIsEnough) {
  Begin(WithDistance(4, 2, 2048));
  EXPECT_TRUE(Ensure());
  EXPECT_TRUE(log_.empty());
  EXPECT_TRUE(Events().empty());
  EXPECT_TRUE(machine_.calls().calls().empty());
}

TEST_F(LogicalGaps, ADistanceOf2047SectorsShrinksTheRowInFront) {
  const std::vector<GptEntry> entries = WithDistance(4, 2, 2047);
  Begin(entries);
  EXPECT_TRUE(Ensure());
  EXPECT_EQ(Events(), (std::vector<Event>{{0, 5}}));
  EXPECT_EQ(AllLines(), kShrinkLines + kRescanLines);
  EXPECT_EQ(LastSectors(),
            (Sectors{entries[0].last_sector, entries[1].last_sector,
                     entries[2].last_sector - kShrinkSectors, entries[3].last_sector}));
  EXPECT_EQ(scripts_, (Texts{"rescan\r\n"}));
}

TEST_F(LogicalGaps, BehindTheFirstTwoRowsDoNotMatter) {
  std::vector<GptEntry> entries = SpacedEntries(4);
  entries[0].last_sector = entries[1].first_sector - 1;
  entries[1].last_sector = entries[2].first_sector - 1;
  Begin(entries);
  EXPECT_TRUE(Ensure());
  EXPECT_TRUE(log_.empty());
}

TEST_F(LogicalGaps, AreMadeBehindEveryRowThatLacksOneBeforeTheListIsReadAnew) {
  std::vector<GptEntry> entries = WithDistance(6, 2, 1);
  entries[4].last_sector = entries[5].first_sector - 1;
  Begin(entries);
  EXPECT_TRUE(Ensure());
  EXPECT_EQ(Events(), (std::vector<Event>{{0, 5}, {0, 5}}));
  EXPECT_EQ(AllLines(), kShrinkLines + kShrinkLines + kRescanLines);
  EXPECT_EQ(rows_[2].last_sector, entries[2].last_sector - kShrinkSectors);
  EXPECT_EQ(rows_[4].last_sector, entries[4].last_sector - kShrinkSectors);
}

TEST_F(LogicalGaps, AreMeasuredInTableOrder) {
  std::vector<GptEntry> entries = SpacedEntries(5);
  std::swap(entries[2], entries[3]);
  std::swap(entries[3], entries[4]);  // first, second, fourth, fifth, third
  Begin(entries);
  EXPECT_TRUE(Ensure());
  EXPECT_EQ(Events(), (std::vector<Event>{{0, 5}})) << "the third starts in front of the fifth";
  EXPECT_EQ(rows_[3].last_sector, entries[3].last_sector - kShrinkSectors);
  EXPECT_EQ(rows_[3].first_sector, entries[3].first_sector) << "and the list stays unsorted";
}

TEST_F(LogicalGaps, AreNotTestedAgainAfterAShrink) {
  // The list handed in lacks the third entry, and with it the gap that is missing behind it. The
  // table that is read anew, behind the shrink of the fourth, shows it.
  std::vector<GptEntry> entries = WithDistance(5, 3, 1);
  entries[2].last_sector = entries[3].first_sector - 1;
  Begin(entries);
  rows_ = {rows_[0], rows_[1], rows_[3], rows_[4]};
  EXPECT_TRUE(Ensure());
  EXPECT_EQ(Events().size(), 1U);
  EXPECT_EQ(rows_.size(), 5U);
}

TEST_F(LogicalGaps, TheListReadAnewIsFilteredAndReplacesTheOldOne) {
  std::vector<GptEntry> entries = WithDistance(4, 2, 1);
  entries.push_back({kEfiSystemGuid, 400'000, 402'047, 9});
  Begin(entries);
  rows_.pop_back();
  EXPECT_TRUE(Ensure());
  EXPECT_EQ(LastSectors(),
            (Sectors{entries[0].last_sector, entries[1].last_sector,
                     entries[2].last_sector - kShrinkSectors, entries[3].last_sector}));
}

TEST_F(LogicalGaps, TheRoomBehindTheLastSectorWraps) {
  Begin(SpacedEntries(4));
  rows_[2].last_sector = ~std::uint64_t{0};  // plus 2048 is 2047, in front of every partition
  EXPECT_TRUE(Ensure());
  EXPECT_TRUE(Events().empty());
}

TEST_F(LogicalGaps, FailWhenNoVolumeStartsAtTheRow) {
  Begin(WithDistance(4, 2, 1), false);
  EXPECT_FALSE(Ensure());
  EXPECT_EQ(Events(), (std::vector<Event>{{0, 5}}));
  EXPECT_EQ(AllLines(),
            (Texts{"1 CompressPart Begin...", "1 CompressPart End", "3 CompressPart fail!"}));
  EXPECT_TRUE(scripts_.empty());
}

TEST_F(LogicalGaps, FailWhenTheFileSystemCannotBeShrunk) {
  Begin(WithDistance(4, 2, 1));
  record_.volume(2).filesystem = VolumeFileSystem::kExt4;
  EXPECT_FALSE(Ensure());
  EXPECT_EQ(AllLines(), (Texts{"1 CompressPart Begin...", kUnsupported, "3 CompressPart fail!"}));
}

TEST_F(LogicalGaps, FailWhenTheRescanFails) {
  Begin(WithDistance(4, 2, 1));
  machine_.calls().FailOn("command/diskpart", 1, 1);
  EXPECT_FALSE(Ensure());
  EXPECT_EQ(LastLine(), "3 DISKPART_Rescan Failed!");
  EXPECT_EQ(rows_.size(), 4U) << "the list was not read anew";
}

TEST_F(LogicalGaps, FailWhenTheListCannotBeReadAnew) {
  Begin(WithDistance(4, 2, 1));
  machine_.calls().FailOn("ReadFile", 2, 23);  // the first is that of the volume's boot sector
  EXPECT_FALSE(Ensure());
  EXPECT_TRUE(rows_.empty());
  const Texts read_lines = {"3 Read Error: 23", "3 Get partitions Error!"};
  EXPECT_EQ(AllLines(), kShrinkLines + kRescanLines + read_lines);
}

TEST_F(LogicalGaps, FailWithoutALineOnAStop) {
  Begin(WithDistance(4, 2, 1));
  GetGlobalContext().stop_requested = 1;
  EXPECT_FALSE(Ensure());
  EXPECT_TRUE(log_.empty());
  EXPECT_TRUE(Events().empty());
}

TEST_F(LogicalGaps, AStopAfterTheLastComparisonIsSeenToo) {
  Begin(WithDistance(4, 2, 1));
  EventHook() = [](Event) { GetGlobalContext().stop_requested = 1; };
  EXPECT_FALSE(Ensure());
  EXPECT_EQ(AllLines(), kShrinkLines) << "the shrink under way was finished, no rescan came";
}

// ---- The system volume --------------------------------------------------------------------------

class SystemVolume : public GptDiskTest {
 protected:
  SystemVolume() {
    for (std::uint64_t i = 0; i < 4; ++i) record_.Add(512 * i);
  }
};

TEST_F(SystemVolume, IsTheFirstThatIsMarked) {
  record_.volume(1).is_system = 2;
  record_.volume(3).is_system = 1;
  EXPECT_EQ(FindSystemVolume(converter_), &record_.volume(1));
}

TEST_F(SystemVolume, MayBeTheLast) {
  record_.volume(3).is_system = 1;
  EXPECT_EQ(FindSystemVolume(converter_), &record_.volume(3));
}

TEST_F(SystemVolume, IsNullWhenNoneIsMarked) {
  EXPECT_EQ(FindSystemVolume(converter_), nullptr);
  EXPECT_TRUE(log_.empty());
}

TEST_F(SystemVolume, IsNullWithoutVolumes) {
  record_.volume(0).is_system = 1;
  record_.disk().volume_count = 0;
  EXPECT_EQ(FindSystemVolume(converter_), nullptr);
}

TEST_F(SystemVolume, IsNullAfterAStop) {
  record_.volume(0).is_system = 1;
  GetGlobalContext().stop_requested = 1;
  EXPECT_EQ(FindSystemVolume(converter_), nullptr);
}

}  // namespace
}  // namespace velkora
