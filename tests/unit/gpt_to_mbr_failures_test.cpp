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

using testing_support::Event;
using testing_support::Events;
using testing_support::GptDiskTest;
using testing_support::GptEntry;
using testing_support::kDataDiskEvents;
using testing_support::kUpToChecking;
using testing_support::kUpToClearing;
using testing_support::kUpToCreating;
using testing_support::kUpToWriting;

using Strings = std::vector<std::string>;

class FailingGptToMbr : public GptDiskTest {
 protected:
  bool Run() { return ConvertUnprotected(); }
  bool HasLine(const std::string& line) const {
    const Strings lines = AllLines();
    return std::find(lines.begin(), lines.end(), line) != lines.end();
  }
};

// ---- Steps that fail the conversion -------------------------------------------------------------

TEST_F(FailingGptToMbr, AnUnreadableTableIsNotHeardOf) {
  SetUpDisk(SpacedEntries(2));
  machine_.calls().FailOn("SetFilePointer", 1, 6);
  EXPECT_FALSE(ConvertGptToMbr(converter_));
  EXPECT_EQ(AllLines(), (Strings{"3 SetFilePointer Error: 6", "3 Get partitions fail!"}));
  EXPECT_TRUE(Events().empty());
  EXPECT_TRUE(scripts_.empty());
}

TEST_F(FailingGptToMbr, AFailedShrinkEndsItBeforeTheDiskIsCleaned) {
  std::vector<GptEntry> entries = SpacedEntries(4);
  entries[2].last_sector = entries[3].first_sector - 1;
  SetUpDisk(entries, false);
  EXPECT_FALSE(Run());
  EXPECT_EQ(AllLines(),
            (Strings{"1 GPT2MBR start", "1 Check and compress partition", "1 CompressPart Begin...",
                     "1 CompressPart End", "3 CompressPart fail!"}));
  EXPECT_EQ(Events(), (std::vector<Event>{{1, 0}, {0, 1}, {0, 5}}));
  EXPECT_TRUE(scripts_.empty());
}

TEST_F(FailingGptToMbr, AFailedCleanEndsIt) {
  SetUpDisk(SpacedEntries(2));
  machine_.calls().FailOn("command/diskpart", 1, 1);
  EXPECT_FALSE(Run());
  EXPECT_EQ(Events(), kUpToClearing);
  EXPECT_EQ(LastLine(), "3 DISKPART_Clean Failed!");
  EXPECT_EQ(DeviceSteps(), (Strings{"diskpart"}));
}

TEST_F(FailingGptToMbr, AFailedCreationOfTheStyleEndsIt) {
  SetUpDisk(SpacedEntries(2));
  FailControl("IOCTL_DISK_CREATE_DISK", 1, 5);
  EXPECT_FALSE(Run());
  EXPECT_EQ(Events(), kUpToCreating);
  EXPECT_EQ(LastLine(), "3 DeviceIoControl with IOCTL_DISK_CREATE_DISK error 5");
  EXPECT_EQ(CountControl("IOCTL_DISK_UPDATE_PROPERTIES"), 0U);
  EXPECT_EQ(scripts_.size(), 1U);
}

TEST_F(FailingGptToMbr, AFailedLayoutEndsIt) {
  SetUpDisk(SpacedEntries(2));
  record_.volume(0).part_number = 77;
  FailControl("IOCTL_DISK_SET_DRIVE_LAYOUT_EX", 1, 87);
  EXPECT_FALSE(Run());
  EXPECT_EQ(Events(), kUpToWriting);
  EXPECT_EQ(LastLine(), "3 DeviceIoControl with IOCTL_DISK_SET_DRIVE_LAYOUT_EX error 87");
  EXPECT_EQ(CountControl("IOCTL_DISK_UPDATE_PROPERTIES"), 1U);
  EXPECT_EQ(record_.volume(0).part_number, 77);
  EXPECT_EQ(scripts_.size(), 2U);
}

// ---- Steps that do not --------------------------------------------------------------------------

TEST_F(FailingGptToMbr, TheFirstFailedUpdateOfPropertiesIsPassedOver) {
  SetUpDisk(SpacedEntries(2));
  FailControl("IOCTL_DISK_UPDATE_PROPERTIES", 1, 1117);
  EXPECT_TRUE(Run());
  EXPECT_EQ(Events(), kDataDiskEvents);
  EXPECT_EQ(Lines(3), (Strings{"DeviceIoControl with IOCTL_DISK_UPDATE_PROPERTIES error 1117"}));
}

TEST_F(FailingGptToMbr, BothFailedUpdatesOfPropertiesArePassedOver) {
  SetUpDisk(SpacedEntries(2));
  machine_.calls().FailOn("DeviceIoControl/IOCTL_DISK_UPDATE_PROPERTIES", 1, 1117,
                          simulator::Repeat::kFromThenOn);
  EXPECT_TRUE(Run());
  EXPECT_EQ(Events(), kDataDiskEvents);
  EXPECT_EQ(Lines(3), Strings(2, "DeviceIoControl with IOCTL_DISK_UPDATE_PROPERTIES error 1117"));
}

TEST_F(FailingGptToMbr, FailedRescansArePassedOver) {
  SetUpDisk(SpacedEntries(2));
  machine_.calls().FailOn("command/diskpart", 2, 1, simulator::Repeat::kFromThenOn);
  EXPECT_TRUE(Run());
  EXPECT_EQ(Events(), kDataDiskEvents);
  const Strings errors = Lines(3);
  EXPECT_EQ(std::count(errors.begin(), errors.end(), "DISKPART_Rescan Failed!"), 2);
}

TEST_F(FailingGptToMbr, FailedLettersArePassedOver) {
  SetUpDisk(SpacedEntries(2));
  machine_.calls().FailOn("FindFirstVolumeA", 1, 8);
  EXPECT_TRUE(Run());
  EXPECT_EQ(Events(), kDataDiskEvents);
  EXPECT_EQ(Lines(3), (Strings{"FindFirstVolumeA error 8", "RestoreVolumeInfos Error: 8"}));
  EXPECT_EQ(LastLine(), "1 GPT2MBR end");
}

TEST_F(FailingGptToMbr, FailedPartitionIdsArePassedOver) {
  SetUpDisk(SpacedEntries(2));
  machine_.calls().FailOn("CoCreateGuid", 1, 14, simulator::Repeat::kFromThenOn);
  EXPECT_TRUE(Run());
  EXPECT_EQ(Events(), kDataDiskEvents);
  EXPECT_EQ(Lines(3), Strings(4, "CoCreateGuid Error: 14"));
}

// ---- Stops --------------------------------------------------------------------------------------

TEST_F(FailingGptToMbr, AStopBeforeTheFirstReadIsNotHeardOf) {
  SetUpDisk(SpacedEntries(2));
  GetGlobalContext().stop_requested = 1;
  EXPECT_FALSE(ConvertGptToMbr(converter_));
  EXPECT_EQ(AllLines(), (Strings{"3 Get partitions fail!"}));
  EXPECT_TRUE(Events().empty());
}

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
