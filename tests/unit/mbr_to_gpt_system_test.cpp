// Conversions of MBR disks that hold the running system: the EFI partition and its boot files.
#include <algorithm>
#include <stdexcept>

#include "convert/mbr_to_gpt.h"
#include "frame/global_context.h"
#include "support/expected_events.h"
#include "support/mbr_disk_fixture.h"

namespace velkora {
namespace {

using namespace testing_support;

using Places = std::vector<RowPlace>;

constexpr std::uint64_t kEfiSectors = 614400;

// ---- System disks -------------------------------------------------------------------------------

// The system's volume is C, from 1 to 100 MiB.
class SystemMbrToGpt : public MbrDiskTest {
 protected:
  SystemMbrToGpt() : MbrDiskTest(1024) {
    ScriptTool("bcdboot", 0);
    ScriptTool("bcdedit", 0, "resumeobject {one}\n");
  }
  bool Run() { return ConvertUnprotected(); }
  void SetUpSystem(const std::vector<MbrEntry>& entries) {
    SetUpDisk(entries);
    MarkAsSystemDisk(0);
    SetText(record_.volume(0).letter, "C:");
  }
};

TEST_F(SystemMbrToGpt, SendsPercentBeforeStatus) {
  SetUpSystem({Between(1, 100)});
  EXPECT_TRUE(Run());
  EXPECT_EQ(Events(), kSystemDiskEvents);
}

TEST_F(SystemMbrToGpt, LogsItsStepsInOrder) {
  SetUpSystem({Between(1, 100)});
  EXPECT_TRUE(Run());
  const Texts steps = Steps();
  const auto repair = std::find(steps.begin(), steps.end(), "1 Repair boot");
  const Texts begin(steps.begin(), steps.begin() + 6);
  EXPECT_EQ(begin, (Texts{"1 MBR2GPT start", "1 Check and compress partition",
                          "1 DISKPART_Rescan Begin...", "1 DISKPART_Rescan Success!",
                          "1 DISKPART_Clean Begin...", "1 DISKPART_Clean Success!"}));
  const std::string boot =
      "bcdboot /v C:\\Windows /s D: /f uefi >> \"X:\\logs\\BCDBOOT_result.log\"";
  const std::string store = "bcdedit /store D:\\EFI\\Microsoft\\Boot\\BCD";
  const std::string result = " >> \"X:\\logs\\BCDEDIT_result.log\"";
  const std::string assign = "select disk 1\r\nlist part\r\nselect part 2\r\nassign letter=D\r\n";
  EXPECT_EQ(Texts(repair, steps.end()),
            (Texts{"1 Repair boot",
                   "1 DISKPART_Rescan Begin...",
                   "1 DISKPART_Rescan Success!",
                   "1 DISKPART_Format Begin...",
                   "1 DISKPART_Format Success!",
                   "1 DISKPART_Assign Begin...",
                   "1 cmd: " + assign,
                   "1 DISKPART_Assign Success!",
                   "1 DISKPART_Rescan Begin...",
                   "1 DISKPART_Rescan Success!",
                   "1 RecoverBcd Begin...",
                   "2 Delete Bcd Error! error_code: 3",
                   "1 cmd=" + boot,
                   "1 RecoverBcd Success!",
                   "1 BcdEnableRecovery Begin...",
                   "1 cmd: " + store + result,
                   "1 Bcdedit Get Info Success!",
                   "1 bcdedit key: resumeobject, value: {one}",
                   "1 cmd: " + store + " /set {one} recoveryenabled ON" + result,
                   "1 BcdEnableRecovery Success!",
                   "1 MBR2GPT end"}));
}

TEST_F(SystemMbrToGpt, GivesDiskpartItsScripts) {
  SetUpSystem({Between(1, 100)});
  EXPECT_TRUE(Run());
  EXPECT_EQ(scripts_, (Texts{"rescan\r\n", "select disk 1\r\nclean\r\n", "rescan\r\n", "rescan\r\n",
                             "select disk 1\r\nselect part 1\r\ndetail volume\r\n",
                             "select disk 1\r\nselect part 2\r\ndetail volume\r\n", "rescan\r\n",
                             "select disk 1\r\nselect part 2\r\nformat fs=fat32 quick override\r\n",
                             "select disk 1\r\nlist part\r\nselect part 2\r\nassign letter=D\r\n",
                             "rescan\r\n"}));
}

TEST_F(SystemMbrToGpt, EveryLineTakesTheSystemRoute) {
  SetUpSystem({Between(1, 100)});
  EXPECT_TRUE(Run());
  ASSERT_FALSE(shell_lines_.empty());
  for (const std::string& line : shell_lines_) EXPECT_TRUE(line.starts_with("system: ")) << line;
}

TEST_F(SystemMbrToGpt, EfiPartitionFollowsTheLastOne) {
  SetUpSystem({Between(1, 100)});
  EXPECT_TRUE(Run());
  const auto rows = GptRowsOnDisk(3);
  EXPECT_EQ(PlacesOf(rows), (Places{{kMiB, 99 * kMiB}, {100 * kMiB, kEfiSectors}, {}}));
  EXPECT_EQ(rows[0].type_guid, kBasicDataGuid);
  EXPECT_EQ(rows[1].type_guid, kEfiSystemGuid);
  EXPECT_EQ(Names(2), Texts(2, "Basic Data Partition"));
  EXPECT_EQ(converter_.partition_offsets, (std::vector<std::uint64_t>{1 << 20, 100 << 20}));
}

TEST_F(SystemMbrToGpt, EfiPartitionInFrontRaisesEveryNumber) {
  SetUpSystem({Between(400, 500), Between(500, 600)});
  EXPECT_TRUE(Run());
  const auto rows = GptRowsOnDisk(3);
  EXPECT_EQ(PlacesOf(rows),
            (Places{{kMiB, kEfiSectors}, {400 * kMiB, 100 * kMiB}, {500 * kMiB, 100 * kMiB}}));
  EXPECT_EQ(rows[0].type_guid, kEfiSystemGuid);
  EXPECT_EQ(record_.volume(0).part_number, 2);
  EXPECT_EQ(record_.volume(1).part_number, 3);
  EXPECT_EQ(std::count(scripts_.begin(), scripts_.end(),
                       "select disk 1\r\nselect part 1\r\nformat fs=fat32 quick override\r\n"),
            1);
}

TEST_F(SystemMbrToGpt, EfiPartitionIsFormattedAndHasTheLetter) {
  SetUpSystem({Between(1, 100)});
  EXPECT_TRUE(Run());
  const auto sector = ReadSector(disk_, 100 * kMiB);
  EXPECT_EQ(std::string(sector.begin() + 82, sector.begin() + 90), "FAT32   ");
  EXPECT_EQ(machine_.LettersOf(*machine_.FindVolumeAt(1, 100 << 20)), "D");
  EXPECT_EQ(machine_.LettersOf(*machine_.FindVolumeAt(1, 1 << 20)), "C");
}

TEST_F(SystemMbrToGpt, EmptyListRaises) {
  SetUpDisk({});
  record_.disk().is_system = 1;
  EXPECT_THROW(Run(), std::out_of_range);
  EXPECT_EQ(Events(), (std::vector<Event>{{1, 0}, {0, 1}}));
  EXPECT_TRUE(scripts_.empty());
}

TEST_F(SystemMbrToGpt, LetterAIsTakenWhenCToZAreInUse) {
  SetUpSystem({Between(1, 100)});
  for (char letter = 'D'; letter <= 'Z'; ++letter) machine_.MapFolder(letter, folder_.path());
  EXPECT_TRUE(Run());
  EXPECT_EQ(machine_.LettersOf(*machine_.FindVolumeAt(1, 100 << 20)), "A");
}

TEST_F(SystemMbrToGpt, StopBehindTheWritingIsNotHonoured) {
  SetUpSystem({Between(1, 100)});
  StopAt({0, 6});
  EXPECT_TRUE(Run());
  EXPECT_EQ(Events(), kSystemDiskEvents);
  EXPECT_EQ(ToolLines().size(), 3U);
}

TEST_F(SystemMbrToGpt, StopWhileWritingCostsOnlyTheLetters) {
  SetUpSystem({Between(1, 100)});
  StopAt({0, 4});
  EXPECT_TRUE(Run());
  EXPECT_EQ(Events(), kSystemDiskEvents);
  const Texts errors = Lines(3);
  ASSERT_EQ(errors.size(), 1U);
  EXPECT_TRUE(errors[0].starts_with("RestoreVolumeInfos error: ")) << errors[0];
}

// ---- The letter of the running system -----------------------------------------------------------

class GetSystemVolumeLetter : public MbrDiskTest {
 protected:
  GetSystemVolumeLetter() : MbrDiskTest(64) {}
  VolumeInfo& AddVolume(std::string_view letter, bool is_system) {
    VolumeInfo& volume = record_.Add(1 << 20, VolumeFileSystem::kNtfs, letter);
    volume.is_system = is_system ? 1 : 0;
    return volume;
  }
  bool Run() { return velkora::GetSystemVolumeLetter(converter_, letter_); }
  std::string letter_ = "before";
};

TEST_F(GetSystemVolumeLetter, IsTheFirstCharacterWithoutTheColon) {
  AddVolume("D:", false);
  AddVolume("C:", true);
  AddVolume("E:", true);
  EXPECT_TRUE(Run());
  EXPECT_EQ(letter_, "C");
}

TEST_F(GetSystemVolumeLetter, SystemVolumeWithoutALetterIsPassedOver) {
  AddVolume("", true);
  AddVolume("E:", true);
  EXPECT_TRUE(Run());
  EXPECT_EQ(letter_, "E");
}

TEST_F(GetSystemVolumeLetter, SystemVolumesWithoutLettersHaveNone) {
  AddVolume("", true);
  AddVolume("D:", false);
  EXPECT_FALSE(Run());
  EXPECT_TRUE(log_.empty());
}

TEST_F(GetSystemVolumeLetter, RecordWithoutVolumesHasNone) {
  EXPECT_FALSE(Run());
}

TEST_F(GetSystemVolumeLetter, StopIsNotLookedAt) {
  AddVolume("C:", true);
  GetGlobalContext().stop_requested = 1;
  EXPECT_TRUE(Run());
  EXPECT_EQ(letter_, "C");
}

}  // namespace
}  // namespace velkora
