// Which volumes a restore dismounts, by the order and the styles of the rows of the layout.
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "backup/backup_storage.h"
#include "backup/restore.h"
#include "simulator/disk.h"
#include "simulator/storage/partition_store.h"
#include "support/backup_disk_fixture.h"

namespace velkora {
namespace {

using namespace testing_support;

constexpr char kInFront[] = "volume \\\\?\\Volume{02020202-0202-0202-0202-020202020202}";
constexpr char kBehind[] = "volume \\\\?\\Volume{01010101-0101-0101-0101-010101010101}";

// Two mounted volumes that touch: MiB 1 to 5 and 5 to 9. The one in front is the table's second.
class RestoreOrder : public BackupDiskTest {
 protected:
  static constexpr std::uint64_t kBorder = 5 * kMiB;

  RestoreOrder() {
    WriteGpt(disk_, {{kBasicDataGuid, 10240, 18431, 1}, {kBasicDataGuid, 2048, 10239, 2}});
    WriteNtfsBootSector(disk_, 2048, 8192);
    WriteNtfsBootSector(disk_, 10240, 8192);
    Settle();
  }
  std::int32_t RestoreBlock(std::uint64_t offset, std::size_t length) {
    BackupStorage* storage = nullptr;
    FillBackupStorage(&storage, kDevice, {{offset, std::vector<std::byte>(length)}});
    const std::int32_t result = RestoreDiskPartitionFromStorage(storage);
    // A disk that was not opened leaves the backup with its owner.
    if (result == -2) ReleaseBackupData(storage);
    return result;
  }
  // The style of a row, by its place in the table, as the system tells it.
  void SetStyle(std::size_t row, PARTITION_STYLE style) {
    simulator::DiskLayout layout;
    ASSERT_EQ(disk_.Layout(layout), DWORD{ERROR_SUCCESS});
    layout.rows.at(row).PartitionStyle = style;
    disk_.Believe(layout);
  }
};

TEST_F(RestoreOrder, OfTwoVolumesTheFirstOfTheTableIsDismounted) {
  EXPECT_EQ(RestoreBlock(kBorder - 512, 1024), 0);
  EXPECT_EQ(Dismounted(), (Texts{kBehind}));
}

TEST_F(RestoreOrder, TheSecondRowIsFoundWhereTheBlockLiesInItAlone) {
  EXPECT_EQ(RestoreBlock(kBorder - 512, 512), 0);
  EXPECT_EQ(Dismounted(), (Texts{kInFront}));
}

TEST_F(RestoreOrder, ARowOfNeitherStyleIsNotDismounted) {
  SetStyle(1, PARTITION_STYLE_RAW);
  EXPECT_EQ(RestoreBlock(2 * kMiB, 512), 0);
  EXPECT_TRUE(Dismounted().empty());
  EXPECT_EQ(machine_.calls().Count("CreateFileA"), 1U) << "the disk alone";
  EXPECT_EQ(machine_.calls().Count("WriteFile"), 1U);
  EXPECT_EQ(Lines(1), (Texts{"[BackupRestore] DoRestore backup storage block count=1"}));
}

TEST_F(RestoreOrder, ARowOfNeitherStyleHidesNoneBehindIt) {
  SetStyle(0, PARTITION_STYLE_RAW);
  EXPECT_EQ(RestoreBlock(kBorder - 512, 1024), 0);
  EXPECT_EQ(Dismounted(), (Texts{kInFront}));
}

// ---- The disk -----------------------------------------------------------------------------------

constexpr char kNotOpened[] = "OpenDisk \\\\.\\PhysicalDrive1 failed. error = 32";

TEST_F(RestoreOrder, ANullHandleIsADiskThatCannotBeOpened) {
  machine_.switches().failed_open_gives_null = true;
  machine_.calls().FailOn("CreateFileA", 1, 32);
  EXPECT_EQ(RestoreBlock(0, 512), -2);
  EXPECT_EQ(Lines(1).back(), std::string("[BackupRestore] DoRestore ") + kNotOpened);
  EXPECT_EQ(machine_.calls().Count("DeviceIoControl"), 0U);
  EXPECT_EQ(machine_.calls().Count("CloseHandle"), 0U);
}

}  // namespace
}  // namespace velkora
