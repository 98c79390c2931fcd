#include "backup/partition_extents.h"

#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

#include "simulator/handle_object.h"
#include "support/backup_disk_fixture.h"

namespace velkora {
namespace {

using namespace testing_support;

constexpr char kId[] = "\\\\?\\Volume{01020304-0506-0708-090a-0b0c0d0e0f10}";
const GUID kGuid = {0x01020304, 0x0506, 0x0708, {9, 10, 11, 12, 13, 14, 15, 16}};

// A disk that answers every control code with these rows.
class LayoutDisk : public simulator::HandleObject {
 public:
  explicit LayoutDisk(std::vector<PARTITION_INFORMATION_EX> rows) : rows_(std::move(rows)) {}
  std::string Describe() const override { return "layout"; }
  DWORD Control(DWORD, std::span<const std::byte>, std::span<std::byte> out,
                DWORD& returned) override {
    constexpr std::size_t kHeader = 48;
    const std::size_t length = kHeader + rows_.size() * sizeof rows_[0];
    if (out.size() < length) return ERROR_INSUFFICIENT_BUFFER;
    const auto count = static_cast<std::uint32_t>(rows_.size());
    std::memset(out.data(), 0, kHeader);
    std::memcpy(out.data() + 4, &count, sizeof count);
    if (!rows_.empty()) std::memcpy(out.data() + kHeader, rows_.data(), length - kHeader);
    returned = static_cast<DWORD>(length);
    return ERROR_SUCCESS;
  }

 private:
  std::vector<PARTITION_INFORMATION_EX> rows_;
};

PARTITION_INFORMATION_EX Row(PARTITION_STYLE style, std::int64_t start, std::int64_t length) {
  PARTITION_INFORMATION_EX row{};
  row.PartitionStyle = style;
  row.StartingOffset.QuadPart = start;
  row.PartitionLength.QuadPart = length;
  if (style == PARTITION_STYLE_MBR) row.Mbr.PartitionId = kGuid;
  if (style != PARTITION_STYLE_MBR) row.Gpt.PartitionId = kGuid;
  return row;
}

class PartitionExtents : public DiskParserTest {
 protected:
  std::int32_t RunOn(std::vector<PARTITION_INFORMATION_EX> rows) {
    return GetDiskPartition(machine_.handles().Add(std::make_unique<LayoutDisk>(std::move(rows))),
                            extents_);
  }
  Texts RowTexts() const {
    Texts rows;
    for (const PartitionExtent& extent : extents_) {
      rows.push_back(std::to_string(extent.start) + "-" + std::to_string(extent.end) + " " +
                     extent.volume_path);
    }
    return rows;
  }

  std::vector<PartitionExtent> extents_;
};

TEST_F(PartitionExtents, EachRowGivesItsPlaceAndTheVolumeOfItsId) {
  EXPECT_EQ(RunOn({Row(PARTITION_STYLE_MBR, 512, 1024), Row(PARTITION_STYLE_GPT, 4096, 512)}), 0);
  EXPECT_EQ(RowTexts(), (Texts{std::string("512-1536 ") + kId, std::string("4096-4608 ") + kId}));
  EXPECT_TRUE(log_.empty());
}

TEST_F(PartitionExtents, ARowOfNeitherStyleHasNoVolume) {
  EXPECT_EQ(RunOn({Row(PARTITION_STYLE_RAW, 512, 1024)}), 0);
  EXPECT_EQ(RowTexts(), (Texts{"512-1536 "}));
}

TEST_F(PartitionExtents, RowsAreAppendedToTheList) {
  extents_.push_back({1, 2, "former"});
  EXPECT_EQ(RunOn({Row(PARTITION_STYLE_RAW, 3, 4)}), 0);
  EXPECT_EQ(RowTexts(), (Texts{"1-2 former", "3-7 "}));
}

TEST_F(PartitionExtents, ALayoutWithoutRowsGivesAnEmptyList) {
  EXPECT_EQ(RunOn({}), 0);
  EXPECT_TRUE(extents_.empty());
}

TEST_F(PartitionExtents, AnEndWrapsAt64Bits) {
  EXPECT_EQ(RunOn({Row(PARTITION_STYLE_RAW, -512, 1024)}), 0);
  EXPECT_EQ(RowTexts(), (Texts{"18446744073709551104-512 "}));
}

TEST_F(PartitionExtents, ALayoutOf101RowsFits) {
  EXPECT_EQ(RunOn(std::vector<PARTITION_INFORMATION_EX>(101, Row(PARTITION_STYLE_RAW, 0, 512))), 0);
  EXPECT_EQ(extents_.size(), 101U);
}

TEST_F(PartitionExtents, ALayoutOf102RowsDoesNot) {
  EXPECT_EQ(RunOn(std::vector<PARTITION_INFORMATION_EX>(102, Row(PARTITION_STYLE_RAW, 0, 512))),
            -17);
  EXPECT_EQ(AllLines(), (Texts{"1 [BackupRestore] GetDiskPartition failed. error=122"}));
  EXPECT_TRUE(extents_.empty());
}

TEST_F(PartitionExtents, TheBufferHasRoomFor101Rows) {
  EXPECT_EQ(GetDiskPartition(handle_, extents_), 0);
  EXPECT_EQ(machine_.calls().Lines(),
            (Texts{"DeviceIoControl/IOCTL_DISK_GET_DRIVE_LAYOUT_EX disk 1 in 0 out 14592"}));
}

TEST_F(PartitionExtents, ALayoutThatCannotBeReadIsLogged) {
  machine_.calls().FailOn("DeviceIoControl/IOCTL_DISK_GET_DRIVE_LAYOUT_EX", 1, 1117);
  EXPECT_EQ(GetDiskPartition(handle_, extents_), -17);
  EXPECT_EQ(AllLines(), (Texts{"1 [BackupRestore] GetDiskPartition failed. error=1117"}));
  EXPECT_TRUE(extents_.empty());
}

TEST_F(PartitionExtents, UnusedRowsOfAnMbrLieAtZero) {
  WriteMbr(disk_, {{7, 2048, 2048}});
  Settle();
  EXPECT_EQ(GetDiskPartition(handle_, extents_), 0);
  ASSERT_EQ(extents_.size(), 4U);
  EXPECT_EQ(extents_[0].start, kMiB);
  EXPECT_EQ(extents_[0].end, 2 * kMiB);
  for (std::size_t i = 1; i < 4; ++i) {
    EXPECT_EQ(extents_[i].start, 0U);
    EXPECT_EQ(extents_[i].end, 0U);
  }
}

TEST_F(PartitionExtents, ThePathsAreThoseOfTheSystemsVolumes) {
  WriteGpt(disk_, {{kBasicDataGuid, 2048, 4095, 0xAB}, {kBasicDataGuid, 4096, 8191, 0x0C}});
  Settle();
  EXPECT_EQ(GetDiskPartition(handle_, extents_), 0);
  ASSERT_EQ(extents_.size(), 2U);
  EXPECT_EQ(extents_[0].volume_path, "\\\\?\\Volume{abababab-abab-abab-abab-abababababab}");
  for (const PartitionExtent& extent : extents_) {
    EXPECT_NE(machine_.FindVolumeByPath(extent.volume_path), nullptr);
  }
}

TEST(VolumePath, IsTheIdInLowerCaseWithoutABackslashBehind) {
  EXPECT_EQ(FormatVolumePath(kGuid), kId);
  EXPECT_EQ(FormatVolumePath({}), "\\\\?\\Volume{00000000-0000-0000-0000-000000000000}");
  EXPECT_EQ(FormatVolumePath({0xABCDEF01, 0xFEDC, 0x9A0B, {0xFF, 0, 0xAA, 0xBB, 0xCC, 0xDD, 1, 2}}),
            "\\\\?\\Volume{abcdef01-fedc-9a0b-ff00-aabbccdd0102}");
}

}  // namespace
}  // namespace velkora
