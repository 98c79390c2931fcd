// The three entry points of the way back: what they return, and what becomes of the backup.
#include <fstream>
#include <gtest/gtest.h>
#include <string>

#include "backup/backup.h"
#include "backup/backup_file.h"
#include "backup/restore.h"
#include "frame/crash_reporting.h"
#include "platform/win32.h"
#include "simulator/disk.h"
#include "support/backup_disk_fixture.h"

namespace velkora {
namespace {

using namespace testing_support;

constexpr char kPath[] = "X:\\disk.backup";
constexpr char kLayout[] = "DeviceIoControl/IOCTL_DISK_GET_DRIVE_LAYOUT_EX";
constexpr char kUpdate[] = "DeviceIoControl/IOCTL_DISK_UPDATE_PROPERTIES";
constexpr char kCrash[] = "[BackupRestore] [E] RestoreDiskPartitionFromStorage crash!";

class RestoreEntry : public BackupDiskTest {
 protected:
  RestoreEntry() { WriteMbr(disk_, {{7, 2048, 2048}}); }

  BackupStorage* NewStorage() {
    BackupStorage* storage = nullptr;
    EXPECT_EQ(BackupDiskPartitionToStorage(kDevice, nullptr, 0, &storage), 0);
    Forget();
    return storage;
  }
  void NewFile() {
    EXPECT_EQ(BackupDiskPartition(kDevice, {}, kPath), 0);
    Forget();
  }
  void Forget() {
    log_.clear();
    machine_.calls().Clear();
    sector_ = ReadBytes(disk_, 0, 512);
    MarkRange(disk_, 0, 512);
    written_ = disk_.device().bytes_written();
  }
  void ExpectRestored() { EXPECT_EQ(ReadBytes(disk_, 0, 512), sector_); }
  void ExpectNotWritten() {
    EXPECT_EQ(disk_.device().bytes_written(), written_);
    EXPECT_EQ(machine_.calls().Count("WriteFile"), 0U);
  }

  ByteList sector_;
  std::uint64_t written_ = 0;
};

// ---- From memory --------------------------------------------------------------------------------

TEST_F(RestoreEntry, NullSucceedsInSilence) {
  machine_.calls().Clear();
  EXPECT_EQ(RestoreDiskPartitionFromStorage(nullptr), 0);
  EXPECT_TRUE(log_.empty());
  EXPECT_TRUE(machine_.calls().calls().empty());
}

TEST_F(RestoreEntry, AStorageWithoutBlocksSucceedsAndStays) {
  BackupStorage* storage = nullptr;
  FillBackupStorage(&storage, kDevice, {});
  machine_.calls().Clear();
  for (int i = 0; i < 2; ++i) EXPECT_EQ(RestoreDiskPartitionFromStorage(storage), 0);
  const Texts lines = {"1 [BackupRestore] DoRestore backup storage block count=0",
                       "1 [BackupRestore] DoRestore backup storage block count zero"};
  EXPECT_EQ(AllLines(), (Texts{lines[0], lines[1], lines[0], lines[1]}));
  EXPECT_TRUE(machine_.calls().calls().empty());
  EXPECT_EQ(ReleaseBackupData(storage), 0);
}

TEST_F(RestoreEntry, ABackupGoesBackAndIsReleased) {
  BackupStorage* storage = NewStorage();
  EXPECT_EQ(RestoreDiskPartitionFromStorage(storage), 0);
  ExpectRestored();
  EXPECT_EQ(ReleaseBackupData(storage), -18);
}

TEST_F(RestoreEntry, ADiskThatCannotBeOpenedLeavesTheBackupWhole) {
  BackupStorage* storage = NewStorage();
  machine_.calls().FailOn("CreateFileA", 1, 32);
  EXPECT_EQ(RestoreDiskPartitionFromStorage(storage), -2);
  EXPECT_EQ(AllLines(), (Texts{"1 [BackupRestore] DoRestore backup storage block count=1",
                               "1 [BackupRestore] DoRestore OpenDisk \\\\.\\PhysicalDrive1 failed. "
                               "error = 32"}));
  ExpectNotWritten();
  EXPECT_EQ(RestoreDiskPartitionFromStorage(storage), 0) << "a second try is a real one";
  ExpectRestored();
}

TEST_F(RestoreEntry, ALayoutThatCannotBeReadWritesNothingAndReleasesTheBackup) {
  BackupStorage* storage = NewStorage();
  machine_.calls().FailOn(kLayout, 1, 1117);
  EXPECT_EQ(RestoreDiskPartitionFromStorage(storage), -17);
  EXPECT_EQ(Lines(1).back(), "[BackupRestore] GetDiskPartition failed. error=1117");
  EXPECT_TRUE(Lines(3).empty());
  EXPECT_EQ(RestoreDiskPartitionFromStorage(storage), -18);
  EXPECT_EQ(Lines(3), (Texts{kCrash}));
  ExpectNotWritten();
  EXPECT_EQ(machine_.calls().Count(kUpdate), 0U);
  EXPECT_TRUE(machine_.handles().Open().empty());
}

TEST_F(RestoreEntry, PropertiesThatCannotBeUpdatedLeaveTheWritesAndReleaseTheBackup) {
  BackupStorage* storage = NewStorage();
  machine_.calls().FailOn(kUpdate, 1, 21);
  EXPECT_EQ(RestoreDiskPartitionFromStorage(storage), -11);
  EXPECT_EQ(Lines(3), (Texts{"[BackupRestore] Restore update error=21"}));
  ExpectRestored();
  EXPECT_TRUE(machine_.handles().Open().empty());
  EXPECT_EQ(ReleaseBackupData(storage), -18);
}

TEST_F(RestoreEntry, AReleasedBackupEndsInTheGuardAndWritesNothing) {
  BackupStorage* storage = NewStorage();
  EXPECT_EQ(ReleaseBackupData(storage), 0);
  EXPECT_EQ(RestoreDiskPartitionFromStorage(storage), -18);
  EXPECT_EQ(RestoreDiskPartitionFromStorage(storage), -18);
  EXPECT_EQ(Lines(3), (Texts{kCrash, kCrash}));
  ExpectNotWritten();
  EXPECT_EQ(machine_.calls().Count(std::string("CreateFileA/") + kDevice), 0U);
}

TEST_F(RestoreEntry, AStorageWithoutAPathOpensNoDisk) {
  BackupStorage* storage = nullptr;
  FillBackupStorage(&storage, "", {{0, ByteList(512)}});
  EXPECT_EQ(RestoreDiskPartitionFromStorage(storage), -2);
  EXPECT_EQ(ReleaseBackupData(storage), 0);
}

// ---- From a file --------------------------------------------------------------------------------

TEST_F(RestoreEntry, AFileGoesBackToTheDiskThatItNames) {
  NewFile();
  EXPECT_EQ(RestoreDiskPartition(kPath), 0);
  EXPECT_EQ(AllLines(), (Texts{"1 [BackupRestore] DoRestore path=X:\\disk.backup"}));
  ExpectRestored();
  EXPECT_EQ(machine_.calls().Count("fclose"), 1U);
  EXPECT_TRUE(machine_.handles().Open().empty());
  EXPECT_EQ(RestoreDiskPartition(kPath), 0) << "the file stays";
}

TEST_F(RestoreEntry, AMissingFileOpensNoDisk) {
  machine_.calls().Clear();
  EXPECT_EQ(RestoreDiskPartition("X:\\missing.backup"), -9);
  EXPECT_EQ(AllLines(),
            (Texts{"1 [BackupRestore] DoRestore path=X:\\missing.backup",
                   "1 [BackupRestore] DoRestore fopen X:\\missing.backup failed. error = 2"}));
  EXPECT_EQ(machine_.calls().Count("CreateFileA"), 0U);
}

TEST_F(RestoreEntry, AFileThatCannotBeOpenedIsLoggedWithItsErrno) {
  NewFile();
  machine_.calls().FailOn("fopen", 1, 13);
  EXPECT_EQ(RestoreDiskPartition(kPath), -9);
  EXPECT_EQ(Lines(1).back(), "[BackupRestore] DoRestore fopen X:\\disk.backup failed. error = 13");
}

TEST_F(RestoreEntry, TheFilesDiskThatCannotBeOpenedIsLogged) {
  NewFile();
  machine_.calls().FailOn("CreateFileA", 1, 5);
  EXPECT_EQ(RestoreDiskPartition(kPath), -2);
  EXPECT_EQ(Lines(1).back(),
            "[BackupRestore] DoRestore OpenDisk \\\\.\\PhysicalDrive1 failed. error = 5");
  EXPECT_EQ(machine_.calls().Count("fclose"), 1U) << "the file is closed by then";
  ExpectNotWritten();
}

TEST_F(RestoreEntry, AFilesLayoutThatCannotBeReadIsItsCode) {
  NewFile();
  machine_.calls().FailOn(kLayout, 1, 1117);
  EXPECT_EQ(RestoreDiskPartition(kPath), -17);
  ExpectNotWritten();
}

TEST_F(RestoreEntry, AFilesPropertiesThatCannotBeUpdatedAreItsCode) {
  NewFile();
  machine_.calls().FailOn(kUpdate, 1, 21);
  EXPECT_EQ(RestoreDiskPartition(kPath), -11);
  EXPECT_EQ(Lines(3), (Texts{"[BackupRestore] Restore update error=21"}));
  ExpectRestored();
}

TEST_F(RestoreEntry, AFileWithoutBlocksStillReadsTheLayoutAndUpdates) {
  std::FILE* file = win32::fopen(kPath, "wb");
  WriteBackupFile(file, kDevice, {});
  win32::fclose(file);
  Forget();
  EXPECT_EQ(RestoreDiskPartition(kPath), 0);
  ExpectNotWritten();
  EXPECT_EQ(machine_.calls().Count(kLayout), 1U);
  EXPECT_EQ(machine_.calls().Count(kUpdate), 1U);
}

TEST_F(RestoreEntry, ADamagedFileIsNamedAfterItsEntryPoint) {
  std::ofstream(folder_.path() / "disk.backup") << "x";
  EXPECT_EQ(RestoreDiskPartition(kPath), -18);
  EXPECT_EQ(Lines(3), (Texts{"[BackupRestore] [E] RestoreDiskPartition crash!"}));
  EXPECT_EQ(dump_written, 1);
}

TEST_F(RestoreEntry, ADamagedFileStaysOpen) {
  std::ofstream(folder_.path() / "disk.backup") << "x";
  machine_.calls().Clear();
  EXPECT_EQ(RestoreDiskPartition(kPath), -18);
  EXPECT_EQ(machine_.calls().Count("fopen"), 1U);
  EXPECT_EQ(machine_.calls().Count("fclose"), 0U);
}

// ---- The end of a backup ------------------------------------------------------------------------

TEST_F(RestoreEntry, ReleasingNullSucceedsInSilence) {
  EXPECT_EQ(ReleaseBackupData(nullptr), 0);
  EXPECT_TRUE(log_.empty());
}

TEST_F(RestoreEntry, ReleasingABackupSaysNothing) {
  BackupStorage* storage = NewStorage();
  EXPECT_EQ(ReleaseBackupData(storage), 0);
  EXPECT_TRUE(log_.empty());
  ExpectNotWritten();
}

TEST_F(RestoreEntry, ReleasingABackupTwiceEndsInTheGuard) {
  BackupStorage* storage = NewStorage();
  EXPECT_EQ(ReleaseBackupData(storage), 0);
  EXPECT_EQ(ReleaseBackupData(storage), -18);
  EXPECT_EQ(AllLines(), (Texts{"3 [BackupRestore] [E] ReleaseBackupData crash!"}));
}

}  // namespace
}  // namespace velkora
