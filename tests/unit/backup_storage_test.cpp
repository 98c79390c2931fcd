#include "backup/backup_storage.h"

#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

#include "backup/restore.h"
#include "platform/guard.h"

namespace velkora {
namespace {

using ByteList = std::vector<std::byte>;

ByteList Filled(std::size_t length, int value) {
  return ByteList(length, static_cast<std::byte>(value));
}

// A map of `count` blocks of one byte, 512 bytes apart from `first` on.
BlockMap Many(std::size_t count, std::uint64_t first = 0) {
  BlockMap blocks;
  for (std::size_t i = 0; i < count; ++i) blocks[first + 512 * i] = Filled(1, 7);
  return blocks;
}

class Storage : public ::testing::Test {
 protected:
  ~Storage() override {
    if (storage_ == nullptr) return;
    ReleaseBlocks(storage_);
    FreeBackupStorage(storage_);
  }
  void Fill(const BlockMap& blocks, const char* device = "disk") {
    // A former path is overwritten and stays allocated.
    if (storage_ != nullptr) former_paths_.emplace_back(storage_->device_path);
    FillBackupStorage(&storage_, device, blocks);
  }

  BackupStorage* storage_ = nullptr;
  std::vector<std::unique_ptr<char[]>> former_paths_;
};

TEST_F(Storage, ANullPointerGetsAnObjectWithPathAndBlocks) {
  Fill({{1024, Filled(3, 5)}}, "\\\\.\\PhysicalDrive7");
  ASSERT_NE(storage_, nullptr);
  EXPECT_STREQ(storage_->device_path, "\\\\.\\PhysicalDrive7");
  ASSERT_EQ(storage_->count, 1U);
  EXPECT_EQ(BlockCount(storage_), 1U);
  EXPECT_EQ(storage_->blocks[0]->offset, 1024U);
  EXPECT_EQ(storage_->blocks[0]->length, 3U);
  EXPECT_EQ(std::memcmp(storage_->blocks[0]->data, "\5\5\5", 3), 0);
}

TEST_F(Storage, BlocksStandInTheMapsOrder) {
  const BlockMap blocks = Many(50);
  Fill(blocks);
  std::uint32_t place = 0;
  for (const auto& [offset, bytes] : blocks) {
    ASSERT_LT(place, storage_->count);
    EXPECT_EQ(storage_->blocks[place++]->offset, offset);
  }
  EXPECT_EQ(place, storage_->count);
}

TEST_F(Storage, ABlockOfNoLengthHasNoData) {
  Fill({{512, {}}});
  ASSERT_EQ(storage_->count, 1U);
  EXPECT_EQ(storage_->blocks[0]->offset, 512U);
  EXPECT_EQ(storage_->blocks[0]->length, 0U);
  EXPECT_EQ(storage_->blocks[0]->data, nullptr);
  BlockMap loaded;
  EXPECT_EQ(LoadBackupStorage(storage_, loaded), "disk");
  EXPECT_EQ(loaded, (BlockMap{{512, {}}}));
}

TEST_F(Storage, AnEmptyMapGivesAnObjectWithoutBlocks) {
  Fill({});
  ASSERT_NE(storage_, nullptr);
  EXPECT_EQ(storage_->count, 0U);
  EXPECT_STREQ(storage_->device_path, "disk");
}

TEST_F(Storage, NewBlocksGoBehindThoseOfAnObjectThatIsThere) {
  Fill({{0, Filled(2, 1)}}, "first");
  BackupStorage* const before = storage_;
  Fill({{0, Filled(4, 2)}}, "second");
  EXPECT_EQ(storage_, before);
  EXPECT_STREQ(storage_->device_path, "second");
  ASSERT_EQ(storage_->count, 2U);
  EXPECT_EQ(storage_->blocks[0]->length, 2U);
  EXPECT_EQ(storage_->blocks[1]->length, 4U);
}

TEST_F(Storage, LoadingGivesPathAndBlocksAndLeavesTheObject) {
  const BlockMap blocks = {
      {0, Filled(5, 1)}, {512, Filled(0, 0)}, {~std::uint64_t{0}, Filled(9, 3)}};
  Fill(blocks);
  for (int round = 0; round < 2; ++round) {
    BlockMap loaded;
    EXPECT_EQ(LoadBackupStorage(storage_, loaded), "disk");
    EXPECT_EQ(loaded, blocks);
  }
  EXPECT_EQ(storage_->count, 3U);
}

TEST_F(Storage, OfBlocksWithOneOffsetTheLastIsLoaded) {
  Fill({{512, Filled(2, 1)}});
  Fill({{512, Filled(7, 2)}});
  Fill({{512, Filled(3, 3)}});
  BlockMap loaded;
  LoadBackupStorage(storage_, loaded);
  EXPECT_EQ(loaded, (BlockMap{{512, Filled(3, 3)}}));
}

TEST_F(Storage, ANullBlockIsPassedOver) {
  Fill(Many(3));
  const std::uint64_t missing = storage_->blocks[1]->offset;
  delete[] storage_->blocks[1]->data;
  delete storage_->blocks[1];
  storage_->blocks[1] = nullptr;
  BlockMap loaded;
  LoadBackupStorage(storage_, loaded);
  EXPECT_EQ(loaded.size(), 2U);
  EXPECT_FALSE(loaded.contains(missing));
}

TEST_F(Storage, A256thBlockFits) {
  Fill(Many(256));
  EXPECT_EQ(storage_->count, 256U);
  BlockMap loaded;
  LoadBackupStorage(storage_, loaded);
  EXPECT_EQ(loaded, Many(256));
}

TEST_F(Storage, A257thBlockIsAFaultThatKeepsThe256) {
  EXPECT_THROW(Fill(Many(257)), win32::Fault);
  ASSERT_NE(storage_, nullptr) << "the caller has the object already";
  EXPECT_EQ(storage_->count, 256U);
  BlockMap loaded;
  EXPECT_EQ(LoadBackupStorage(storage_, loaded), "disk");
  EXPECT_EQ(loaded.size(), 256U);
}

TEST_F(Storage, TheLimitHoldsForBlocksOfSeveralBackups) {
  Fill(Many(200));
  EXPECT_THROW(Fill(Many(57, 1 << 20)), win32::Fault);
  EXPECT_EQ(storage_->count, 256U);
  EXPECT_EQ(ReleaseBackupData(storage_), 0);
  storage_ = nullptr;
}

// ---- The end ------------------------------------------------------------------------------------

TEST_F(Storage, ReleasingTheBlocksLeavesTheCount) {
  Fill(Many(3));
  ReleaseBlocks(storage_);
  EXPECT_EQ(storage_->device_path, nullptr);
  EXPECT_EQ(storage_->count, 3U);
  for (std::size_t i = 0; i < 3; ++i) EXPECT_EQ(storage_->blocks[i], nullptr);
  ReleaseBlocks(storage_);
  EXPECT_EQ(storage_->count, 3U);
}

TEST(ReleasedStorage, IsAFaultInEveryUse) {
  BackupStorage* storage = nullptr;
  FillBackupStorage(&storage, "disk", Many(2));
  ReleaseBlocks(storage);
  FreeBackupStorage(storage);
  BackupStorage* const stale = storage;
  BlockMap blocks;
  EXPECT_THROW(FillBackupStorage(&storage, "disk", Many(1)), win32::Fault);
  EXPECT_THROW(FillBackupStorage(&storage, "disk", {}), win32::Fault);
  EXPECT_THROW(LoadBackupStorage(storage, blocks), win32::Fault);
  EXPECT_THROW(BlockCount(storage), win32::Fault);
  EXPECT_THROW(ReleaseBlocks(storage), win32::Fault);
  EXPECT_THROW(FreeBackupStorage(storage), win32::Fault);
  EXPECT_EQ(storage, stale);
  EXPECT_TRUE(blocks.empty());
}

TEST(ReleasedStorage, NoLaterObjectTakesItsPlace) {
  BackupStorage* released = nullptr;
  FillBackupStorage(&released, "disk", {});
  ReleaseBlocks(released);
  FreeBackupStorage(released);
  for (int i = 0; i < 20; ++i) {
    BackupStorage* next = nullptr;
    FillBackupStorage(&next, "disk", {});
    EXPECT_NE(next, released);
    ReleaseBlocks(next);
    FreeBackupStorage(next);
  }
}

}  // namespace
}  // namespace velkora
