// The two entry points that take a backup.
#include "backup/backup.h"

#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

#include "backup/backup_file.h"
#include "backup/restore.h"
#include "frame/crash_reporting.h"
#include "platform/win32.h"
#include "simulator/disk.h"
#include "support/backup_disk_fixture.h"

namespace velkora {
namespace {

using namespace testing_support;

using Offsets = std::vector<std::uint64_t>;

constexpr char kPath[] = "X:\\disk.backup";

class Backup : public BackupDiskTest {
 protected:
  ~Backup() override { ReleaseBackupData(storage_); }

  std::int32_t ToStorage(const Offsets& offsets = {}) {
    return BackupDiskPartitionToStorage(kDevice, offsets.data(),
                                        static_cast<std::uint32_t>(offsets.size()), &storage_);
  }
  std::filesystem::path HostPath() const { return folder_.path() / "disk.backup"; }
  void PutFile(std::string_view text) const { std::ofstream(HostPath()) << text; }
  std::string FileText() const { return TextOf(HostPath()); }
  BlockMap FileBlocks() {
    BlockMap blocks;
    std::FILE* file = win32::fopen(kPath, "rb");
    if (file == nullptr) return blocks;
    EXPECT_EQ(LoadBackupFile(file, blocks), kDevice);
    win32::fclose(file);
    return blocks;
  }
  BlockMap StorageBlocks() const {
    BlockMap blocks;
    if (storage_ != nullptr) LoadBackupStorage(storage_, blocks);
    return blocks;
  }
  // 128 linked records, of which `logicals` hold a partition of unknown kind; their offsets.
  Offsets PutChain(std::uint32_t logicals);

  std::string LastLine() const { return log_.empty() ? "" : AllLines().back(); }

  BackupStorage* storage_ = nullptr;
};

void SetRow(Sector& record, std::size_t row, std::uint8_t type, std::uint32_t first) {
  record.at(446 + 16 * row + 4) = type;
  for (std::size_t i = 0; i < 4; ++i) {
    record.at(446 + 16 * row + 8 + i) = static_cast<std::uint8_t>(first >> (8 * i));
  }
  record[510] = 0x55;
  record[511] = 0xAA;
}

Offsets Backup::PutChain(std::uint32_t logicals) {
  constexpr std::uint32_t kBase = 2048;
  Sector first{};
  SetRow(first, 0, 5, kBase);
  WriteSector(disk_, 0, first);
  Offsets offsets;
  for (std::uint32_t i = 0; i < 128; ++i) {
    Sector record{};
    if (i < logicals) SetRow(record, 0, 7, 4);
    if (i < logicals) offsets.push_back((kBase + 16 * i + 4) * std::uint64_t{512});
    SetRow(record, 1, 5, 16 * (i + 1));
    WriteSector(disk_, kBase + 16 * i, record);
  }
  return offsets;
}

// ---- What is said and opened --------------------------------------------------------------------

TEST_F(Backup, TheFileFormNamesDeviceOffsetsAndPath) {
  EXPECT_EQ(BackupDiskPartition(kDevice, {1048576, 0, 18446744073709551615u}, kPath), 0);
  EXPECT_EQ(AllLines(), (Texts{"1 [BackupRestore] DoBackup device_id=\\\\.\\PhysicalDrive1, "
                               "offsets={1048576,0,18446744073709551615}, path=X:\\disk.backup"}));
}

TEST_F(Backup, TheMemoryFormNamesDeviceAndOffsets) {
  EXPECT_EQ(ToStorage({512, 1024}), 0);
  EXPECT_EQ(AllLines(), (Texts{"1 [BackupRestore] DoBackup device_id=\\\\.\\PhysicalDrive1, "
                               "offsets={512,1024}"}));
}

TEST_F(Backup, WithoutOffsetsTheLogShowsBracesAndTheTableAloneIsHeld) {
  WriteMbr(disk_, {{7, 2048, 2048}, {5, 8192, 8192}}, {{7, 10240, 2048}});
  EXPECT_EQ(ToStorage(), 0);
  EXPECT_EQ(AllLines(), (Texts{"1 [BackupRestore] DoBackup device_id=\\\\.\\PhysicalDrive1, "
                               "offsets={}"}));
  EXPECT_EQ(Places(StorageBlocks()), (PlaceMap{{0, 512}, {8192 * 512, 512}}));
  EXPECT_EQ(BackupDiskPartition(kDevice, {}, kPath), 0);
  EXPECT_EQ(LastLine(),
            "1 [BackupRestore] DoBackup device_id=\\\\.\\PhysicalDrive1, offsets={}, "
            "path=X:\\disk.backup");
}

TEST_F(Backup, TheDiskIsOpenedOnceWithoutBufferingAndClosed) {
  Settle();
  EXPECT_EQ(ToStorage(), 0);
  const Texts calls = machine_.calls().Lines();
  ASSERT_FALSE(calls.empty());
  EXPECT_EQ(calls.front(),
            "CreateFileA/\\\\.\\PhysicalDrive1 access 0xc0000000 share 0x3 "
            "disposition 3 flags 0xb0000000");
  EXPECT_EQ(machine_.calls().Count("CreateFileA"), 1U);
  EXPECT_EQ(machine_.calls().Count("CloseHandle"), 1U);
  EXPECT_TRUE(machine_.handles().Open().empty());
}

TEST_F(Backup, TheDiskIsClosedBeforeTheFileIsWritten) {
  Settle();
  EXPECT_EQ(BackupDiskPartition(kDevice, {}, kPath), 0);
  Texts names;
  for (const simulator::Call& call : machine_.calls().calls()) {
    if (names.empty() || names.back() != call.name) names.push_back(call.name);
  }
  EXPECT_EQ(names, (Texts{"CreateFileA", "fopen", "ReadFile", "CloseHandle", "fwrite", "fclose"}));
}

TEST_F(Backup, TheDiskIsClosedBeforeTheBlocksAreStored) {
  EXPECT_EQ(ToStorage(PutChain(128)), -18) << "there is one too many";
  EXPECT_TRUE(machine_.handles().Open().empty());
  EXPECT_EQ(ReleaseBackupData(storage_), 0);
  storage_ = nullptr;
}

TEST_F(Backup, ABackupWritesNothingToTheDisk) {
  WriteGpt(disk_, {{kBasicDataGuid, 2048, 4095, 1}});
  const std::uint64_t written = disk_.device().bytes_written();
  EXPECT_EQ(ToStorage({kMiB}), 0);
  EXPECT_EQ(BackupDiskPartition(kDevice, {kMiB}, kPath), 0);
  EXPECT_EQ(disk_.device().bytes_written(), written);
}

// ---- What is held -------------------------------------------------------------------------------

TEST_F(Backup, BothFormsHoldTheSameBlocks) {
  WriteGpt(disk_, {{kBasicDataGuid, 2048, 4095, 1}});
  const PlaceMap expected = {{512, 512},
                             {1024, 16384},
                             {kMiB, 2048},
                             {kDiskSize - 512 - 16384, 16384},
                             {kDiskSize - 512, 512}};
  EXPECT_EQ(ToStorage({kMiB}), 0);
  EXPECT_EQ(Places(StorageBlocks()), expected);
  EXPECT_STREQ(storage_->device_path, kDevice);
  EXPECT_EQ(BackupDiskPartition(kDevice, {kMiB}, kPath), 0);
  EXPECT_EQ(FileBlocks(), StorageBlocks());
}

TEST_F(Backup, ADisksFirstSectorByteByByteInTheFile) {
  std::string sector(512, '\0');
  for (std::size_t i = 0; i < 500; ++i) sector[i] = static_cast<char>(i);
  WriteBytes(disk_, 0, std::as_bytes(std::span(sector)));
  EXPECT_EQ(BackupDiskPartition(kDevice, {}, kPath), 0);
  const std::string header("\0\0\0\0\0\0\0\0\x12\0\\\\.\\PhysicalDrive1", 28);
  const std::string block("\0\0\0\0\0\0\0\0\0\2\0\0\0\0\0\0", 16);
  EXPECT_EQ(FileText(), header + block + sector);
}

TEST_F(Backup, AnAreaOfNoLengthIsNullInMemoryAndABareHeaderInTheFile) {
  FatFields fields;
  fields.bytes_per_sector = 0;
  WriteMbr(disk_, {{7, 2048, 2048}});
  WriteBytes(disk_, kMiB, Fat32Start(fields));
  EXPECT_EQ(ToStorage({kMiB}), 0);
  ASSERT_EQ(storage_->count, 2U);
  const BackupBlock* block = storage_->blocks[storage_->blocks[0]->offset == 0 ? 1 : 0];
  EXPECT_EQ(block->offset, kMiB);
  EXPECT_EQ(block->length, 0U);
  EXPECT_EQ(block->data, nullptr);
  EXPECT_EQ(BackupDiskPartition(kDevice, {kMiB}, kPath), 0);
  EXPECT_EQ(FileText().size(), 28U + 16U + 512U + 16U);
}

TEST_F(Backup, AStorageThatIsThereGetsTheNewBlocksBehindItsOwn) {
  EXPECT_EQ(ToStorage(), 0);
  BackupStorage* const before = storage_;
  const std::unique_ptr<char[]> former_path(storage_->device_path);  // is overwritten
  EXPECT_EQ(ToStorage(), 0);
  EXPECT_EQ(storage_, before);
  EXPECT_EQ(storage_->count, 2U);
}

TEST_F(Backup, AFormerFileIsReplaced) {
  PutFile(std::string(10000, 'x'));
  EXPECT_EQ(BackupDiskPartition(kDevice, {}, kPath), 0);
  EXPECT_EQ(FileText().size(), 28U + 16U + 512U);
}

TEST_F(Backup, AFullDriveGivesACutFileAndSuccess) {
  machine_.calls().FailOn("fwrite", 3, ERROR_GEN_FAILURE, simulator::Repeat::kFromThenOn);
  EXPECT_EQ(BackupDiskPartition(kDevice, {}, kPath), 0);
  EXPECT_LT(FileText().size(), 28U + 16U + 512U);
  EXPECT_TRUE(Lines(3).empty());
}

// ---- The limit of 256 blocks --------------------------------------------------------------------

TEST_F(Backup, ExactlyTwoHundredFiftySixBlocksSucceed) {
  EXPECT_EQ(ToStorage(PutChain(127)), 0);
  EXPECT_EQ(storage_->count, 256U);
  EXPECT_EQ(ReleaseBackupData(storage_), 0);
  storage_ = nullptr;
}

TEST_F(Backup, TheBlock257EndsInTheGuardAndTheStorageKeepsTheOthers) {
  EXPECT_EQ(ToStorage(PutChain(128)), -18);
  EXPECT_EQ(Lines(3), (Texts{"[BackupRestore] [E] BackupDiskPartitionToStorage crash!"}));
  ASSERT_NE(storage_, nullptr);
  EXPECT_EQ(storage_->count, 256U);
  EXPECT_EQ(dump_written, 1);
  EXPECT_EQ(ReleaseBackupData(storage_), 0);
  storage_ = nullptr;
}

TEST_F(Backup, AFileHoldsMoreThan256Blocks) {
  EXPECT_EQ(BackupDiskPartition(kDevice, PutChain(128), kPath), 0);
  EXPECT_EQ(FileBlocks().size(), 257U);
}

// ---- A storage that was released ----------------------------------------------------------------

TEST_F(Backup, AReleasedStorageEndsInTheGuard) {
  EXPECT_EQ(ToStorage(), 0);
  EXPECT_EQ(ReleaseBackupData(storage_), 0);
  log_.clear();
  EXPECT_EQ(ToStorage(), -18);
  EXPECT_EQ(Lines(3), (Texts{"[BackupRestore] [E] BackupDiskPartitionToStorage crash!"}));
  storage_ = nullptr;
}

// ---- A crash ------------------------------------------------------------------------------------

TEST_F(Backup, ACrashAbandonsTheDiskAndTheFile) {
  WriteMbr(disk_, {{7, 2048, 8192}});
  WriteBytes(disk_, kMiB, Fat32Start({}));
  Bytes table(512);
  PutNumber(table, 8, 2, 4);  // the root folder leads to itself
  WriteBytes(disk_, kMiB + 4 * 512, table);
  EXPECT_EQ(ToStorage({kMiB}), -18);
  EXPECT_EQ(machine_.handles().Open(), (Texts{"disk 1"}));
  EXPECT_EQ(storage_, nullptr);
  EXPECT_EQ(BackupDiskPartition(kDevice, {kMiB}, kPath), -18);
  EXPECT_EQ(machine_.handles().Open(), (Texts{"disk 1", "disk 1"}));
  EXPECT_EQ(machine_.calls().Count("fopen"), 1U);
  EXPECT_EQ(machine_.calls().Count("fclose"), 0U);
}

// ---- A disk or a file that cannot be opened -----------------------------------------------------

TEST_F(Backup, ADiskThatCannotBeOpenedLeavesTheFileAlone) {
  PutFile("former");
  EXPECT_EQ(BackupDiskPartition("\\\\.\\PhysicalDrive9", {}, kPath), -2);
  EXPECT_EQ(LastLine(),
            "1 [BackupRestore] DoBackup OpenDisk \\\\.\\PhysicalDrive9 failed. error = 2");
  EXPECT_TRUE(Lines(3).empty());
  EXPECT_EQ(FileText(), "former");
  EXPECT_EQ(machine_.calls().Count("fopen"), 0U);
}

TEST_F(Backup, ADiskThatCannotBeOpenedMakesNoStorage) {
  machine_.calls().FailOn("CreateFileA", 1, 5);
  EXPECT_EQ(ToStorage(), -2);
  EXPECT_EQ(LastLine(),
            "1 [BackupRestore] DoBackup OpenDisk \\\\.\\PhysicalDrive1 failed. error = 5");
  EXPECT_EQ(storage_, nullptr);
}

TEST_F(Backup, AFileInAMissingFolderLeavesTheDiskOpen) {
  EXPECT_EQ(BackupDiskPartition(kDevice, {}, "X:\\missing\\disk.backup"), -9);
  EXPECT_EQ(LastLine(),
            "1 [BackupRestore] DoBackup fopen X:\\missing\\disk.backup failed. error = 2");
  EXPECT_EQ(machine_.handles().Open(), (Texts{"disk 1"}));
  EXPECT_EQ(machine_.calls().Count("ReadFile"), 0U);
  EXPECT_FALSE(std::filesystem::exists(folder_.path() / "missing"));
}

TEST_F(Backup, AFileThatCannotBeOpenedIsLoggedWithItsErrno) {
  machine_.calls().FailOn("fopen/disk.backup", 1, 24);
  EXPECT_EQ(BackupDiskPartition(kDevice, {}, kPath), -9);
  EXPECT_EQ(LastLine(), "1 [BackupRestore] DoBackup fopen X:\\disk.backup failed. error = 24");
}

TEST_F(Backup, AFailedParseEmptiesAFormerFile) {
  PutFile("former");
  machine_.calls().FailOn("ReadFile", 1, 23);
  EXPECT_EQ(BackupDiskPartition(kDevice, {}, kPath), -10);
  EXPECT_TRUE(std::filesystem::exists(HostPath()));
  EXPECT_EQ(FileText(), "");
  EXPECT_EQ(machine_.calls().Count("fclose"), 1U);
  EXPECT_TRUE(machine_.handles().Open().empty());
}

TEST_F(Backup, AFailedParseLeavesTheStorageAsItWas) {
  machine_.calls().FailOn("ReadFile", 1, 23);
  EXPECT_EQ(ToStorage(), -10);
  EXPECT_EQ(storage_, nullptr);
  EXPECT_TRUE(machine_.handles().Open().empty());
  EXPECT_EQ(ToStorage(), 0);
  machine_.calls().FailOn("ReadFile", 1, 23);
  EXPECT_EQ(ToStorage(), -10);
  EXPECT_EQ(storage_->count, 1U);
}

}  // namespace
}  // namespace velkora
