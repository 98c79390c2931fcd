// Conversions of GPT data disks in which a step fails or a stop is asked for.
#include <algorithm>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "convert/gpt_to_mbr.h"
#include "frame/global_context.h"
#include "support/expected_events.h"
#include "support/gpt_disk_fixture.h"

namespace velkora {
namespace {

using namespace testing_support;

class FailingGptToMbr : public GptDiskTest {
 protected:
  bool Run() { return ConvertUnprotected(); }
  bool HasLine(const std::string& line) const {
    const Texts lines = AllLines();
    return std::find(lines.begin(), lines.end(), line) != lines.end();
  }
};

// ---- Steps that fail the conversion -------------------------------------------------------------

TEST_F(FailingGptToMbr, AFailedShrinkEndsItBeforeTheDiskIsCleaned) {
  std::vector<GptEntry> entries = SpacedEntries(4);
  entries[2].last_sector = entries[3].first_sector - 1;
  SetUpDisk(entries, false);
  EXPECT_FALSE(Run());
  EXPECT_EQ(AllLines(),
            (Texts{"1 GPT2MBR start", "1 Check and compress partition", "1 CompressPart Begin...",
                   "1 CompressPart End", "3 CompressPart fail!"}));
  EXPECT_EQ(Events(), (std::vector<Event>{{1, 0}, {0, 1}, {0, 5}}));
  EXPECT_TRUE(scripts_.empty());
}

// ---- Steps that do not --------------------------------------------------------------------------

TEST_F(FailingGptToMbr, TheFirstFailedUpdateOfPropertiesIsPassedOver) {
  SetUpDisk(SpacedEntries(2));
  FailControl("IOCTL_DISK_UPDATE_PROPERTIES", 1, 1117);
  EXPECT_TRUE(Run());
  EXPECT_EQ(Events(), kDataDiskEvents);
  EXPECT_EQ(Lines(3), (Texts{"DeviceIoControl with IOCTL_DISK_UPDATE_PROPERTIES error 1117"}));
}

TEST_F(FailingGptToMbr, FailedPartitionIdsArePassedOver) {
  SetUpDisk(SpacedEntries(2));
  machine_.calls().FailOn("CoCreateGuid", 1, 14, simulator::Repeat::kFromThenOn);
  EXPECT_TRUE(Run());
  EXPECT_EQ(Events(), kDataDiskEvents);
  EXPECT_EQ(Lines(3), Texts(4, "CoCreateGuid Error: 14"));
}

// ---- Stops --------------------------------------------------------------------------------------

TEST_F(FailingGptToMbr, AStopWhileCheckingFourRowsLeavesTheDiskAlone) {
  SetUpDisk(SpacedEntries(4));
  StopAt({0, 1});
  EXPECT_FALSE(Run());
  EXPECT_EQ(Events(), kUpToChecking);
  EXPECT_EQ(LastLine(), "1 Check and compress partition");
  EXPECT_TRUE(scripts_.empty());
}

TEST_F(FailingGptToMbr, AStopWhileCheckingThreeRowsIsSeenOnlyBeforeTheLayout) {
  SetUpDisk(SpacedEntries(3));
  StopAt({0, 1});
  EXPECT_FALSE(Run());
  EXPECT_EQ(Events(), kUpToCreating);
  EXPECT_EQ(CountControl("IOCTL_DISK_CREATE_DISK"), 1U);
  EXPECT_EQ(CountControl("IOCTL_DISK_SET_DRIVE_LAYOUT_EX"), 0U);
}

TEST_F(FailingGptToMbr, AStopWhileCreatingFailsTheBuildOfLogicalPartitions) {
  SetUpDisk(SpacedEntries(4));
  StopAt({0, 3});
  EXPECT_FALSE(Run());
  EXPECT_EQ(Events(), kUpToCreating);
  EXPECT_EQ(LastLine(), "1 DISKPART_Rescan Success!");
  EXPECT_EQ(machine_.calls().Count("CoCreateGuid"), 4U) << "the primaries and the container";
}

TEST_F(FailingGptToMbr, AStopWhileCreatingIsSeenBeforeThreePrimariesAreWritten) {
  SetUpDisk(SpacedEntries(3));
  StopAt({0, 3});
  EXPECT_FALSE(Run());
  EXPECT_EQ(Events(), kUpToCreating);
  EXPECT_EQ(LastLine(), "1 DISKPART_Rescan Success!");
  EXPECT_EQ(machine_.calls().Count("CoCreateGuid"), 4U) << "the layout was built";
  EXPECT_EQ(CountControl("IOCTL_DISK_SET_DRIVE_LAYOUT_EX"), 0U);
}

TEST_F(FailingGptToMbr, AStopWhileWritingIsSeenBehindTheLayout) {
  SetUpDisk(SpacedEntries(3));
  record_.volume(0).part_number = 77;
  StopAt({0, 4});
  EXPECT_FALSE(Run());
  EXPECT_EQ(Events(), kUpToWriting);
  EXPECT_EQ(CountControl("IOCTL_DISK_SET_DRIVE_LAYOUT_EX"), 1U);
  EXPECT_EQ(CountControl("IOCTL_DISK_UPDATE_PROPERTIES"), 2U);
  EXPECT_EQ(record_.volume(0).part_number, 77);
  EXPECT_FALSE(HasLine("1 RestoreVolumeInfosAfterConvert Begin..."));
}

TEST_F(FailingGptToMbr, AStopAtTheEndIsNotSeen) {
  SetUpDisk(SpacedEntries(1));
  StopAt({1, 100});
  EXPECT_TRUE(Run());
  EXPECT_EQ(Events(), kDataDiskEvents);
}

TEST_F(FailingGptToMbr, TheListHandedInStaysAsItIs) {
  std::vector<GptEntry> entries = SpacedEntries(3);
  std::swap(entries[0], entries[2]);
  SetUpDisk(entries);
  const GptPartitionList rows = Rows(entries);
  EXPECT_TRUE(GPT2MBR(converter_, rows));
  EXPECT_EQ(rows[0].first_sector, entries[0].first_sector);
  EXPECT_EQ(rows[2].first_sector, entries[2].first_sector);
}

}  // namespace
}  // namespace velkora
