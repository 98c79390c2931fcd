// What is selected of an NTFS volume, and what its failures do.
#include "backup/ntfs_metadata.h"

#include <gtest/gtest.h>
#include <vector>

#include "platform/guard.h"
#include "support/backup_disk_fixture.h"

namespace velkora {
namespace {

using namespace testing_support;

constexpr std::uint64_t kVolume = 1 << 20;
constexpr std::uint64_t kCluster = 4096;
constexpr std::uint64_t kMft = kVolume + 4 * kCluster;

class NtfsMetadata : public DiskParserTest {
 protected:
  NtfsMetadata() {
    MarkRange(disk_, kVolume, 4 << 20);
    // Records that hold nothing.
    for (std::uint64_t i = 0; i < 64; ++i) PutRecord(i, MftRecordBytes());
  }
  void PutRecord(std::uint64_t number, const MftRecordBytes& record) {
    WriteBytes(disk_, kMft + number * 1024, record.Build());
  }
  std::int32_t Run() {
    const Bytes start = NtfsStart(4);
    WriteBytes(disk_, kVolume, start);
    return ParseNtfsVolume(handle_, kVolume, std::as_bytes(std::span(start)), blocks_);
  }
  // The blocks of every volume, and these.
  static PlaceMap With(PlaceMap places) {
    places.insert({{kVolume, 512}, {kMft, 16384}});
    return places;
  }
};

TEST_F(NtfsMetadata, BootSectorAndSixteenRecordsAreAlwaysSelected) {
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(Places(blocks_), With({}));
  ExpectBytesOfDisk(blocks_);
  EXPECT_TRUE(log_.empty());
}

TEST_F(NtfsMetadata, RunsOfTheRecords1To15AreSelected) {
  for (std::uint8_t i = 0; i < 16; ++i) {
    PutRecord(i, MftRecordBytes().AddRuns(0x80, {0x11, 1, static_cast<std::uint8_t>(100 + i)}));
  }
  EXPECT_EQ(Run(), 0);
  PlaceMap expected = With({});
  for (std::uint64_t i = 1; i < 16; ++i) expected[kVolume + (100 + i) * kCluster] = kCluster;
  EXPECT_EQ(Places(blocks_), expected);
  ExpectBytesOfDisk(blocks_);
}

// A walk over this index would leave the record's block, which is a fault.
TEST_F(NtfsMetadata, TheIndexOfAListedRecordIsNotWalked) {
  PutRecord(11, MftRecordBytes().AddIndexRoot({{24, 16}}));
  Bytes record(1024);
  PutNumber(record, 20, 56, 2);
  PutNumber(record, 56, 0x90, 4);
  PutNumber(record, 60, 0xFFFF, 4);
  PutNumber(record, 56 + 64, 30, 4);
  PutNumber(record, 56 + 64 + 8, 2000, 2);
  WriteBytes(disk_, kMft + 24 * 1024, record);
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(Places(blocks_), With({{kMft + 24 * 1024, 1024}}));
}

TEST_F(NtfsMetadata, TheRecordsListedIn11AreSelectedWithTheirRuns) {
  PutRecord(11, MftRecordBytes().AddIndexRoot({{26, 16}, {24, 96}, {0, 16}}));
  PutRecord(24, MftRecordBytes().AddRuns(0xA0, {0x11, 2, 200}).AddIndexRoot({{30, 16}}));
  PutRecord(26, MftRecordBytes());
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(Places(blocks_), With({{kMft + 24 * 1024, 1024},
                                   {kMft + 26 * 1024, 1024},
                                   {kVolume + 200 * kCluster, 2 * kCluster}}));
  ExpectBytesOfDisk(blocks_);
}

TEST_F(NtfsMetadata, IndexRootsOfOtherRecordsAreNotFollowed) {
  for (std::uint64_t i = 0; i < 16; ++i) {
    if (i != 11) PutRecord(i, MftRecordBytes().AddIndexRoot({{40, 16}}));
  }
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(Places(blocks_), With({}));
}

TEST_F(NtfsMetadata, Record11WithoutAnIndexRootNamesNoRecords) {
  PutRecord(11, MftRecordBytes().AddRuns(0x80, {0x11, 1, 120}).AddResident(0x30));
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(Places(blocks_), With({{kVolume + 120 * kCluster, kCluster}}));
}

// The sizes of cluster come from the boot sector, which is the one handed over.
TEST_F(NtfsMetadata, OtherClusterSizesMoveTheTable) {
  const Bytes start = NtfsStart(16, 2);
  PutRecord(3, MftRecordBytes().AddRuns(0x80, {0x11, 3, 50}));
  EXPECT_EQ(ParseNtfsVolume(handle_, kVolume, std::as_bytes(std::span(start)), blocks_), 0);
  EXPECT_EQ(Places(blocks_),
            (PlaceMap{{kVolume, 512}, {kMft, 16384}, {kVolume + 50 * 1024, 3 * 1024}}));
}

// ---- The block at the volume's start ------------------------------------------------------------

TEST_F(NtfsMetadata, ARunWithoutAnOffsetEnlargesTheBlockAtTheStart) {
  PutRecord(8, MftRecordBytes().AddRuns(0x80, {0x01, 3}));
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(Places(blocks_), (PlaceMap{{kVolume, 3 * kCluster}, {kMft, 16384}}));
  ExpectBytesOfDisk(blocks_);
}

TEST_F(NtfsMetadata, TheBootFilesRunAtClusterZeroEnlargesIt) {
  PutRecord(7, MftRecordBytes().AddRuns(0x80, {0x11, 2, 0}));
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(Places(blocks_), (PlaceMap{{kVolume, 2 * kCluster}, {kMft, 16384}}));
  ExpectBytesOfDisk(blocks_);
}

TEST_F(NtfsMetadata, AnEmptyRunListLeavesTheBootSectorOut) {
  PutRecord(9, MftRecordBytes().AddRuns(0x80, {0}));
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(Places(blocks_), (PlaceMap{{kVolume, 0}, {kMft, 16384}}));
}

TEST_F(NtfsMetadata, ALaterRunBringsTheBootSectorBack) {
  PutRecord(9, MftRecordBytes().AddRuns(0x80, {0}).AddRuns(0x80, {0x11, 1, 0}));
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(Places(blocks_), (PlaceMap{{kVolume, kCluster}, {kMft, 16384}}));
  ExpectBytesOfDisk(blocks_);
}

// ---- Failures -----------------------------------------------------------------------------------

TEST_F(NtfsMetadata, ATableBehindTheDiskFailsTheVolume) {
  const Bytes start = NtfsStart(100000);
  EXPECT_EQ(ParseNtfsVolume(handle_, kVolume, std::as_bytes(std::span(start)), blocks_), -16);
  EXPECT_EQ(AllLines(), (Texts{"3 [BackupRestore] ParseNtfsVolume: read ntfs mft error 27"}));
}

// In 32 bits of bytes both would lie where the table and its records are.
TEST_F(NtfsMetadata, ATableBehind4GibIsNotTakenForOneInFront) {
  const Bytes start = NtfsStart(0x100004);
  EXPECT_EQ(ParseNtfsVolume(handle_, kVolume, std::as_bytes(std::span(start)), blocks_), -16);
  EXPECT_EQ(AllLines(), (Texts{"3 [BackupRestore] ParseNtfsVolume: read ntfs mft error 27"}));
}

TEST_F(NtfsMetadata, AListedRecordBehind4GibIsNotTakenForOneInFront) {
  PutRecord(11, MftRecordBytes().AddIndexRoot({{0x400014, 16}}));
  EXPECT_EQ(Run(), -16);
  EXPECT_EQ(AllLines(), (Texts{"3 [BackupRestore] ParseNtfsVolume: read ntfs tmp error 27"}));
}

TEST_F(NtfsMetadata, AnUnreadableListedRecordFailsTheVolumeAndTheNextAreNotTried) {
  PutRecord(11, MftRecordBytes().AddIndexRoot({{20, 16}, {21, 16}, {22, 16}}));
  machine_.calls().FailOn("ReadFile", 3, 23);
  EXPECT_EQ(Run(), -16);
  EXPECT_EQ(AllLines(), (Texts{"3 [BackupRestore] ParseNtfsVolume: read ntfs tmp error 23"}));
  EXPECT_FALSE(blocks_.contains(kMft + 22 * 1024));
  EXPECT_EQ(machine_.calls().Count("ReadFile"), 3U);
}

TEST_F(NtfsMetadata, AListedRecordFarBehindTheDiskFailsTheVolume) {
  PutRecord(11, MftRecordBytes().AddIndexRoot({{0x7FFFFFFF, 16}}));
  EXPECT_EQ(Run(), -16);
  EXPECT_EQ(AllLines(), (Texts{"3 [BackupRestore] ParseNtfsVolume: read ntfs tmp error 27"}));
}

// The volume stands; the block that could not be read has its whole size, all zero.
TEST_F(NtfsMetadata, AnUnreadableRunIsLoggedAndEndsItsRecordOnly) {
  PutRecord(2, MftRecordBytes().AddRuns(0x80, {0x11, 2, 130}).AddRuns(0x80, {0x11, 1, 140}));
  PutRecord(3, MftRecordBytes().AddRuns(0x80, {0x11, 1, 150}));
  machine_.calls().FailOn("ReadFile", 2, 23);
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(AllLines(), (Texts{"3 [BackupRestore] ParseNtfsMftRecord: read ntfs meta error 23"}));
  EXPECT_EQ(Places(blocks_),
            With({{kVolume + 130 * kCluster, 2 * kCluster}, {kVolume + 150 * kCluster, kCluster}}));
  EXPECT_EQ(blocks_[kVolume + 130 * kCluster], std::vector<std::byte>(2 * kCluster));
}

TEST_F(NtfsMetadata, AnUnreadableRunOfAListedRecordLeavesTheVolumeStanding) {
  PutRecord(11, MftRecordBytes().AddIndexRoot({{20, 16}}));
  PutRecord(20, MftRecordBytes().AddRuns(0x80, {0x41, 1, 0xFF, 0xFF, 0xFF, 0x7F}));
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(AllLines(), (Texts{"3 [BackupRestore] ParseNtfsMftRecord: read ntfs meta error 27"}));
}

// ---- What leaves a record and its block ---------------------------------------------------------

// The list may lie in the record behind it.
TEST_F(NtfsMetadata, ARunListThatLeavesItsRecordIsReadInTheNextOne) {
  Bytes record = MftRecordBytes().AddRuns(0x80, {0x11, 1, 99}).Build();
  PutNumber(record, 56 + 32, 1024 - 56 + 512, 2);
  WriteBytes(disk_, kMft + 5 * 1024, record);
  Bytes next = MftRecordBytes().Build();
  PutNumber(next, 512, 0x990211, 3);
  WriteBytes(disk_, kMft + 6 * 1024, next);
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(Places(blocks_), With({{kVolume + 0x99 * kCluster, 2 * kCluster}}));
}

TEST_F(NtfsMetadata, ARunListThatLeavesTheLastRecordIsAFault) {
  Bytes record = MftRecordBytes().AddRuns(0x80, {0x11, 1, 99}).Build();
  PutNumber(record, 56 + 32, 0xFFFF, 2);
  WriteBytes(disk_, kMft + 15 * 1024, record);
  EXPECT_THROW(Run(), win32::Fault);
}

TEST_F(NtfsMetadata, ARunListThatLeavesAListedRecordIsAFault) {
  Bytes record = MftRecordBytes().AddRuns(0x80, {0x11, 1, 99}).Build();
  PutNumber(record, 56 + 32, 1024 - 56, 2);
  WriteBytes(disk_, kMft + 20 * 1024, record);
  PutRecord(11, MftRecordBytes().AddIndexRoot({{20, 16}}));
  EXPECT_THROW(Run(), win32::Fault);
}

// The last record, in clusters of one sector, with a run that lacks the table's last sector.
TEST_F(NtfsMetadata, ARunThatShortensTheTablesBlockIsReadAgain) {
  const Bytes start = NtfsStart(32, 1);
  PutRecord(15, MftRecordBytes().AddRuns(0x80, {0x11, 31, 32}).AddRuns(0x80, {0x11, 1, 100}));
  EXPECT_EQ(ParseNtfsVolume(handle_, kVolume, std::as_bytes(std::span(start)), blocks_), 0);
  EXPECT_EQ(Places(blocks_),
            (PlaceMap{{kVolume, 512}, {kMft, 31 * 512}, {kVolume + 100 * 512, 512}}));
  EXPECT_EQ(blocks_[kMft], ReadBytes(disk_, kMft, 31 * 512));
}

// The record goes on after the run, and so do the records after it.
TEST_F(NtfsMetadata, ARunThatEnlargesTheTablesBlockIsReadAgainAndTheRecordGoesOn) {
  PutRecord(3, MftRecordBytes().AddRuns(0x80, {0x11, 8, 4}).AddRuns(0x80, {0x11, 1, 100}));
  PutRecord(4, MftRecordBytes().AddRuns(0x80, {0x11, 1, 101}));
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(Places(blocks_), (PlaceMap{{kVolume, 512},
                                       {kMft, 8 * kCluster},
                                       {kVolume + 100 * kCluster, kCluster},
                                       {kVolume + 101 * kCluster, kCluster}}));
  EXPECT_EQ(blocks_[kMft], testing_support::ReadBytes(disk_, kMft, 8 * kCluster));
}

TEST_F(NtfsMetadata, ARunThatEnlargesAListedRecordsBlockIsReadAgainAndTheRecordGoesOn) {
  PutRecord(11, MftRecordBytes().AddIndexRoot({{20, 16}}));
  PutRecord(20, MftRecordBytes().AddRuns(0x80, {0x11, 2, 9}).AddRuns(0x80, {0x11, 1, 100}));
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(Places(blocks_),
            With({{kMft + 20 * 1024, 2 * kCluster}, {kVolume + 100 * kCluster, kCluster}}));
}

// In clusters of one sector: what is left of the block ends in front of the record.
TEST_F(NtfsMetadata, ARunThatCutsItsRecordOffTheTablesBlockIsAFaultAtTheNextLook) {
  const Bytes start = NtfsStart(32, 1);
  PutRecord(15, MftRecordBytes().AddRuns(0x80, {0x11, 30, 32}).AddRuns(0x80, {0x11, 1, 100}));
  EXPECT_THROW(ParseNtfsVolume(handle_, kVolume, std::as_bytes(std::span(start)), blocks_),
               win32::Fault);
}

}  // namespace
}  // namespace velkora
