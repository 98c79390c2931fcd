// Conversions of GPT disks that hold the running system: the repair of the boot behind the table.
#include <algorithm>
#include <gtest/gtest.h>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "convert/gpt_to_mbr.h"
#include "frame/global_context.h"
#include "support/expected_events.h"
#include "support/gpt_disk_fixture.h"

namespace velkora {
namespace {

using namespace testing_support;

const std::string kBootsect = "bootsect /nt60 C: /force /mbr >> \"X:\\logs\\BOOTSECT_result.log\"";
const std::string kBcdboot =
    "bcdboot /v C:\\Windows /s C: /f bios >> \"X:\\logs\\BCDBOOT_result.log\"";
const std::string kActive = "select disk 1\r\nselect part 1\r\nactive\r\n";

// An EFI partition, the system's volume with letter C, and a data volume. The record's volumes are
// the last two.
class SystemGptToMbr : public GptDiskTest {
 protected:
  SystemGptToMbr() {
    ScriptTool("bootsect", 0);
    ScriptTool("bcdboot", 0);
    std::vector<GptEntry> entries = SpacedEntries(3);
    entries[0].type = kEfiSystemGuid;
    SetUpDisk(entries, false);
    for (std::size_t i = 1; i < 3; ++i) record_.Add(entries[i].first_sector * 512);
    MarkAsSystemDisk(0);
    SetText(record_.volume(0).letter, "C:");
    SetText(record_.volume(1).letter, "D:");
  }
  bool Run() { return ConvertUnprotected(); }
  void ExpectFailedRepair(const std::string& last_line) {
    EXPECT_FALSE(Run());
    EXPECT_EQ(Events(), kUpToRepairing);
    EXPECT_EQ(LastLine(), last_line);
  }
  bool ActiveRan() const {
    return std::find(scripts_.begin(), scripts_.end(), kActive) != scripts_.end();
  }
};

TEST_F(SystemGptToMbr, SendsPercentBeforeStatus) {
  EXPECT_TRUE(Run());
  EXPECT_EQ(Events(), kSystemDiskEvents);
}

TEST_F(SystemGptToMbr, CallbackRunsOnTheThreadOfTheCaller) {
  std::set<std::thread::id> threads;
  EventHook() = [&threads](Event) { threads.insert(std::this_thread::get_id()); };
  EXPECT_TRUE(Run());
  EXPECT_EQ(threads, std::set<std::thread::id>{std::this_thread::get_id()});
}

TEST_F(SystemGptToMbr, LogsTheRepairInOrder) {
  EXPECT_TRUE(Run());
  const Texts steps = Steps();
  const auto repair = std::find(steps.begin(), steps.end(), "1 Repair boot");
  Texts lines(repair, steps.end());
  const auto is_warning = [](const std::string& line) { return line.starts_with("2 "); };
  lines.erase(std::remove_if(lines.begin(), lines.end(), is_warning), lines.end());
  EXPECT_EQ(lines,
            (Texts{"1 Repair boot", "1 DISKPART_Rescan Begin...", "1 DISKPART_Rescan Success!",
                   "1 RecoverMbr Begin...", "1 cmd=" + kBootsect, "1 RecoverMbr Success!",
                   "1 RecoverBcd Begin...", "1 cmd=" + kBcdboot, "1 RecoverBcd Success!",
                   "1 DISKPART_Active Begin...", "1 DISKPART_Active Success!", "1 GPT2MBR end"}));
  EXPECT_EQ(Lines(3), Texts{});
}

TEST_F(SystemGptToMbr, GivesDiskpartItsScripts) {
  EXPECT_TRUE(Run());
  EXPECT_EQ(scripts_,
            (Texts{"select disk 1\r\nclean\r\n", "rescan\r\n", "rescan\r\n",
                   "select disk 1\r\nselect part 1\r\ndetail volume\r\n",
                   "select disk 1\r\nselect part 2\r\ndetail volume\r\n", "rescan\r\n", kActive}));
}

TEST_F(SystemGptToMbr, EveryLineTakesTheSystemRoute) {
  EXPECT_TRUE(Run());
  EXPECT_EQ(ToolLines(), (Texts{"system: " + kBootsect, "system: " + kBcdboot}));
  for (const std::string& line : shell_lines_) EXPECT_TRUE(line.starts_with("system: ")) << line;
}

TEST_F(SystemGptToMbr, SystemPartitionBecomesActiveByItsNewNumber) {
  record_.volume(0).part_number = 77;
  EXPECT_TRUE(Run());
  EXPECT_EQ(record_.volume(0).part_number, 1) << "the EFI partition is gone";
  const auto sector = ReadSector(disk_, 0);
  EXPECT_EQ(sector[446], 0x80);
  EXPECT_EQ(sector[446 + 16], 0);
}

TEST_F(SystemGptToMbr, OldStoreIsLookedForOnTheSystemVolume) {
  EXPECT_TRUE(Run());
  EXPECT_EQ(machine_.calls().Count("DeleteFileA/C:\\Boot\\BCD"), 1U);
}

TEST_F(SystemGptToMbr, LetterIsCutToItsFirstCharacter) {
  SetText(record_.volume(0).letter, "C:\\x");
  EXPECT_TRUE(Run());
  EXPECT_EQ(ToolLines(), (Texts{"system: " + kBootsect, "system: " + kBcdboot}));
}

TEST_F(SystemGptToMbr, EmptyLetterSkipsTheToolsButNotTheActivation) {
  SetText(record_.volume(0).letter, "");
  EXPECT_TRUE(Run());
  EXPECT_EQ(Events(), kSystemDiskEvents);
  EXPECT_TRUE(ToolLines().empty());
  EXPECT_TRUE(ActiveRan());
}

TEST_F(SystemGptToMbr, FirstOfTwoSystemVolumesIsRepaired) {
  record_.volume(1).is_system = 1;
  EXPECT_TRUE(Run());
  EXPECT_EQ(ToolLines().front(), "system: " + kBootsect);
  EXPECT_TRUE(ActiveRan());
}

TEST_F(SystemGptToMbr, AVolumeThatNeverAnswersIsPassedOver) {
  machine_.command_milliseconds = 70000;
  machine_.calls().FailOn("command/diskpart", 4, 1);
  machine_.calls().FailOn("command/diskpart", 5, 1);
  EXPECT_TRUE(Run());
  EXPECT_EQ(Events(), kSystemDiskEvents);
  EXPECT_EQ(Lines(2).front(), "WaitForSystemVolumeMount Timer out, seconds is 120");
}

// ---- Failures -----------------------------------------------------------------------------------

TEST_F(SystemGptToMbr, RecordWithoutASystemVolumeFails) {
  record_.volume(0).is_system = 0;
  ExpectFailedRepair("3 system volume not found!");
  EXPECT_TRUE(ToolLines().empty());
  EXPECT_FALSE(ActiveRan());
}

TEST_F(SystemGptToMbr, RecordWithoutVolumesHasNoSystemVolume) {
  record_.disk().volume_count = 0;
  ExpectFailedRepair("3 system volume not found!");
  EXPECT_TRUE(ToolLines().empty());
  EXPECT_FALSE(ActiveRan());
}

TEST_F(SystemGptToMbr, StopWhileSeekingTheSystemVolumeFails) {
  StopAt({0, 6});
  ExpectFailedRepair("3 system volume not found!");
}

TEST_F(SystemGptToMbr, StopWhileWritingEndsItBeforeTheRepair) {
  StopAt({0, 4});
  EXPECT_FALSE(Run());
  EXPECT_EQ(Events(), kUpToWriting);
  EXPECT_TRUE(ToolLines().empty());
}

TEST_F(SystemGptToMbr, FailedBootSectorEndsItBeforeTheStore) {
  ScriptTool("bootsect", 1);
  ExpectFailedRepair("3 RecoverMbr fail!");
  EXPECT_EQ(ToolLines(), Texts{"system: " + kBootsect});
  EXPECT_FALSE(ActiveRan());
}

TEST_F(SystemGptToMbr, FailedStoreEndsItBeforeTheActivation) {
  ScriptTool("bcdboot", 1);
  ExpectFailedRepair("3 RecoverBcd fail!");
  EXPECT_FALSE(ActiveRan());
}

TEST_F(SystemGptToMbr, FailedActivationFails) {
  machine_.calls().FailOn("command/diskpart", 7, 1);
  ExpectFailedRepair("3 DISKPART_Active Failed!");
}

TEST_F(SystemGptToMbr, FailedRescanOfTheRepairIsPassedOver) {
  machine_.calls().FailOn("command/diskpart", 6, 1);
  EXPECT_TRUE(Run());
  EXPECT_EQ(Events(), kSystemDiskEvents);
  EXPECT_EQ(Lines(3), Texts{"DISKPART_Rescan Failed!"});
}

// ---- Seeking the system volume ------------------------------------------------------------------

TEST_F(SystemGptToMbr, FindSystemVolumeGivesTheFirstOne) {
  EXPECT_EQ(FindSystemVolume(converter_), &record_.volume(0));
  record_.volume(0).is_system = 0;
  record_.volume(1).is_system = 1;
  EXPECT_EQ(FindSystemVolume(converter_), &record_.volume(1));
}

TEST_F(SystemGptToMbr, FindSystemVolumeGivesNoneWhereThereIsNone) {
  record_.volume(0).is_system = 0;
  EXPECT_EQ(FindSystemVolume(converter_), nullptr);
  EXPECT_TRUE(log_.empty());
}

TEST_F(SystemGptToMbr, FindSystemVolumeGivesNoneOnceAStopIsAskedFor) {
  GetGlobalContext().stop_requested = 1;
  EXPECT_EQ(FindSystemVolume(converter_), nullptr);
}

}  // namespace
}  // namespace velkora
