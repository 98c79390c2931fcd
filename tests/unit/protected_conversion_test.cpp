// What stands around both conversions: the backup, the guard, and what each outcome leaves.
#include "convert/protected_conversion.h"

#include <gtest/gtest.h>
#include <vector>

#include "backup/backup_storage.h"
#include "backup/restore.h"
#include "convert/gpt_to_mbr.h"
#include "convert/mbr_to_gpt.h"
#include "frame/crash_reporting.h"
#include "frame/global_context.h"
#include "platform/guard.h"
#include "platform/win32.h"
#include "simulator/disk.h"
#include "support/expected_events.h"
#include "support/gpt_disk_fixture.h"
#include "support/mbr_disk_fixture.h"

namespace velkora {
namespace {

using namespace testing_support;

constexpr char kOpen[] = "CreateFileA/\\\\.\\PhysicalDrive1";

class ProtectedGpt : public GptDiskTest {
 protected:
  // The primary table, which a rollback brings back.
  std::vector<std::byte> Table() { return ReadBytes(disk_, 512, 33 * 512); }
  std::size_t Dumps() { return machine_.calls().Count("MiniDumpWriteDump"); }
};

class ProtectedMbr : public MbrDiskTest {
 protected:
  ProtectedMbr() : MbrDiskTest(256) {}
  std::vector<std::byte> Table() { return ReadBytes(disk_, 0, 512); }
  std::size_t Dumps() { return machine_.calls().Count("MiniDumpWriteDump"); }
};

// ---- Success and failure ------------------------------------------------------------------------

TEST_F(ProtectedGpt, ASuccessReleasesTheBackupAndKeepsItsPointer) {
  SetUpDisk(SpacedEntries(2));
  EXPECT_TRUE(ConvertGptToMbr(converter_));
  EXPECT_EQ(Events().back(), (Event{0, 7}));
  ASSERT_NE(converter_.backup_data, nullptr);
  EXPECT_EQ(ReleaseBackupData(converter_.backup_data), -18);
}

TEST_F(ProtectedGpt, TheBackupComesBeforeTheFirstStatus) {
  SetUpDisk(SpacedEntries(2));
  EventHook() = [this](Event event) {
    if (event != Event{1, 0}) return;
    EXPECT_EQ(BlockCount(converter_.backup_data), 4U + 2 * 2U);
  };
  EXPECT_TRUE(ConvertGptToMbr(converter_));
  EXPECT_EQ(AllLines()[0],
            "1 [BackupRestore] DoBackup device_id=\\\\.\\PhysicalDrive1, "
            "offsets={1048576,18874368}");
}

TEST_F(ProtectedGpt, AFailedStepIsRolledBackToTheFormerTable) {
  SetUpDisk(SpacedEntries(3));
  const std::vector<std::byte> before = Table();
  FailControl("IOCTL_DISK_SET_DRIVE_LAYOUT_EX", 1, 87);
  EXPECT_FALSE(ConvertGptToMbr(converter_));
  EXPECT_EQ(Events(), Joined({{1, 0}, {0, 1}, {1, 20}, {0, 2}, {1, 40}, {0, 3}, {1, 60}, {0, 4}},
                             kRolledBack));
  EXPECT_EQ(Table(), before);
  EXPECT_EQ(scripts_.size(), 5U);
  EXPECT_EQ(Dumps(), 0U);
  EXPECT_NE(machine_.FindVolumeAt(1, 1 << 20), nullptr) << "the system sees it again";
}

TEST_F(ProtectedMbr, AFailedStepIsRolledBackToTheFormerTable) {
  SetUpDisk(SpacedEntries(3));
  const std::vector<std::byte> before = Table();
  FailControl("IOCTL_DISK_SET_DRIVE_LAYOUT_EX", 1, 87);
  EXPECT_FALSE(ConvertMbrToGpt(converter_));
  EXPECT_EQ(Events(), Joined({{1, 0}, {0, 1}, {1, 20}, {0, 2}, {1, 40}, {0, 3}, {1, 60}, {0, 4}},
                             kRolledBack));
  EXPECT_EQ(Table(), before);
  EXPECT_EQ(Dumps(), 0U);
}

TEST_F(ProtectedMbr, ASuccessReleasesTheBackup) {
  SetUpDisk(SpacedEntries(2));
  EXPECT_TRUE(ConvertMbrToGpt(converter_));
  EXPECT_EQ(Events().back(), (Event{0, 7}));
  EXPECT_EQ(ReleaseBackupData(converter_.backup_data), -18);
}

TEST_F(ProtectedGpt, TheDiskStaysOpenForTheCaller) {
  SetUpDisk(SpacedEntries(2));
  machine_.calls().FailOn("command/diskpart", 1, 1);
  EXPECT_FALSE(ConvertGptToMbr(converter_));
  EXPECT_EQ(Events(), Joined({{1, 0}, {0, 1}, {1, 20}, {0, 2}}, kRolledBack));
  EXPECT_NE(machine_.handles().Find(converter_.disk_handle), nullptr);
}

// ---- A stop -------------------------------------------------------------------------------------

TEST_F(ProtectedGpt, AStopDuringTheRoomCheckRestoresTheTableAndNoLetters) {
  SetUpDisk(SpacedEntries(5));
  const std::vector<std::byte> before = Table();
  StopAt({0, 1});
  EXPECT_FALSE(ConvertGptToMbr(converter_));
  EXPECT_EQ(Events(), Joined({{1, 0}, {0, 1}}, kRolledBack));
  EXPECT_EQ(scripts_.size(), 3U) << "cleaned, converted and scanned all the same";
  EXPECT_EQ(Table(), before);
  EXPECT_EQ(machine_.calls().Count("SetVolumeMountPointA"), 0U);
  const Texts errors = Lines(3);
  ASSERT_FALSE(errors.empty());
  EXPECT_TRUE(errors.back().starts_with("RestoreVolumeInfos Error: ")) << errors.back();
}

// ---- A backup that fails ------------------------------------------------------------------------

TEST_F(ProtectedGpt, AFailedBackupSendsItsStatusAndTouchesNothing) {
  SetUpDisk(SpacedEntries(2));
  machine_.calls().FailOn(kOpen, 1, 32);
  const std::uint64_t written = disk_.device().bytes_written();
  EXPECT_FALSE(ConvertGptToMbr(converter_));
  EXPECT_EQ(Events(), (EventList{{0, 8}, {1, 100}}));
  EXPECT_EQ(Lines(3), (Texts{"BackupDiskPartitionToStorage error -2"}));
  EXPECT_TRUE(scripts_.empty());
  EXPECT_EQ(disk_.device().bytes_written(), written);
  EXPECT_EQ(converter_.backup_data, nullptr);
}

TEST_F(ProtectedGpt, TheStatusIsSentBeforeTheErrorIsLogged) {
  SetUpDisk(SpacedEntries(2));
  machine_.calls().FailOn(kOpen, 1, 32);
  EventHook() = [this](Event) { EXPECT_TRUE(Lines(3).empty()); };
  EXPECT_FALSE(ConvertGptToMbr(converter_));
  EXPECT_EQ(Lines(3).size(), 1U);
}

TEST_F(ProtectedMbr, AFailedBackupSendsNothing) {
  SetUpDisk(SpacedEntries(2));
  machine_.calls().FailOn(kOpen, 1, 32);
  const std::uint64_t written = disk_.device().bytes_written();
  EXPECT_FALSE(ConvertMbrToGpt(converter_));
  EXPECT_TRUE(Events().empty());
  EXPECT_EQ(Lines(3), (Texts{"BackupDiskPartitionToStorage error -2"}));
  EXPECT_TRUE(scripts_.empty());
  EXPECT_EQ(disk_.device().bytes_written(), written);
}

// The pointer is not cleared in between.
TEST_F(ProtectedGpt, ASecondBackupMeetsTheOneThatItHasReleased) {
  SetUpDisk(SpacedEntries(2));
  EXPECT_EQ(BackUpDisk(converter_), 0);
  BackupStorage* const first = converter_.backup_data;
  EXPECT_EQ(BackUpDisk(converter_), -18);
  EXPECT_EQ(converter_.backup_data, first);
  EXPECT_EQ(Lines(3), (Texts{"[BackupRestore] [E] BackupDiskPartitionToStorage crash!"}));
}

// ---- A second conversion with one object --------------------------------------------------------

class SecondConvertOfGpt : public ProtectedMbr {};
class SecondConvertOfMbr : public ProtectedGpt {};

const Texts kStale = {"[BackupRestore] [E] ReleaseBackupData crash!",
                      "[BackupRestore] [E] BackupDiskPartitionToStorage crash!",
                      "BackupDiskPartitionToStorage error -18"};

TEST_F(SecondConvertOfGpt, MeetsTheStaleBackupAndSendsItsStatus) {
  SetUpDisk(SpacedEntries(2));
  EXPECT_EQ(converter_.Convert(&record_.disk(), &RecordEvent), 0);
  record_.disk().disk_type = DiskType::kGpt;
  Events().clear();
  log_.clear();
  scripts_.clear();
  const std::uint64_t written = disk_.device().bytes_written();
  EXPECT_EQ(converter_.Convert(&record_.disk(), &RecordEvent), 1);
  EXPECT_EQ(Events(), (EventList{{0, 8}, {1, 100}}));
  EXPECT_EQ(Lines(3), kStale);
  EXPECT_TRUE(scripts_.empty());
  EXPECT_EQ(disk_.device().bytes_written(), written);
  EXPECT_EQ(Dumps(), 1U);
}

TEST_F(SecondConvertOfMbr, MeetsTheStaleBackupAndSendsNothing) {
  SetUpDisk(SpacedEntries(2));
  EXPECT_EQ(converter_.Convert(&record_.disk(), &RecordEvent), 0);
  record_.disk().disk_type = DiskType::kMbr;
  Events().clear();
  log_.clear();
  scripts_.clear();
  EXPECT_EQ(converter_.Convert(&record_.disk(), &RecordEvent), 1);
  EXPECT_TRUE(Events().empty());
  EXPECT_EQ(Lines(3), kStale);
  EXPECT_TRUE(scripts_.empty());
}

TEST_F(SecondConvertOfMbr, SucceedsWhereTheCallerClearsThePointer) {
  SetUpDisk(SpacedEntries(2));
  EXPECT_EQ(converter_.Convert(&record_.disk(), &RecordEvent), 0);
  record_.disk().disk_type = DiskType::kMbr;
  converter_.backup_data = nullptr;
  EXPECT_EQ(converter_.Convert(&record_.disk(), &RecordEvent), 0);
}

}  // namespace
}  // namespace velkora
