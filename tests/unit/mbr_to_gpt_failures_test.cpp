// Conversions of MBR disks in which a step fails or a stop is asked for.

#include "convert/mbr_to_gpt.h"
#include "frame/global_context.h"
#include "support/expected_events.h"
#include "support/mbr_disk_fixture.h"

namespace velkora {
namespace {

using namespace testing_support;

class FailingMbrToGpt : public MbrDiskTest {
 protected:
  FailingMbrToGpt() : MbrDiskTest(1024) {}
  bool Run() { return ConvertUnprotected(); }
};

// ---- Room ---------------------------------------------------------------------------------------

TEST_F(FailingMbrToGpt, MissingTailRoomOfADataDiskIsForgivenUntilTheLayoutIsSet) {
  SetUpDisk({Between(1, 1024)}, {}, false);
  FailControl("IOCTL_DISK_SET_DRIVE_LAYOUT_EX", 1, 87);
  EXPECT_FALSE(Run());
  std::vector<Event> expected = kUpToWriting;
  expected.insert(expected.begin() + 2, {0, 5});
  EXPECT_EQ(Events(), expected);
  EXPECT_EQ(Lines(3), (Texts{"CompressPart fail!", "IOCTL_DISK_SET_DRIVE_LAYOUT_EX Error: 87"}));
}

TEST_F(FailingMbrToGpt, MissingTailRoomOfADataDiskIsThePlatformsDecision) {
  SetUpDisk({Between(1, 1024)}, {}, false);
  EXPECT_FALSE(Run()) << "the last partition lies over the secondary table";
  EXPECT_EQ(CountControl("IOCTL_DISK_SET_DRIVE_LAYOUT_EX"), 1U);
  EXPECT_EQ(LastLine(), "3 IOCTL_DISK_SET_DRIVE_LAYOUT_EX Error: 87");
}

TEST_F(FailingMbrToGpt, MissingTailRoomIsForgivenWhereThePlatformDoesNotMind) {
  SetUpDisk({Between(1, 100)}, {}, false);
  record_.disk().size = 100ULL << 20;
  EXPECT_TRUE(Run());
  EXPECT_EQ(Lines(3), Texts{"CompressPart fail!"});
}

TEST_F(FailingMbrToGpt, AFailedRescanBehindTheTailShrinkOfADataDiskIsForgiven) {
  SetUpDisk({Between(1, 1024)});
  machine_.calls().FailOn("command/diskpart");
  EXPECT_FALSE(Run());
  // The list still has the length from before the shrink.
  EXPECT_EQ(LastLine(), "3 IOCTL_DISK_SET_DRIVE_LAYOUT_EX Error: 87");
}

TEST_F(FailingMbrToGpt, AListCutBehindTheTailShrinkOfADataDiskIsConvertedAsFarAsItWasRead) {
  SetUpDisk({Between(1, 100), {15, 100 * kMiB, 924 * kMiB}},
            {Between(101, 500), Between(501, 1024)});
  bool armed = false;
  machine_.on_script = [&](std::string_view) {
    if (!armed) machine_.calls().FailOn("ReadFile", 3, 23);  // the second boot record
    armed = true;
  };
  EXPECT_TRUE(Run());
  std::vector<Event> expected = kDataDiskEvents;
  expected.insert(expected.begin() + 2, {0, 5});
  EXPECT_EQ(Events(), expected);
  EXPECT_EQ(Lines(3), (Texts{"Read Error: 23", "Get partitions fail!"}));
  EXPECT_EQ(PlacesOf(GptRowsOnDisk(3)),
            (std::vector<RowPlace>{{kMiB, 99 * kMiB}, {101 * kMiB, 399 * kMiB}, {}}));
}

// ---- Steps that fail the conversion -------------------------------------------------------------

TEST_F(FailingMbrToGpt, AFailedDiskIdEndsIt) {
  SetUpDisk(SpacedEntries(2));
  machine_.calls().FailOn("CoCreateGuid", 1, 14);
  EXPECT_FALSE(Run());
  EXPECT_EQ(Events(), kUpToCreating);
  EXPECT_EQ(LastLine(), "3 CoCreateGuid Error: 14");
  EXPECT_EQ(CountControl("IOCTL_DISK_CREATE_DISK"), 0U);
}

TEST_F(FailingMbrToGpt, AFailedIdOfAnEntryEndsIt) {
  SetUpDisk(SpacedEntries(3));
  machine_.calls().FailOn("CoCreateGuid", 3, 14);  // the second entry's
  EXPECT_FALSE(Run());
  EXPECT_EQ(Events(), kUpToCreating);
  EXPECT_EQ(LastLine(), "3 CoCreateGuid error: 14");
  EXPECT_EQ(machine_.calls().Count("CoCreateGuid"), 3U);
  EXPECT_EQ(CountControl("IOCTL_DISK_SET_DRIVE_LAYOUT_EX"), 0U);
}

// ---- Stops --------------------------------------------------------------------------------------

TEST_F(FailingMbrToGpt, AStopWhileCheckingIsSeenOnlyBeforeTheLayout) {
  SetUpDisk(SpacedEntries(4));
  StopAt({0, 1});
  EXPECT_FALSE(Run());
  EXPECT_EQ(Events(), kUpToCreating);
  EXPECT_EQ(LastLine(), "1 DISKPART_Rescan Success!");
  EXPECT_EQ(machine_.calls().Count("CoCreateGuid"), 5U) << "the layout was built";
  EXPECT_EQ(CountControl("IOCTL_DISK_SET_DRIVE_LAYOUT_EX"), 0U);
}

TEST_F(FailingMbrToGpt, AStopWhileWritingIsNotSeen) {
  SetUpDisk(SpacedEntries(2));
  record_.volume(0).part_number = 77;
  StopAt({0, 4});
  EXPECT_TRUE(Run());
  EXPECT_EQ(Events(), kDataDiskEvents);
  EXPECT_EQ(record_.volume(0).part_number, 1);
  const Texts errors = Lines(3);
  ASSERT_EQ(errors.size(), 1U);
  EXPECT_TRUE(errors[0].starts_with("RestoreVolumeInfos error: ")) << errors[0];
}

TEST_F(FailingMbrToGpt, AStopWithoutPartitionsIsNotSeen) {
  SetUpDisk({});
  StopAt({1, 0});
  EXPECT_TRUE(Run());
  EXPECT_EQ(LastLine(), "1 MBR2GPT end");
}

// ---- System disks -------------------------------------------------------------------------------

// The system's volume is C, from 1 to 100 MiB; the EFI partition becomes the second.
class FailingSystemMbrToGpt : public FailingMbrToGpt {
 protected:
  FailingSystemMbrToGpt() {
    ScriptTool("bcdboot", 0);
    ScriptTool("bcdedit", 0, "resumeobject {one}\n");
  }
  void SetUpSystem(bool with_letter = true) {
    SetUpDisk({Between(1, 100)});
    MarkAsSystemDisk(0);
    if (with_letter) SetText(record_.volume(0).letter, "C:");
  }
  // The runs of diskpart, in order: 1 rescan, 2 clean, 3 and 4 rescan, 5 and 6 the wait, 7 rescan,
  // 8 format, 9 assign, 10 rescan.
  void FailDiskpart(std::size_t run) { machine_.calls().FailOn("command/diskpart", run, 1); }
  void ExpectFailedRepair(const std::string& last_line) {
    EXPECT_FALSE(Run());
    EXPECT_EQ(Events(), kUpToRepairing);
    EXPECT_EQ(LastLine(), last_line);
  }
};

TEST_F(FailingSystemMbrToGpt, MissingTailRoomEndsIt) {
  SetUpDisk({Between(1, 100), Between(100, 1024)}, {}, false);
  record_.disk().is_system = 1;
  EXPECT_FALSE(Run());
  EXPECT_EQ(Events(), (std::vector<Event>{{1, 0}, {0, 1}, {0, 5}}));
  EXPECT_EQ(AllLines(),
            (Texts{"1 MBR2GPT start", "1 Check and compress partition", "1 CompressPart Begin...",
                   "1 CompressPart End", "3 CompressPart fail!"}));
  EXPECT_TRUE(scripts_.empty());
}

TEST_F(FailingSystemMbrToGpt, StopDuringTheTailShrinkEndsIt) {
  SetUpDisk({Between(1, 100), Between(100, 1024)});
  MarkAsSystemDisk(0);
  StopAt({0, 5});
  EXPECT_FALSE(Run());
  EXPECT_EQ(Events(), (std::vector<Event>{{1, 0}, {0, 1}, {0, 5}}));
  EXPECT_EQ(LastLine(), "3 Get partitions fail!");
}

TEST_F(FailingSystemMbrToGpt, NoRoomForTheEfiPartitionEndsIt) {
  SetUpDisk({Between(1, 800)});
  MarkAsSystemDisk(0);
  EXPECT_FALSE(Run());
  EXPECT_EQ(Events(), kUpToChecking);
  EXPECT_EQ(LastLine(), "3 Need compress for efi but not");
  EXPECT_TRUE(scripts_.empty());
}

TEST_F(FailingSystemMbrToGpt, AFailedRescanOfTheRoomStepEndsIt) {
  SetUpSystem();
  FailDiskpart(1);
  EXPECT_FALSE(Run());
  EXPECT_EQ(Events(), kUpToChecking);
  EXPECT_EQ(LastLine(), "3 DISKPART_Rescan Failed!");
}

TEST_F(FailingSystemMbrToGpt, AStopWhileCheckingIsSeenByTheReadOfTheRoomStep) {
  SetUpSystem();
  StopAt({0, 1});
  EXPECT_FALSE(Run());
  EXPECT_EQ(Events(), kUpToChecking);
  EXPECT_EQ(LastLine(), "3 Get partitions fail!");
}

TEST_F(FailingSystemMbrToGpt, RescansOfTheRepairArePassedOver) {
  SetUpSystem();
  FailDiskpart(7);
  FailDiskpart(10);
  EXPECT_TRUE(Run());
  EXPECT_EQ(Events(), kSystemDiskEvents);
  EXPECT_EQ(Lines(3), Texts(2, "DISKPART_Rescan Failed!"));
}

TEST_F(FailingSystemMbrToGpt, AFailedFormatEndsIt) {
  SetUpSystem();
  FailDiskpart(8);
  ExpectFailedRepair("3 DISKPART_Format Failed!");
  EXPECT_TRUE(ToolLines().empty());
}

TEST_F(FailingSystemMbrToGpt, AFailedAssignmentEndsIt) {
  SetUpSystem();
  FailDiskpart(9);
  ExpectFailedRepair("3 DISKPART_Assign Failed!");
  EXPECT_EQ(scripts_.size(), 9U) << "the last rescan is missing";
}

// With A or B in use the rule may name a letter that is taken, and the assignment fails.
TEST_F(FailingSystemMbrToGpt, ALetterThatIsTakenEndsIt) {
  SetUpSystem();
  machine_.MapFolder('A', folder_.path());
  ExpectFailedRepair("3 DISKPART_Assign Failed!");
  EXPECT_EQ(scripts_.back(), "select disk 1\r\nlist part\r\nselect part 2\r\nassign letter=A\r\n");
}

TEST_F(FailingSystemMbrToGpt, NoSystemLetterEndsItWithoutALine) {
  SetUpSystem(false);
  ExpectFailedRepair("1 DISKPART_Rescan Success!");
  EXPECT_EQ(Lines(3), Texts{});
  EXPECT_TRUE(ToolLines().empty());
}

TEST_F(FailingSystemMbrToGpt, AFailedBootStoreEndsItBeforeTheRecoverySettings) {
  SetUpSystem();
  ScriptTool("bcdboot", 1);
  ExpectFailedRepair("3 RecoverBcd fail!");
  EXPECT_EQ(machine_.calls().Count("command/bcdedit"), 0U);
}

TEST_F(FailingSystemMbrToGpt, FailedRecoverySettingsEndIt) {
  SetUpSystem();
  machine_.calls().FailOn("command/bcdedit", 2, 1);
  ExpectFailedRepair("3 BcdEdit Set Failed!");
}

TEST_F(FailingSystemMbrToGpt, AFailedListingOfTheStoreEndsIt) {
  SetUpSystem();
  machine_.calls().FailOn("command/bcdedit", 1, 1);
  ExpectFailedRepair("3 Bcdedit Get Info Failed!");
}

TEST_F(FailingSystemMbrToGpt, AVolumeThatNeverAnswersIsPassedOver) {
  SetUpSystem();
  machine_.command_milliseconds = 70000;
  FailDiskpart(5);
  FailDiskpart(6);
  EXPECT_TRUE(Run());
  EXPECT_EQ(Events(), kSystemDiskEvents);
  EXPECT_EQ(Lines(3), Texts{"System Volume Not Mounted! Retry..."});
  EXPECT_EQ(Lines(2).front(), "WaitForSystemVolumeMount Timer out, seconds is 120");
}

}  // namespace
}  // namespace velkora
