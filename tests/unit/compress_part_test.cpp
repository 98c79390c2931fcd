#include <cstring>

#include "disk/device_handle.h"
#include "frame/velkora.h"
#include "simulator/disk.h"
#include "simulator/volume.h"
#include "two_volumes_fixture.h"

namespace testing_support {
namespace {

constexpr char kRefusal[] =
    "GPT is larger than 4 partitions and there is no partition gap, and it is necessary "
    "\t\t\t\tto compress partitions to convert to MBR, but currently compressed partitions only "
    "support NTFS and fat32.";

// The record of disk 1 has no volumes yet.
class CompressPart : public TwoVolumesTest {
 protected:
  CompressPart() {
    converter_.disk_info = &record_;
    converter_.disk_handle = velkora::GetDeviceHandleById(disk_.path().c_str());
    converter_.callback = RecordEvent;
    machine_.calls().Clear();
  }
  ~CompressPart() override { velkora::CloseDeviceHandle(converter_.disk_handle); }

  // Records the volume that lies at `offset`, if there is one.
  void AddRecord(std::uint64_t offset, VolumeFileSystem file_system) {
    VolumeInfo& volume = volumes_.at(static_cast<std::size_t>(record_.volume_count));
    volume.offset = offset;
    volume.filesystem = file_system;
    const simulator::Volume* present = machine_.FindVolumeAt(1, offset);
    if (present != nullptr) {
      std::strncpy(volume.volume_id, present->path.c_str(), sizeof(volume.volume_id) - 1);
    }
    record_.volumes[record_.volume_count++] = &volume;
  }

  // The shrink is refused: status 5, then `last` behind the opening line, and no call that writes.
  void ExpectRefusal(std::uint64_t offset, const LogLine& last) {
    EXPECT_FALSE(converter_.CompressPart(offset, 5));
    EXPECT_EQ(Events(), (std::vector<Event>{{0, 5}}));
    EXPECT_EQ(log_, (Log{{1, "CompressPart Begin..."}, last}));
    EXPECT_EQ(machine_.calls().Count("WriteFile"), 0U);
    EXPECT_EQ(machine_.calls().Count("DeviceIoControl"), 0U);
  }

  std::uint8_t TotalSectorsByte(std::uint64_t sector, std::size_t index) {
    return ReadSector(disk_, sector).at(40 + index);
  }

  DiskInfo record_{};
  std::array<VolumeInfo, 255> volumes_{};
  velkora::Velkora converter_;
};

TEST_F(CompressPart, ShrinksTheNtfsVolumeAtTheOffset) {
  AddRecord(kFirstOffset, VolumeFileSystem::kExt4);
  AddRecord(kSecondOffset, VolumeFileSystem::kNtfs);
  EXPECT_TRUE(converter_.CompressPart(kSecondOffset, 5));
  EXPECT_EQ(Events(), (std::vector<Event>{{0, 5}}));
  EXPECT_EQ(log_, (Log{{1, "CompressPart Begin..."},
                       {1, "Compress NTFS Partition..."},
                       {1, "Compress NTFS Partition End!"}}));
  EXPECT_EQ(machine_.FindVolumeAt(1, kSecondOffset)->extents.front().length,
            (30720 - 5 * 2048) * 512U);
  EXPECT_EQ(machine_.FindVolumeAt(1, kFirstOffset)->extents.front().length, 30720 * 512U);
  EXPECT_EQ(TotalSectorsByte(34816, 1), (30719 - 5 * 2048) >> 8);
  EXPECT_EQ(machine_.handles().Open(), Texts{"disk 1"});
}

TEST_F(CompressPart, StatusGoesOutBehindTheOpeningLineAndBeforeAnythingIsTouched) {
  AddRecord(kFirstOffset, VolumeFileSystem::kNtfs);
  Log log_at_status;
  std::size_t calls_at_status = 99;
  EventHook() = [&](Event) {
    log_at_status = log_;
    calls_at_status = machine_.calls().calls().size();
  };
  EXPECT_TRUE(converter_.CompressPart(kFirstOffset, 1));
  EXPECT_EQ(log_at_status, (Log{{1, "CompressPart Begin..."}}));
  EXPECT_EQ(calls_at_status, 0U);
}

TEST_F(CompressPart, RecordWithoutVolumesEndsBehindTheStatus) {
  ExpectRefusal(kFirstOffset, {1, "CompressPart End"});
}

TEST_F(CompressPart, NegativeVolumeCountEndsBehindTheStatus) {
  AddRecord(kFirstOffset, VolumeFileSystem::kNtfs);
  record_.volume_count = -1;
  ExpectRefusal(kFirstOffset, {1, "CompressPart End"});
}

TEST_F(CompressPart, OffsetThatNoVolumeHasEndsBehindTheStatus) {
  AddRecord(kFirstOffset, VolumeFileSystem::kNtfs);
  ExpectRefusal(kSecondOffset, {1, "CompressPart End"});
}

TEST_F(CompressPart, OffsetInsideAVolumeIsNoMatch) {
  AddRecord(kFirstOffset, VolumeFileSystem::kNtfs);
  ExpectRefusal(kFirstOffset + 512, {1, "CompressPart End"});
}

TEST_F(CompressPart, FirstOfTwoRecordsWithTheSameOffsetIsUsed) {
  AddRecord(kFirstOffset, VolumeFileSystem::kExt4);
  AddRecord(kFirstOffset, VolumeFileSystem::kNtfs);
  ExpectRefusal(kFirstOffset, {1, kRefusal});
}

TEST_F(CompressPart, LastOf255RecordsIsFound) {
  for (std::uint64_t i = 1; i < 255; ++i)
    AddRecord(kSecondOffset + i * 512, VolumeFileSystem::kNtfs);
  AddRecord(kFirstOffset, VolumeFileSystem::kNtfs);
  EXPECT_TRUE(converter_.CompressPart(kFirstOffset, 1));
  EXPECT_EQ(machine_.FindVolumeAt(1, kFirstOffset)->extents.front().length, (30720 - 2048) * 512U);
}

TEST_F(CompressPart, OtherFileSystemIsRefusedAtTheLevelOfProgress) {
  AddRecord(kFirstOffset, VolumeFileSystem::kExt4);
  ExpectRefusal(kFirstOffset, {1, kRefusal});
  EXPECT_EQ(Lines(3), Texts{});
}

TEST_F(CompressPart, UnknownFileSystemIsRefused) {
  AddRecord(kFirstOffset, VolumeFileSystem::kUnknown);
  ExpectRefusal(kFirstOffset, {1, kRefusal});
}

TEST_F(CompressPart, Fat16IsRefused) {
  AddRecord(kFirstOffset, VolumeFileSystem::kFat16);
  ExpectRefusal(kFirstOffset, {1, kRefusal});
}

TEST_F(CompressPart, FailedShrinkIsLoggedBehindTheLinesOfItsStep) {
  AddRecord(kFirstOffset, VolumeFileSystem::kNtfs);
  machine_.calls().FailOn("DeviceIoControl/FSCTL_DISMOUNT_VOLUME", 1, 1117);
  EXPECT_FALSE(converter_.CompressPart(kFirstOffset, 5));
  EXPECT_EQ(log_, (Log{{1, "CompressPart Begin..."},
                       {1, "Compress NTFS Partition..."},
                       {3, "FSCTL_DISMOUNT_VOLUME Error: 1117"},
                       {3, "Compress ntfs part fail!"}}));
  EXPECT_EQ(Events(), (std::vector<Event>{{0, 5}}));
  EXPECT_EQ(machine_.handles().Open(), Texts{"disk 1"});
}

TEST_F(CompressPart, RunsNoToolAndDoesNotLookAtTheTableAgain) {
  AddRecord(kFirstOffset, VolumeFileSystem::kNtfs);
  EXPECT_TRUE(converter_.CompressPart(kFirstOffset, 1));
  EXPECT_EQ(shell_lines_, Texts{});
  EXPECT_EQ(machine_.calls().Count("ReadFile"), 1U);  // the boot sector
}

}  // namespace
}  // namespace testing_support
