#include "shrink/shortened_layout.h"

#include <gtest/gtest.h>

#include "disk/device_handle.h"
#include "fat32_values.h"
#include "platform/win32.h"
#include "simulator/disk.h"
#include "support/machine_fixture.h"

namespace velkora {
namespace {

using namespace testing_support;

constexpr std::int64_t kMib = 1024 * 1024;

// Partitions of 10 MiB, one behind the other, with these numbers; one more row that is not in use.
class ShortenPartitionTest : public ::testing::Test {
 protected:
  void Fill(const std::vector<DWORD>& numbers) {
    for (std::size_t i = 0; i <= numbers.size(); ++i) {
      PARTITION_INFORMATION_EX row{};
      row.PartitionStyle = PARTITION_STYLE_MBR;
      row.PartitionNumber = i < numbers.size() ? numbers[i] : 2;
      row.StartingOffset.QuadPart = static_cast<LONGLONG>(i * 10 + 1) * kMib;
      row.PartitionLength.QuadPart = 10 * kMib;
      layout_.SetRow(i, row);
    }
    layout_.header().PartitionCount = static_cast<DWORD>(numbers.size());
  }
  std::int64_t Length(std::size_t index) { return layout_.row(index).PartitionLength.QuadPart; }
  bool IsRewritten(std::size_t index) { return layout_.row(index).RewritePartition != FALSE; }

  LayoutBuffer layout_{8};
};

TEST_F(ShortenPartitionTest, TakesTheSizeOffTheRowWithTheNumber) {
  Fill({1, 2, 3});
  EXPECT_EQ(ShortenPartition(layout_, 2, 3), 7U * 2048);
  EXPECT_EQ(Length(1), 7 * kMib);
  EXPECT_TRUE(IsRewritten(1));
  EXPECT_EQ(layout_.row(1).StartingOffset.QuadPart, 11 * kMib);
}

TEST_F(ShortenPartitionTest, OtherRowsStayAsTheyWere) {
  Fill({1, 2, 3});
  PARTITION_INFORMATION_EX marked = layout_.row(2);
  marked.RewritePartition = TRUE;
  layout_.SetRow(2, marked);
  ShortenPartition(layout_, 2, 3);
  EXPECT_EQ(Length(0), 10 * kMib);
  EXPECT_FALSE(IsRewritten(0));
  EXPECT_EQ(Length(2), 10 * kMib);
  EXPECT_TRUE(IsRewritten(2)) << "it had been so before";
}

TEST_F(ShortenPartitionTest, RowsBehindTheCountAreNotLookedAt) {
  Fill({1});
  EXPECT_EQ(ShortenPartition(layout_, 2, 3), 0U);
  EXPECT_EQ(Length(1), 10 * kMib);
}

TEST_F(ShortenPartitionTest, EachRowWithTheNumberIsShortenedAndTheLastOneCounts) {
  Fill({2, 1, 2});
  PARTITION_INFORMATION_EX last = layout_.row(2);
  last.PartitionLength.QuadPart = 20 * kMib;
  layout_.SetRow(2, last);
  EXPECT_EQ(ShortenPartition(layout_, 2, 3), 17U * 2048);
  EXPECT_EQ(Length(0), 7 * kMib);
  EXPECT_TRUE(IsRewritten(0));
  EXPECT_EQ(Length(2), 17 * kMib);
}

TEST_F(ShortenPartitionTest, NumberThatNoRowHasGivesNoSectors) {
  Fill({1, 2, 3});
  EXPECT_EQ(ShortenPartition(layout_, 9, 3), 0U);
  for (const std::size_t row : {0U, 1U, 2U}) EXPECT_FALSE(IsRewritten(row)) << row;
}

TEST_F(ShortenPartitionTest, SizeZeroOnlyMarksTheRow) {
  Fill({1, 2, 3});
  EXPECT_EQ(ShortenPartition(layout_, 2, 0), 10U * 2048);
  EXPECT_EQ(Length(1), 10 * kMib);
  EXPECT_TRUE(IsRewritten(1));
}

TEST_F(ShortenPartitionTest, SizeAboveTheLengthWrapsBelowZero) {
  Fill({1, 2, 3});
  EXPECT_EQ(ShortenPartition(layout_, 2, 12), (std::uint64_t{1} << 55) - 2 * 2048);
  EXPECT_EQ(Length(1), -2 * kMib);
}

TEST_F(ShortenPartitionTest, BytesOfAHugeSizeAreCutTo64Bits) {
  Fill({1, 2, 3});
  EXPECT_EQ(ShortenPartition(layout_, 2, (std::uint64_t{1} << 44) + 3), 7U * 2048);
}

TEST_F(ShortenPartitionTest, RestOfASectorIsDropped) {
  Fill({1, 2, 3});
  PARTITION_INFORMATION_EX row = layout_.row(1);
  row.PartitionLength.QuadPart = 10 * kMib + 511;
  layout_.SetRow(1, row);
  EXPECT_EQ(ShortenPartition(layout_, 2, 3), 7U * 2048);
}

TEST_F(ShortenPartitionTest, CountAboveTheBufferIsAnAccessViolation) {
  Fill({1, 2, 3});
  layout_.header().PartitionCount = 9;
  EXPECT_EQ(FaultOf([&] { ShortenPartition(layout_, 2, 3); }), EXCEPTION_ACCESS_VIOLATION);
}

class GetLayoutTest : public MachineTest {
 protected:
  GetLayoutTest() : disk_(NewDisk(1, 64 * kMib)) {
    WriteMbr(disk_, {{7, 2048, 4096}, {12, 8192, 4096}});
    machine_.UpdateProperties(disk_);
    handle_ = GetDeviceHandleById(disk_.path().c_str());
  }
  ~GetLayoutTest() override { CloseDeviceHandle(handle_); }

  simulator::Disk& disk_;
  HANDLE handle_ = INVALID_HANDLE_VALUE;
};

TEST_F(GetLayoutTest, FillsTheBuffer) {
  LayoutBuffer layout(kShrinkLayoutRows);
  ASSERT_TRUE(GetLayout(handle_, layout));
  EXPECT_EQ(layout.header().PartitionCount, 4U);
  EXPECT_EQ(layout.row(1).PartitionNumber, 2U);
  EXPECT_EQ(layout.row(1).StartingOffset.QuadPart, 8192 * 512);
}

TEST_F(GetLayoutTest, LayoutThatDoesNotFitIsRefused) {
  LayoutBuffer layout(3);
  EXPECT_FALSE(GetLayout(handle_, layout));
  EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_INSUFFICIENT_BUFFER});
  EXPECT_EQ(log_.size(), 0U);
}

}  // namespace
}  // namespace velkora
