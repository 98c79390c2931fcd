// What a rollback leaves in the record and in the converter, and a second conversion with the same
// converter.
#include <gtest/gtest.h>
#include <vector>

#include "backup/backup_storage.h"
#include "backup/restore.h"
#include "simulator/disk.h"
#include "support/gpt_disk_fixture.h"
#include "support/mbr_disk_fixture.h"

namespace velkora {
namespace {

using namespace testing_support;

using EventList = std::vector<Event>;
using Offsets = std::vector<std::uint64_t>;

constexpr char kOpen[] = "CreateFileA/\\\\.\\PhysicalDrive1";
constexpr char kStaleRelease[] = "[BackupRestore] [E] ReleaseBackupData crash!";
const Texts kStaleBackup = {"[BackupRestore] [E] BackupDiskPartitionToStorage crash!",
                            "BackupDiskPartitionToStorage error -18"};
const EventList kBackupFailed = {{0, 8}, {1, 100}};

// ---- The record and the offsets -----------------------------------------------------------------

class RollbackState : public GptDiskTest {
 protected:
  // A reserved partition, which has no volume and is left out, and two volumes out of disk order.
  void SetUp() override {
    SetUpDisk({{kMicrosoftReservedGuid, 2048, 4095, 1},
               {kBasicDataGuid, 65536, 98303, 2},
               {kBasicDataGuid, 4096, 36863, 3}});
    table_ = Table();
    for (std::size_t i = 0; i < 2; ++i) record_.volume(i).part_number = 77;
  }
  std::vector<std::byte> Table() { return ReadBytes(disk_, 512, 33 * 512); }
  void ExpectRolledBack() {
    EXPECT_EQ(converter_.Convert(&record_.disk(), &RecordEvent), 1);
    ASSERT_FALSE(Events().empty());
    EXPECT_EQ(Events().back(), (Event{0, 10}));
    EXPECT_EQ(Table(), table_);
  }

  std::vector<std::byte> table_;
  const Offsets in_table_order_ = {65536 * 512, 4096 * 512};
  const Offsets in_disk_order_ = {4096 * 512, 65536 * 512};
};

TEST_F(RollbackState, ALoweredSizeStaysLowered) {
  record_.disk().size = 3ULL << 40;
  FailControl("IOCTL_DISK_SET_DRIVE_LAYOUT_EX", 1, 87);
  ExpectRolledBack();
  EXPECT_EQ(record_.disk().size, 2ULL << 40);
}

TEST_F(RollbackState, BeforeTheNewTableNothingHasChanged) {
  record_.disk().size = 3ULL << 40;
  machine_.calls().FailOn("command/diskpart", 1, 1);
  ExpectRolledBack();
  EXPECT_EQ(record_.disk().size, 3ULL << 40);
  for (std::size_t i = 0; i < 2; ++i) EXPECT_EQ(record_.volume(i).part_number, 77);
  EXPECT_EQ(converter_.partition_offsets, in_table_order_);
}

// A system disk without a system volume fails behind the new table.
TEST_F(RollbackState, NumbersAndOffsetsAreThoseOfTheNewTable) {
  record_.disk().is_system = 1;
  ExpectRolledBack();
  EXPECT_EQ(converter_.partition_offsets, in_disk_order_);
  EXPECT_EQ(record_.volume(0).part_number, 2);
  EXPECT_EQ(record_.volume(1).part_number, 1);
}

// ---- A second conversion ------------------------------------------------------------------------

class SecondConvert : public GptDiskTest {
 protected:
  void SetUp() override { SetUpDisk(SpacedEntries(2)); }
  std::int32_t Run() { return converter_.Convert(&record_.disk(), &RecordEvent); }
  void ExpectFailedBackup(const Texts& errors) {
    Events().clear();
    log_.clear();
    scripts_.clear();
    const std::uint64_t written = disk_.device().bytes_written();
    EXPECT_EQ(Run(), 1);
    EXPECT_EQ(Events(), kBackupFailed);
    EXPECT_EQ(Lines(3), errors);
    EXPECT_TRUE(scripts_.empty());
    EXPECT_EQ(disk_.device().bytes_written(), written);
    EXPECT_EQ(machine_.calls().Count("MiniDumpWriteDump"), 1U);
  }
};

TEST_F(SecondConvert, AfterARollbackMeetsTheUsedBackup) {
  machine_.calls().FailOn("command/diskpart", 1, 1);
  EXPECT_EQ(Run(), 1);
  ASSERT_EQ(Events().back(), (Event{0, 10}));
  ExpectFailedBackup({kStaleRelease, kStaleBackup[0], kStaleBackup[1]});
}

// The disk is opened for the conversion, for the backup, and for each of three attempts.
TEST_F(SecondConvert, AfterARollbackThatNeverOpenedTheDiskReleasesTheBackupAndMeetsIt) {
  machine_.calls().FailOn("command/diskpart", 1, 1);
  for (std::size_t occurrence = 3; occurrence <= 5; ++occurrence) {
    machine_.calls().FailOn(kOpen, occurrence, 32);
  }
  EXPECT_EQ(Run(), 1);
  ASSERT_EQ(Events().back(), (Event{0, 11}));
  EXPECT_GT(BlockCount(converter_.backup_data), 0U);
  ExpectFailedBackup(kStaleBackup);
}

class SecondConvertOfChain : public MbrDiskTest {
 protected:
  SecondConvertOfChain() : MbrDiskTest(256) {}

  // Volumes of 1 MiB with their boot records between them: three blocks each, and sector 0.
  void SetUpChain(std::uint64_t volumes) {
    std::vector<MbrEntry> logicals;
    for (std::uint64_t i = 0; i < volumes; ++i) logicals.push_back(Between(2 + 2 * i, 3 + 2 * i));
    MbrEntry container = Between(1, 2 + 2 * volumes);
    container.type = 5;
    SetUpDisk({container}, logicals);
  }
  std::int32_t Run() { return converter_.Convert(&record_.disk(), &RecordEvent); }
};

TEST_F(SecondConvertOfChain, AfterAFullBackupReleasesItAndMeetsIt) {
  SetUpChain(86);
  EXPECT_EQ(Run(), 1);
  EXPECT_EQ(Lines(3), kStaleBackup) << "block 257";
  EXPECT_EQ(BlockCount(converter_.backup_data), 256U);
  log_.clear();
  EXPECT_EQ(Run(), 1);
  EXPECT_EQ(Lines(3), kStaleBackup);
  EXPECT_EQ(ReleaseBackupData(converter_.backup_data), -18) << "the first run's is released";
  EXPECT_TRUE(Events().empty());
  EXPECT_TRUE(scripts_.empty());
  EXPECT_EQ(machine_.calls().Count("MiniDumpWriteDump"), 1U);
}

TEST_F(SecondConvertOfChain, OneVolumeLessFitsTheBackup) {
  SetUpChain(85);
  machine_.calls().FailOn("command/diskpart", 1, 1);
  EXPECT_EQ(Run(), 1);
  ASSERT_FALSE(Events().empty());
  EXPECT_EQ(Events()[0], (Event{1, 0}));
}

}  // namespace
}  // namespace velkora
