#include "shrink/ntfs_shrink.h"

#include <algorithm>

#include "disk/device_handle.h"
#include "simulator/disk.h"
#include "simulator/volume.h"
#include "support/machine_fixture.h"

namespace testing_support {
namespace {

constexpr std::uint64_t kDiskSectors = 131072;
constexpr std::uint64_t kFirstSector = 2048;
constexpr std::uint64_t kSectors = 65536;
constexpr std::uint64_t kVolumeSectors = kSectors - 1;  // NTFS leaves its secondary boot sector out
constexpr std::size_t kTotalSectorsField = 40;
constexpr char kSetLayout[] = "DeviceIoControl/IOCTL_DISK_SET_DRIVE_LAYOUT_EX";
constexpr char kGetLayout[] = "DeviceIoControl/IOCTL_DISK_GET_DRIVE_LAYOUT_EX";

// The little-endian number of `width` bytes at `offset`.
std::uint64_t Number(std::span<const std::byte> bytes, std::size_t offset, std::size_t width) {
  std::uint64_t value = 0;
  for (std::size_t i = 0; i < width; ++i) {
    value |= std::to_integer<std::uint64_t>(bytes[offset + i]) << (8 * i);
  }
  return value;
}

std::uint64_t Number(const Sector& sector, std::size_t offset, std::size_t width) {
  return Number(std::as_bytes(std::span(sector)), offset, width);
}

std::uint32_t MbrSectorCount(simulator::Disk& disk, std::uint64_t table, std::size_t row) {
  return static_cast<std::uint32_t>(Number(ReadSector(disk, table), 446 + 16 * row + 12, 4));
}

class CompressNtfsPartition : public MachineTest {
 protected:
  ~CompressNtfsPartition() override { velkora::CloseDeviceHandle(disk_handle_); }

  simulator::Disk& StartDisk(std::uint64_t size) {
    simulator::Disk& disk = NewDisk(1, size);
    disk_handle_ = velkora::GetDeviceHandleById(disk.path().c_str());
    return disk;
  }

  // Two NTFS volumes in a GPT.
  simulator::Disk& UseGpt() {
    simulator::Disk& disk = StartDisk(kDiskSectors * 512);
    WriteGpt(disk, {{kBasicDataGuid, 2048, 67583, 1}, {kBasicDataGuid, 67584, 100351, 2}});
    return FinishDisk(disk, 67584, 32767);
  }

  // An NTFS volume as primary partition, and two logical ones of which the second is NTFS too.
  simulator::Disk& UseMbr() {
    simulator::Disk& disk = StartDisk(2 * kDiskSectors * 512);
    WriteMbr(disk, {{7, kFirstSector, kSectors, true}, {15, 67584, 90112}, {7, 180224, 2048}},
             {{7, 69632, 20480}, {7, 98304, 20480}});
    return FinishDisk(disk, 98304, 20479);
  }

  simulator::Disk& FinishDisk(simulator::Disk& disk, std::uint64_t second, std::uint64_t sectors) {
    WriteNtfsBootSector(disk, kFirstSector, kVolumeSectors);
    WriteNtfsBootSector(disk, second, sectors);
    machine_.UpdateProperties(disk);
    machine_.calls().Clear();
    return disk;
  }

  simulator::Volume& VolumeAt(std::uint64_t sector) {
    return *machine_.FindVolumeAt(1, sector * 512);
  }
  std::string PathAt(std::uint64_t sector) { return VolumeAt(sector).path; }

  bool Shrink(std::uint64_t size_mib, std::uint64_t sector = kFirstSector) {
    return velkora::CompressNtfsPartition(disk_handle_, PathAt(sector), size_mib);
  }

  void ExpectSuccess() {
    EXPECT_EQ(log_, (Log{{1, "Compress NTFS Partition..."}, {1, "Compress NTFS Partition End!"}}));
    EXPECT_EQ(machine_.handles().Open(), Texts{"disk 1"});
  }

  // Shrinks while a call fails, with these errors behind the opening lines.
  void ExpectFailureOf(std::string_view call, std::size_t occurrence, DWORD error,
                       const Texts& errors) {
    machine_.calls().FailOn(std::string(call), occurrence, error);
    EXPECT_FALSE(Shrink(5));
    ExpectFailure(errors);
  }
  // The lines behind the opening one; only the disk is still open.
  void ExpectFailure(const Texts& errors) {
    Log expected = {{1, "Compress NTFS Partition..."}};
    for (const std::string& error : errors) expected.push_back({3, error});
    EXPECT_EQ(log_, expected);
    EXPECT_EQ(machine_.handles().Open(), Texts{"disk 1"});
  }

  HANDLE disk_handle_ = INVALID_HANDLE_VALUE;
};

// ---- What a shrink changes ---------------------------------------------------------------------

TEST_F(CompressNtfsPartition, ShortensVolumeAndGptEntryTogether) {
  simulator::Disk& disk = UseGpt();
  const Sector boot_before = ReadSector(disk, kFirstSector);
  const auto array_before = ReadBytes(disk, 2 * 512, 128 * 128);
  EXPECT_TRUE(Shrink(5));
  ExpectSuccess();

  Sector boot = ReadSector(disk, kFirstSector);
  EXPECT_EQ(Number(boot, kTotalSectorsField, 8), kVolumeSectors - 5 * 2048);
  std::copy_n(&boot_before[kTotalSectorsField], 8, &boot[kTotalSectorsField]);
  EXPECT_EQ(boot, boot_before);

  auto array = ReadBytes(disk, 2 * 512, 128 * 128);
  EXPECT_EQ(Number(array, 40, 8), 67583 - 5 * 2048U);
  std::copy_n(&array_before[40], 8, &array[40]);
  EXPECT_EQ(array, array_before);
  EXPECT_EQ(VolumeAt(kFirstSector).extents.front().length, (kSectors - 5 * 2048) * 512);
}

TEST_F(CompressNtfsPartition, ShortensVolumeAndPrimaryMbrRowTogether) {
  simulator::Disk& disk = UseMbr();
  const Sector table_before = ReadSector(disk, 0);
  EXPECT_TRUE(Shrink(5));
  ExpectSuccess();
  EXPECT_EQ(Number(ReadSector(disk, kFirstSector), kTotalSectorsField, 8),
            kVolumeSectors - 5 * 2048);
  EXPECT_EQ(MbrSectorCount(disk, 0, 0), kSectors - 5 * 2048);
  const Sector table = ReadSector(disk, 0);
  EXPECT_EQ(table[446], 0x80);
  EXPECT_EQ(Number(table, 446 + 8, 4), kFirstSector);
  EXPECT_TRUE(std::equal(&table[462], &table[511], &table_before[462]));
  EXPECT_TRUE(std::equal(&table[0], &table[446], &table_before[0]));
}

TEST_F(CompressNtfsPartition, ShortensVolumeAndLogicalPartitionTogether) {
  simulator::Disk& disk = UseMbr();
  const Sector table_before = ReadSector(disk, 0);
  const Sector first_record_before = ReadSector(disk, 67584);
  EXPECT_TRUE(Shrink(3, 98304));
  ExpectSuccess();
  EXPECT_EQ(Number(ReadSector(disk, 98304), kTotalSectorsField, 8), 20479 - 3 * 2048U);
  EXPECT_EQ(MbrSectorCount(disk, 98304 - 2048, 0), 20480 - 3 * 2048U);
  EXPECT_EQ(ReadSector(disk, 0), table_before);
  EXPECT_EQ(ReadSector(disk, 67584), first_record_before);
}

TEST_F(CompressNtfsPartition, LeavesTheSecondaryBootSectorOutsideThePartition) {
  simulator::Disk& disk = UseGpt();
  Sector secondary = ReadSector(disk, kFirstSector);
  WriteSector(disk, 67583, secondary);
  EXPECT_TRUE(Shrink(1));
  EXPECT_EQ(ReadSector(disk, 67583), secondary);
  EXPECT_EQ(ReadSector(disk, 67583 - 2048), Sector{});
}

TEST_F(CompressNtfsPartition, LooksNeitherAtTheSignatureNorAtTheFileSystem) {
  simulator::Disk& disk = UseGpt();
  Sector other{};
  other[kTotalSectorsField + 2] = 1;  // 65536 sectors
  WriteSector(disk, kFirstSector, other);
  EXPECT_TRUE(Shrink(1));
  other[kTotalSectorsField + 1] = 0xF8;
  other[kTotalSectorsField + 2] = 0;
  EXPECT_EQ(ReadSector(disk, kFirstSector), other);
}

TEST_F(CompressNtfsPartition, DismountsWithoutALockBeforeItWrites) {
  UseGpt();
  EXPECT_TRUE(Shrink(5));
  const auto& calls = machine_.calls().calls();
  const auto place = [&calls](std::string_view name, std::string_view detail) {
    return std::find_if(calls.begin(), calls.end(), [&](const simulator::Call& call) {
      return call.name == name && (detail.empty() || call.detail == detail);
    });
  };
  ASSERT_NE(place("WriteFile", ""), calls.end());
  EXPECT_LT(place("DeviceIoControl", "FSCTL_DISMOUNT_VOLUME"), place("ReadFile", ""));
  EXPECT_LT(place("ReadFile", ""), place("WriteFile", ""));
  EXPECT_EQ(machine_.calls().Count("DeviceIoControl/FSCTL_LOCK_VOLUME"), 0U);
}

TEST_F(CompressNtfsPartition, PassesTheSameFixedSizeToBothLayoutCalls) {
  UseGpt();
  EXPECT_TRUE(Shrink(5));
  const auto argument_of = [this](std::string_view detail) -> std::string {
    for (const simulator::Call& call : machine_.calls().calls()) {
      if (call.detail == detail) return call.arguments;
    }
    return "";
  };
  EXPECT_EQ(argument_of("IOCTL_DISK_GET_DRIVE_LAYOUT_EX"), "disk 1 in 0 out 18624");
  EXPECT_TRUE(argument_of("IOCTL_DISK_SET_DRIVE_LAYOUT_EX").starts_with("disk 1 in 18624 "));
}

// ---- Sizes -------------------------------------------------------------------------------------

// The rewritten row is told by its cylinders, heads and sectors, which the system computes anew.
TEST_F(CompressNtfsPartition, SizeZeroRewritesBootSectorAndRowWithTheSameValues) {
  simulator::Disk& disk = UseMbr();
  const Sector boot_before = ReadSector(disk, kFirstSector);
  const Sector table_before = ReadSector(disk, 0);
  EXPECT_TRUE(Shrink(0));
  ExpectSuccess();
  EXPECT_EQ(machine_.calls().Count("DeviceIoControl/FSCTL_DISMOUNT_VOLUME"), 1U);
  EXPECT_EQ(machine_.calls().Count("WriteFile"), 1U);
  EXPECT_EQ(ReadSector(disk, kFirstSector), boot_before);
  const Sector table = ReadSector(disk, 0);
  EXPECT_EQ(MbrSectorCount(disk, 0, 0), kSectors);
  EXPECT_FALSE(std::equal(&table[447], &table[450], &table_before[447]));
  EXPECT_TRUE(std::equal(&table[462], &table[511], &table_before[462]));
}

TEST_F(CompressNtfsPartition, SizeAboveTheVolumeWrapsBelowZero) {
  simulator::Disk& disk = UseMbr();
  machine_.switches().store.truncate_mbr_values = true;
  EXPECT_TRUE(Shrink(64));
  ExpectSuccess();
  EXPECT_EQ(Number(ReadSector(disk, kFirstSector), kTotalSectorsField, 8),
            kVolumeSectors - 64 * 2048);
  EXPECT_EQ(MbrSectorCount(disk, 0, 0), static_cast<std::uint32_t>(kSectors - 64 * 2048));
}

TEST_F(CompressNtfsPartition, WrappedLengthThatTheSystemRefusesLeavesTheWrappedBootSector) {
  simulator::Disk& disk = UseGpt();
  EXPECT_FALSE(Shrink(64));
  ExpectFailure({"IOCTL_DISK_SET_DRIVE_LAYOUT_EX Error: 87"});
  EXPECT_EQ(Number(ReadSector(disk, kFirstSector), kTotalSectorsField, 8),
            kVolumeSectors - 64 * 2048);
}

TEST_F(CompressNtfsPartition, HugeSizeIsCutTo64BitsOfBytes) {
  simulator::Disk& disk = UseGpt();
  EXPECT_FALSE(Shrink(0xFFFFFFFFFFFFFFFF));
  EXPECT_EQ(Number(ReadSector(disk, kFirstSector), kTotalSectorsField, 8),
            kVolumeSectors - ((std::uint64_t{1} << 55) - 2048));
}

// ---- More rows than the buffer holds -----------------------------------------------------------

class ManyPartitions : public CompressNtfsPartition {
 protected:
  // A primary NTFS volume and `count` logical partitions: 4 rows and 4 for each of them.
  simulator::Disk& UseLogicals(std::uint64_t count) {
    simulator::Disk& disk = StartDisk(256 * kMiB);
    std::vector<MbrEntry> logicals;
    for (std::uint64_t i = 0; i < count; ++i) logicals.push_back({7, 102400 + 4096 * i, 1024});
    WriteMbr(disk, {{7, kFirstSector, kSectors}, {15, 100352, 4096 * count}}, logicals);
    return FinishDisk(disk, 102400, 1023);
  }
};

TEST_F(ManyPartitions, LayoutOf128RowsIsShrunk) {
  simulator::Disk& disk = UseLogicals(31);
  EXPECT_TRUE(Shrink(5));
  ExpectSuccess();
  EXPECT_EQ(MbrSectorCount(disk, 0, 0), kSectors - 5 * 2048);
}

TEST_F(ManyPartitions, LayoutOfMoreThan129RowsCannotBeRead) {
  simulator::Disk& disk = UseLogicals(32);
  EXPECT_FALSE(Shrink(5));
  ExpectFailure({"IOCTL_DISK_GET_DRIVE_LAYOUT_EX Error: 122"});
  EXPECT_EQ(MbrSectorCount(disk, 0, 0), kSectors);
  EXPECT_EQ(Number(ReadSector(disk, kFirstSector), kTotalSectorsField, 8),
            kVolumeSectors - 5 * 2048);
}

// ---- Each step that fails ----------------------------------------------------------------------

class FailedShrink : public CompressNtfsPartition {
 protected:
  FailedShrink() : disk_(UseGpt()), before_(Bytes()) {}

  // Everything up to the volume's first sector, and that sector.
  std::vector<std::byte> Bytes() { return ReadBytes(disk_, 0, (kFirstSector + 1) * 512); }

  void ExpectNothingChanged() { EXPECT_EQ(Bytes(), before_); }

  void ExpectOnlyTheBootSectorShortened() {
    const auto now = Bytes();
    const std::size_t field = kFirstSector * 512 + kTotalSectorsField;
    EXPECT_TRUE(std::equal(now.begin(), now.begin() + field, before_.begin()));
    EXPECT_EQ(Number(now, field, 8), kVolumeSectors - 5 * 2048);
    EXPECT_TRUE(std::equal(now.begin() + field + 8, now.end(), before_.begin() + field + 8));
  }

  simulator::Disk& disk_;
  std::vector<std::byte> before_;
};

TEST_F(FailedShrink, OpenChangesNothing) {
  ExpectFailureOf("CreateFileA", 1, 32,
                  {"open device failed, device_id: " + PathAt(kFirstSector) + ", error_code: 32"});
  ExpectNothingChanged();
  EXPECT_TRUE(VolumeAt(kFirstSector).mounted);
}

TEST_F(FailedShrink, DismountChangesNothing) {
  ExpectFailureOf("DeviceIoControl/FSCTL_DISMOUNT_VOLUME", 1, 1117,
                  {"FSCTL_DISMOUNT_VOLUME Error: 1117"});
  ExpectNothingChanged();
  EXPECT_TRUE(VolumeAt(kFirstSector).mounted);
  EXPECT_EQ(machine_.calls().Count("WriteFile"), 0U);
}

TEST_F(FailedShrink, ReadLeavesTheVolumeDismounted) {
  machine_.calls().FailOn("ReadFile", 1, 23, simulator::Repeat::kFromThenOn);
  EXPECT_FALSE(Shrink(5));
  ExpectFailure({"Read Data Error! error_code: 23", "Read Data Error! error_code: 23",
                 "Read Data Error! error_code: 23", "read DBR error: 23"});
  ExpectNothingChanged();
  EXPECT_FALSE(VolumeAt(kFirstSector).mounted);
}

TEST_F(FailedShrink, ReadThatSucceedsAtTheThirdAttemptGoesOn) {
  machine_.calls().FailOn("ReadFile", 1, 23);
  machine_.calls().FailOn("ReadFile", 2, 23);
  EXPECT_TRUE(Shrink(5));
  EXPECT_EQ(Lines(3),
            (Texts{"Read Data Error! error_code: 23", "Read Data Error! error_code: 23"}));
}

TEST_F(FailedShrink, WriteLeavesTheVolumeDismountedAndUnchanged) {
  machine_.calls().FailOn("WriteFile", 1, 19, simulator::Repeat::kFromThenOn);
  EXPECT_FALSE(Shrink(5));
  ExpectFailure({"Write Data Error! error_code: 19", "Write Data Error! error_code: 19",
                 "Write Data Error! error_code: 19", "write DBR error: 19"});
  ExpectNothingChanged();
  EXPECT_FALSE(VolumeAt(kFirstSector).mounted);
}

TEST_F(FailedShrink, PartitionNumberLeavesTheBootSectorShortened) {
  ExpectFailureOf("DeviceIoControl/IOCTL_STORAGE_GET_DEVICE_NUMBER", 1, 1117,
                  {"DeviceIoControl with IOCTL_STORAGE_GET_DEVICE_NUMBER error 1117",
                   "GetDeviceIndexByHandle error: 1117"});
  ExpectOnlyTheBootSectorShortened();
}

TEST_F(FailedShrink, GetLayoutLeavesTheBootSectorShortened) {
  ExpectFailureOf(kGetLayout, 1, 1117, {"IOCTL_DISK_GET_DRIVE_LAYOUT_EX Error: 1117"});
  ExpectOnlyTheBootSectorShortened();
  EXPECT_EQ(machine_.calls().Count(kSetLayout), 0U);
}

TEST_F(FailedShrink, SetLayoutLeavesTheBootSectorShortened) {
  ExpectFailureOf(kSetLayout, 1, 1117, {"IOCTL_DISK_SET_DRIVE_LAYOUT_EX Error: 1117"});
  ExpectOnlyTheBootSectorShortened();
}

}  // namespace
}  // namespace testing_support
