#include "frame/disk_records.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <iterator>
#include <limits>
#include <string>
#include <vector>

#include "support/caller_record.h"
#include "support/fault_of.h"
#include "support/machine_fixture.h"

namespace velkora {
namespace {

using namespace testing_support;

TEST(DiskTypeText, NamesGptAndMbrAndTakesTheRestForRaw) {
  EXPECT_STREQ(DiskTypeText(DiskType{1}), "GPT");
  EXPECT_STREQ(DiskTypeText(DiskType{2}), "MBR");
  EXPECT_STREQ(DiskTypeText(DiskType{0}), "RAW");
  EXPECT_STREQ(DiskTypeText(DiskType{3}), "RAW");
  EXPECT_STREQ(DiskTypeText(DiskType{0xFFFFFFFF}), "RAW");
}

TEST(FileSystemText, NamesEachKnownValue) {
  const std::vector<std::pair<std::int32_t, std::string>> names = {
      {-3, "MICROSOFT"}, {-2, "SYSTEM_HIDE"}, {-1, "CORE_STORAGE"}, {0, "UNKNOWN"}, {1, "HFS"},
      {2, "APFS"},       {3, "NTFS"},         {4, "FAT12"},         {5, "FAT16"},   {6, "FAT32"},
      {7, "EXFAT"},      {8, "EXT2"},         {9, "EXT3"},          {10, "EXT4"},   {11, "REFS"}};
  for (const auto& [value, name] : names) {
    EXPECT_EQ(FileSystemText(VolumeFileSystem{value}), name) << value;
  }
}

TEST(FileSystemText, TakesOtherValuesForRaw) {
  for (const std::int32_t value : {-4, 12, 1000, std::numeric_limits<std::int32_t>::min(),
                                   std::numeric_limits<std::int32_t>::max()}) {
    EXPECT_STREQ(FileSystemText(VolumeFileSystem{value}), "RAW") << value;
  }
}

TEST(FieldTextOfARecord, EndsAtTheNulOrAtTheEndOfTheField) {
  const char ended[6] = {'D', ':', '\0', 'x', 'y', 'z'};
  EXPECT_EQ(FieldText(ended), "D:");
  const char full[4] = {'a', 'b', 'c', 'd'};
  EXPECT_EQ(FieldText(full), "abcd");
  const char empty[4] = {};
  EXPECT_EQ(FieldText(empty), "");
}

class LogDiskInfoLines : public MachineTest {};

TEST_F(LogDiskInfoLines, ShowDiskAndVolumes) {
  CallerRecord record(DiskType::kGpt, 7, 1'099'511'627'776);
  SetText(record.disk().serial_num, "WD-12 34");
  record.disk().is_system = 1;
  VolumeInfo& first = record.Add(1'048'576, VolumeFileSystem::kNtfs, "C:");
  first.size = 536'870'912'000;
  first.is_system = 1;
  record.Add(536'871'960'576, VolumeFileSystem{42}, "").size = 5;
  LogDiskInfo(record.disk());
  EXPECT_EQ(AllLines(),
            (Texts{"1 -----------diskinfo-----------",
                   "1 [disk] disk_type: GPT, id: \\\\.\\PhysicalDrive7, index: 7, serial_num: "
                   "WD-12 34, is_system: 1, size: 1099511627776, volume_count: 2",
                   "1 [part] offset: 1048576, size: 536870912000, letter: C:, is_system: 1, "
                   "filesystem: NTFS",
                   "1 [part] offset: 536871960576, size: 5, letter: , is_system: 0, filesystem: "
                   "RAW",
                   "1 ------------------------------"}));
}

TEST_F(LogDiskInfoLines, ShowWideValues) {
  CallerRecord record(DiskType{9}, 1, std::numeric_limits<std::uint64_t>::max());
  record.disk().is_system = 255;
  LogDiskInfo(record.disk());
  EXPECT_EQ(Lines(1).at(1),
            "[disk] disk_type: RAW, id: \\\\.\\PhysicalDrive1, index: 1, serial_num: SERIAL, "
            "is_system: 255, size: 18446744073709551615, volume_count: 0");
}

TEST_F(LogDiskInfoLines, NoVolumeLineForANegativeCount) {
  CallerRecord record(DiskType::kMbr);
  record.Add(512);
  record.disk().volume_count = -1;
  LogDiskInfo(record.disk());
  ASSERT_EQ(Lines(1).size(), 3U);
  EXPECT_EQ(Lines(1)[1],
            "[disk] disk_type: MBR, id: \\\\.\\PhysicalDrive1, index: 1, serial_num: SERIAL, "
            "is_system: 0, size: 0, volume_count: -1");
}

TEST_F(LogDiskInfoLines, ShowAllOf255Volumes) {
  CallerRecord record(DiskType::kMbr);
  for (std::uint64_t i = 0; i < 255; ++i) record.Add(i * 512);
  LogDiskInfo(record.disk());
  ASSERT_EQ(Lines(1).size(), 3U + 255U);
  EXPECT_EQ(Lines(1)[2 + 254],
            "[part] offset: 130048, size: 0, letter: , is_system: 0, filesystem: NTFS");
}

TEST(VolumeAtIndex, GivesTheLastOf255) {
  CallerRecord record(DiskType::kMbr);
  for (std::uint64_t i = 0; i < 255; ++i) record.Add(i * 512);
  EXPECT_EQ(&VolumeAt(record.disk(), 254), &record.volume(254));
}

TEST(FindVolumeByOffset, GivesTheFirstInListOrder) {
  CallerRecord record(DiskType::kMbr);
  record.Add(4096);
  record.Add(1024);
  record.Add(1024);
  EXPECT_EQ(FindVolumeByOffset(record.disk(), 1024), &record.volume(1));
}

TEST(FindVolumeByOffset, WantsTheExactStart) {
  CallerRecord record(DiskType::kMbr);
  record.Add(1024).size = 4096;
  EXPECT_EQ(FindVolumeByOffset(record.disk(), 1536), nullptr);
  EXPECT_EQ(FindVolumeByOffset(record.disk(), 1024 + (std::uint64_t{1} << 32)), nullptr);
}

TEST(FindVolumeByOffset, LooksAtNoVolumeForACountOfZeroOrLess) {
  CallerRecord record(DiskType::kMbr);
  record.Add(1024);
  for (const std::int32_t count : {0, -1, std::numeric_limits<std::int32_t>::min()}) {
    record.disk().volume_count = count;
    EXPECT_EQ(FindVolumeByOffset(record.disk(), 1024), nullptr) << count;
  }
}

TEST_F(LogDiskInfoLines, ShowAFieldWithoutNulToItsEnd) {
  CallerRecord record(DiskType::kMbr);
  VolumeInfo& volume = record.Add(512);
  std::fill_n(volume.letter, std::size(volume.letter), 'Q');
  LogDiskInfo(record.disk());
  EXPECT_EQ(Lines(1).at(2),
            "[part] offset: 512, size: 0, letter: QQQQQQ, is_system: 0, filesystem: NTFS");
}

TEST_F(LogDiskInfoLines, MoreThan255VolumesEndInAnAccessViolation) {
  CallerRecord record(DiskType::kMbr);
  for (std::uint64_t i = 0; i < 255; ++i) record.Add(i * 512);
  for (const std::int32_t count : {256, 257, 100'000}) {
    record.disk().volume_count = count;
    log_.clear();
    EXPECT_EQ(FaultOf([&] { LogDiskInfo(record.disk()); }), EXCEPTION_ACCESS_VIOLATION);
    EXPECT_EQ(Lines(1).size(), 2U + 255U) << "every volume of the array is printed first";
  }
}

TEST(VolumeAtIndex, RaisesAnAccessViolationBehindTheArray) {
  CallerRecord record(DiskType::kMbr);
  EXPECT_EQ(FaultOf([&] { VolumeAt(record.disk(), 255); }), EXCEPTION_ACCESS_VIOLATION);
}

TEST(FindVolumeByOffset, RaisesAnAccessViolationWhenTheWalkLeavesTheArray) {
  CallerRecord record(DiskType::kMbr);
  for (std::uint64_t i = 0; i < 255; ++i) record.Add(i * 512);
  record.disk().volume_count = 256;
  EXPECT_EQ(FindVolumeByOffset(record.disk(), 512), &record.volume(1));
  EXPECT_EQ(FaultOf([&] { FindVolumeByOffset(record.disk(), 1); }), EXCEPTION_ACCESS_VIOLATION);
}

}  // namespace
}  // namespace velkora
