// Late writes of a FAT32 volume whose image cannot be written behind a certain place.
#include <csignal>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <sys/resource.h>

#include "simulator/storage/fat32_files.h"
#include "simulator/storage/fat32_format.h"
#include "simulator/storage_disk.h"

namespace simulator::storage_testing {
namespace {

// While it lives, nothing can be written to any file from `end` on.
class WriteLimit {
 public:
  explicit WriteLimit(std::uint64_t end) {
    ::getrlimit(RLIMIT_FSIZE, &before_);
    signal_before_ = std::signal(SIGXFSZ, SIG_IGN);
    rlimit limit = before_;
    limit.rlim_cur = end;
    EXPECT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
  }
  ~WriteLimit() {
    ::setrlimit(RLIMIT_FSIZE, &before_);
    std::signal(SIGXFSZ, signal_before_);
  }
  WriteLimit(const WriteLimit&) = delete;
  WriteLimit& operator=(const WriteLimit&) = delete;

 private:
  rlimit before_{};
  void (*signal_before_)(int) = nullptr;
};

// Clusters of 512 bytes; a file of four clusters, of which the last two lie far behind.
class Fat32FailingWrites : public ::testing::Test {
 protected:
  static constexpr std::uint64_t kFirstTable = kMiB + 32 * 512;

  void SetUp() override {
    ASSERT_EQ(FormatFat32(disk_.device(), {kMiB, 40 * kMiB, 2048, 1}), ERROR_SUCCESS);
    ASSERT_EQ(files_.emplace(disk_.device(), kMiB).Write("\\FILE", content_), ERROR_SUCCESS);
    ASSERT_EQ(files_->Move(Id(), 2, 2, kFarCluster), ERROR_SUCCESS);
    before_ = Chain();
    const auto boot = Load<Fat32BootSector>(disk_.Sector(2048));
    table_bytes_ = std::uint64_t{boot.fat_sectors} * 512;
    files_.emplace(disk_.device(), kMiB, Fat32Files::Writing::kLate);
  }

  Fat32FileId Id() {
    Fat32FileId id;
    EXPECT_EQ(files_->Find("\\FILE", id), ERROR_SUCCESS);
    return id;
  }
  Fat32Chain Chain() {
    Fat32Chain chain;
    EXPECT_EQ(files_->Chain(Id(), chain), ERROR_SUCCESS);
    return chain;
  }
  // The image's own view, whatever the driver believes.
  void ExpectWhole(const Fat32Chain& chain) {
    BlockDevice image(disk_.image(), 512, Access::kReadOnly);
    Fat32Files files(image, kMiB);
    std::string content;
    EXPECT_EQ(files.Read("\\FILE", content), ERROR_SUCCESS);
    EXPECT_TRUE(content == content_);
    Fat32FileId id;
    Fat32Chain found;
    EXPECT_EQ(files.Find("\\FILE", id), ERROR_SUCCESS);
    EXPECT_EQ(files.Chain(id, found), ERROR_SUCCESS);
    EXPECT_EQ(found, chain);
    EXPECT_EQ(Chain(), chain);
  }
  // Nothing of a lost change comes back with a later one.
  void ExpectThatLaterMovesSucceed() {
    EXPECT_EQ(files_->Move(Id(), 0, 2, 3000), ERROR_SUCCESS);
    EXPECT_EQ(files_->Flush(), ERROR_SUCCESS);
    ExpectWhole({3000, 3001, kFarCluster, kFarCluster + 1});
  }

  static constexpr std::uint32_t kFarCluster = 60'000;

  StorageDisk disk_{48 * kMiB};
  const std::string content_ = std::string(1024, 'a') + std::string(1024, 'b');
  std::optional<Fat32Files> files_;
  Fat32Chain before_;
  std::uint64_t table_bytes_ = 0;
};

TEST_F(Fat32FailingWrites, OfAnEntryLeaveTheFileWhereItWas) {
  EXPECT_EQ(files_->Move(Id(), 0, 2, 2000), ERROR_SUCCESS);
  {
    const WriteLimit limit(kFirstTable + 2 * table_bytes_);
    EXPECT_EQ(files_->Flush(), ERROR_WRITE_FAULT);
  }
  ExpectWhole(before_);
  ExpectThatLaterMovesSucceed();
}

// Both tables know of the new clusters; only the second one does not know that the old ones are
// free.
TEST_F(Fat32FailingWrites, OfWhatAFileHasLeftLeaveItInItsNewPlace) {
  EXPECT_EQ(files_->Move(Id(), 2, 2, 2000), ERROR_SUCCESS);
  {
    const WriteLimit limit(kFirstTable + table_bytes_ + kFarCluster * 4);
    EXPECT_EQ(files_->Flush(), ERROR_WRITE_FAULT);
  }
  ExpectWhole({before_[0], before_[1], 2000, 2001});
  EXPECT_EQ(files_->Flush(), ERROR_SUCCESS);
  EXPECT_EQ(files_->Move(Id(), 2, 2, kFarCluster), ERROR_SUCCESS);
  EXPECT_EQ(files_->Flush(), ERROR_SUCCESS);
  ExpectWhole(before_);
}

TEST_F(Fat32FailingWrites, OfNewLinksLeaveTheFileWhereItWas) {
  EXPECT_EQ(files_->Move(Id(), 0, 2, 2000), ERROR_SUCCESS);
  {
    const WriteLimit limit(kFirstTable);
    EXPECT_EQ(files_->Flush(), ERROR_WRITE_FAULT);
  }
  ExpectWhole(before_);
  ExpectThatLaterMovesSucceed();
}

}  // namespace
}  // namespace simulator::storage_testing
