// The way back: its order, its three tries, and faults in front of it and within it.
#include <gtest/gtest.h>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "backup/restore.h"
#include "convert/gpt_to_mbr.h"
#include "convert/mbr_to_gpt.h"
#include "convert/protected_conversion.h"
#include "frame/crash_reporting.h"
#include "frame/global_context.h"
#include "platform/guard.h"
#include "support/expected_events.h"
#include "support/gpt_disk_fixture.h"
#include "support/mbr_disk_fixture.h"

namespace velkora {
namespace {

using namespace testing_support;

constexpr char kOpen[] = "CreateFileA/\\\\.\\PhysicalDrive1";
constexpr char kCrash[] = "[BackupRestore] [E] RestoreDiskPartitionFromStorage crash!";

std::string FailLine(int attempt, int code) {
  return "RestoreDiskPartitionFromStorage fail " + std::to_string(attempt) +
         " times, error: " + std::to_string(code);
}

// A GPT disk that has been backed up.
class Rollback : public GptDiskTest {
 protected:
  void SetUp() override {
    SetUpDisk(SpacedEntries(2));
    table_ = Table();
    ASSERT_EQ(BackUpDisk(converter_), 0);
    machine_.calls().Clear();
    log_.clear();
  }
  std::vector<std::byte> Table() { return ReadBytes(disk_, 512, 33 * 512); }
  std::size_t Opens() { return machine_.calls().Count(kOpen); }

  std::vector<std::byte> table_;
};

TEST_F(Rollback, ItsLinesScriptsAndEventsStandInThisOrder) {
  EXPECT_TRUE(RollbackConvert(converter_, "gpt"));
  EXPECT_EQ(Steps(),
            (Texts{"1 Restore Begin...", "1 DISKPART_Clean Begin...", "1 DISKPART_Clean Success!",
                   "1 DISKPART_Convert Begin...", "1 DISKPART_Convert Success!",
                   "1 [BackupRestore] DoRestore backup storage block count=4",
                   "1 DISKPART_Rescan Begin...", "1 DISKPART_Rescan Success!",
                   "1 RestoreVolumeInfosAfterConvert Begin...",
                   "1 RestoreVolumeInfosAfterConvert End!", "1 Restore Succeed!"}));
  EXPECT_EQ(scripts_, (Texts{"select disk 1\r\nclean\r\n", "select disk 1\r\nconvert gpt\r\n",
                             "rescan\r\n"}));
  EXPECT_EQ(Events(), kRolledBack);
  EXPECT_EQ(Table(), table_);
}

TEST_F(Rollback, TheFormerStyleIsTheOneGiven) {
  RollbackConvert(converter_, "mbr");
  EXPECT_EQ(scripts_[1], "select disk 1\r\nconvert mbr\r\n");
}

TEST_F(Rollback, CallsToTheDiskStandBetweenConvertAndRescan) {
  EXPECT_TRUE(RollbackConvert(converter_, "gpt"));
  const Texts steps = DeviceSteps();
  ASSERT_GE(steps.size(), 5U);
  EXPECT_EQ(Texts(steps.begin(), steps.begin() + 5),
            (Texts{"diskpart", "diskpart", "IOCTL_DISK_GET_DRIVE_LAYOUT_EX",
                   "IOCTL_DISK_UPDATE_PROPERTIES", "diskpart"}));
}

TEST_F(Rollback, StatusesAreSentAroundTheLastLine) {
  Texts last_lines;
  EventHook() = [&](Event) { last_lines.push_back(LastLine()); };
  EXPECT_TRUE(RollbackConvert(converter_, "gpt"));
  EXPECT_EQ(last_lines, (Texts{"", "1 Restore Succeed!", "1 Restore Succeed!"}));
}

TEST_F(Rollback, WithoutABackupTheRestoreCountsAsASuccess) {
  EXPECT_EQ(ReleaseBackupData(converter_.backup_data), 0);
  converter_.backup_data = nullptr;
  EXPECT_TRUE(RollbackConvert(converter_, "gpt"));
  EXPECT_EQ(Events(), kRolledBack);
  EXPECT_NE(Table(), table_);
}

TEST_F(Rollback, FailedRunsOfDiskpartChangeNothing) {
  machine_.calls().FailOn("command/diskpart", 1, 1, simulator::Repeat::kFromThenOn);
  EXPECT_TRUE(RollbackConvert(converter_, "gpt"));
  EXPECT_EQ(Events(), kRolledBack);
  EXPECT_EQ(machine_.calls().Count("command/diskpart"), 3U);
  const std::string status = "GetExitCodeProcess fail, error: 1, last error: 0";
  EXPECT_EQ(Lines(3), (Texts{status, "DISKPART_Clean Failed!", status, "DISKPART_Convert Failed!",
                             status, "DISKPART_Rescan Failed!"}));
}

TEST_F(Rollback, LettersThatCannotBeRestoredAreLoggedAndForgiven) {
  machine_.calls().FailOn("FindFirstVolumeA", 1, 1117);
  EXPECT_TRUE(RollbackConvert(converter_, "gpt"));
  EXPECT_EQ(Lines(3).back(), "RestoreVolumeInfos Error: 1117");
  EXPECT_EQ(Lines(1).back(), "Restore Succeed!");
  EXPECT_EQ(Events(), kRolledBack);
}

TEST_F(Rollback, AStopLeavesTheLettersAlone) {
  GetGlobalContext().stop_requested = 1;
  EXPECT_TRUE(RollbackConvert(converter_, "gpt"));
  EXPECT_EQ(Table(), table_);
  EXPECT_EQ(machine_.calls().Count("SetVolumeMountPointA"), 0U);
  ASSERT_FALSE(Lines(3).empty());
  EXPECT_TRUE(Lines(3).back().starts_with("RestoreVolumeInfos Error: "));
  EXPECT_EQ(Events(), kRolledBack);
}

// ---- Three tries --------------------------------------------------------------------------------

TEST_F(Rollback, ARestoreThatFailsTwiceSucceedsTheThirdTime) {
  machine_.calls().FailOn(kOpen, 1, 32);
  machine_.calls().FailOn(kOpen, 2, 32);
  EXPECT_TRUE(RollbackConvert(converter_, "gpt"));
  EXPECT_EQ(Lines(3), (Texts{FailLine(1, -2), FailLine(2, -2)}));
  EXPECT_EQ(Events(), kRolledBack);
  EXPECT_EQ(Table(), table_);
  EXPECT_EQ(Opens(), 3U);
  EXPECT_EQ(machine_.calls().Count("Sleep"), 0U);
  EXPECT_EQ(scripts_.size(), 3U) << "no clean in between";
}

TEST_F(Rollback, ARestoreThatFailsThreeTimesKeepsTheBackup) {
  machine_.calls().FailOn(kOpen, 1, 32, simulator::Repeat::kFromThenOn);
  EXPECT_FALSE(RollbackConvert(converter_, "gpt"));
  EXPECT_EQ(Lines(3),
            (Texts{FailLine(1, -2), FailLine(2, -2), FailLine(3, -2), "FindFirstVolumeA error 18",
                   "RestoreVolumeInfos Error: 18", "Restore Fail!"}))
      << "the letters are tried, and there is no volume";
  EXPECT_EQ(scripts_.size(), 3U) << "the disk is scanned all the same";
  EXPECT_EQ(Events(), kNotRolledBack);
  EXPECT_EQ(Opens(), 3U);
  EXPECT_EQ(ReleaseBackupData(converter_.backup_data), 0);
}

TEST_F(Rollback, AfterAFailedUpdateTheBackupIsGone) {
  FailControl("IOCTL_DISK_UPDATE_PROPERTIES", 1, 21);
  EXPECT_FALSE(RollbackConvert(converter_, "gpt"));
  EXPECT_EQ(Lines(3), (Texts{"[BackupRestore] Restore update error=21", FailLine(1, -11), kCrash,
                             FailLine(2, -18), kCrash, FailLine(3, -18), "Restore Fail!"}));
  EXPECT_EQ(Events(), kNotRolledBack);
  EXPECT_EQ(Table(), table_) << "it was written the first time";
  EXPECT_EQ(machine_.calls().Count("MiniDumpWriteDump"), 1U);
}

TEST_F(Rollback, AfterAnUnreadableLayoutTheBackupIsGoneAndNothingWritten) {
  FailControl("IOCTL_DISK_GET_DRIVE_LAYOUT_EX", 1, 21);
  EXPECT_FALSE(RollbackConvert(converter_, "gpt"));
  EXPECT_EQ(Lines(3),
            (Texts{FailLine(1, -17), kCrash, FailLine(2, -18), kCrash, FailLine(3, -18),
                   "FindFirstVolumeA error 18", "RestoreVolumeInfos Error: 18", "Restore Fail!"}));
  EXPECT_EQ(Events(), kNotRolledBack);
  EXPECT_EQ(machine_.calls().Count("WriteFile"), 0U);
}

// A block that cannot be written is in the log alone.
TEST_F(Rollback, FailedWritesAreASuccess) {
  machine_.calls().FailOn("WriteFile", 1, 1117, simulator::Repeat::kFromThenOn);
  EXPECT_TRUE(RollbackConvert(converter_, "gpt"));
  const Texts errors = Lines(3);
  ASSERT_GE(errors.size(), 4U);
  for (std::size_t i = 0; i < 4; ++i) {
    EXPECT_TRUE(errors[i].starts_with("[BackupRestore] Restore offset 0x")) << errors[i];
  }
  EXPECT_EQ(Events(), kRolledBack);
  EXPECT_NE(Table(), table_);
}

// ---- Faults -------------------------------------------------------------------------------------

// Raises a fault when `event` arrives for the `occurrence`-th time.
void FaultAt(Event event, int occurrence) {
  EventHook() = [event, left = occurrence](Event arrived) mutable {
    if (arrived == event && --left == 0) win32::RaiseFault(EXCEPTION_ACCESS_VIOLATION);
  };
}

class FaultInGpt : public GptDiskTest {
 protected:
  void SetUp() override { SetUpDisk(SpacedEntries(2)); }
  std::size_t Dumps() { return machine_.calls().Count("MiniDumpWriteDump"); }
};

TEST_F(FaultInGpt, AFaultInTheConversionIsRolledBackAfterOneDump) {
  const std::vector<std::byte> before = ReadBytes(disk_, 512, 33 * 512);
  FaultAt({0, 4}, 1);
  EXPECT_FALSE(ConvertGptToMbr(converter_));
  EXPECT_EQ(Events(), Joined({{1, 0}, {0, 1}, {1, 20}, {0, 2}, {1, 40}, {0, 3}, {1, 60}, {0, 4}},
                             kRolledBack));
  EXPECT_EQ(Dumps(), 1U);
  EXPECT_EQ(dump_written, 1);
  EXPECT_EQ(ReadBytes(disk_, 512, 33 * 512), before);
  EXPECT_TRUE(Lines(3).empty()) << "the guard itself says nothing";
}

TEST_F(FaultInGpt, AFaultWhoseDumpFindsNoMemoryIsRolledBackAllTheSame) {
  const std::vector<std::byte> before = ReadBytes(disk_, 512, 33 * 512);
  bool out_of_memory = false;
  machine_.calls().on_call = [&out_of_memory](std::size_t) {
    if (std::exchange(out_of_memory, false)) throw std::bad_alloc();
  };
  EventHook() = [&out_of_memory](Event event) {
    if (event != Event{0, 4}) return;
    out_of_memory = true;
    win32::RaiseFault(EXCEPTION_ACCESS_VIOLATION);
  };
  EXPECT_FALSE(ConvertGptToMbr(converter_));
  machine_.calls().on_call = nullptr;
  EXPECT_EQ(Events(), Joined({{1, 0}, {0, 1}, {1, 20}, {0, 2}, {1, 40}, {0, 3}, {1, 60}, {0, 4}},
                             kRolledBack));
  EXPECT_EQ(Dumps(), 0U);
  EXPECT_EQ(dump_written, 0);
  EXPECT_EQ(ReadBytes(disk_, 512, 33 * 512), before);
}

TEST_F(FaultInGpt, AFaultInTheRollbackOfAFailureStartsItAgain) {
  const std::vector<std::byte> before = ReadBytes(disk_, 512, 33 * 512);
  machine_.calls().FailOn("command/diskpart", 1, 1);
  FaultAt({0, 9}, 1);
  EXPECT_FALSE(ConvertGptToMbr(converter_));
  EXPECT_EQ(Events(), Joined({{1, 0}, {0, 1}, {1, 20}, {0, 2}, {0, 9}}, kRolledBack));
  EXPECT_EQ(Dumps(), 1U);
  EXPECT_EQ(ReadBytes(disk_, 512, 33 * 512), before);
}

// By then the first rollback has used the backup up.
TEST_F(FaultInGpt, AFaultAtTheEndOfTheRollbackLeavesNothingForTheSecond) {
  machine_.calls().FailOn("command/diskpart", 1, 1);
  FaultAt({0, 10}, 1);
  EXPECT_FALSE(ConvertGptToMbr(converter_));
  EXPECT_EQ(Events(),
            Joined(Joined({{1, 0}, {0, 1}, {1, 20}, {0, 2}}, kRolledBack), kNotRolledBack));
}

TEST_F(FaultInGpt, AFaultInTheHandlersRollbackLeavesTheCall) {
  EventHook() = [](Event event) {
    if (event == Event{0, 2} || event == Event{0, 9}) {
      win32::RaiseFault(EXCEPTION_ACCESS_VIOLATION);
    }
  };
  EXPECT_THROW(ConvertGptToMbr(converter_), win32::Fault);
  EXPECT_EQ(Events(), (EventList{{1, 0}, {0, 1}, {1, 20}, {0, 2}, {0, 9}}));
  EXPECT_EQ(ReleaseBackupData(converter_.backup_data), 0);
}

class FaultInMbr : public MbrDiskTest {
 protected:
  FaultInMbr() : MbrDiskTest(256) {}
};

TEST_F(FaultInMbr, AnEmptySystemDisksFaultIsRolledBackAfterOneDump) {
  SetUpDisk({});
  const std::vector<std::byte> before = ReadBytes(disk_, 0, 512);
  record_.disk().is_system = 1;
  GetGlobalContext().is_system = 1;
  EXPECT_FALSE(ConvertMbrToGpt(converter_));
  EXPECT_EQ(Events(), Joined({{1, 0}, {0, 1}}, kRolledBack));
  EXPECT_EQ(machine_.calls().Count("MiniDumpWriteDump"), 1U);
  EXPECT_EQ(scripts_[1], "select disk 1\r\nconvert mbr\r\n");
  EXPECT_EQ(ReadBytes(disk_, 0, 512), before);
}

TEST_F(FaultInMbr, AFaultInTheRollbackOfAFailureStartsItAgain) {
  SetUpDisk(SpacedEntries(2));
  machine_.calls().FailOn("command/diskpart", 1, 1);
  FaultAt({0, 9}, 1);
  EXPECT_FALSE(ConvertMbrToGpt(converter_));
  EXPECT_EQ(Events(), Joined({{1, 0}, {0, 1}, {1, 20}, {0, 2}, {0, 9}}, kRolledBack));
}

}  // namespace
}  // namespace velkora
