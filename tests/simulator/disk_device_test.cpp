#include <array>
#include <cstring>
#include <utility>

#include "simulator/disk.h"
#include "simulator/mount_manager.h"
#include "simulator/seam_fixture.h"
#include "simulator/volume.h"

namespace testing_support {
namespace {

constexpr std::size_t kHeader = 48;
constexpr std::size_t kRow = 144;
// Room for 129 rows.
constexpr std::size_t kWholeLayout = kHeader + 129 * kRow;

class DiskDeviceTest : public SeamTest {
 protected:
  // One NTFS partition of 8 MiB at 1 MiB, one without a file system at 16 MiB.
  simulator::Disk& AttachTwoPartitions() {
    return AttachGpt(
        1, {GptRow(kMegabyte, 8 * kMegabyte, 1), GptRow(16 * kMegabyte, 8 * kMegabyte, 2)},
        {kMegabyte});
  }

  static HANDLE OpenDisk(DWORD access = GENERIC_READ | GENERIC_WRITE) {
    return Open("\\\\.\\PhysicalDrive1", access);
  }

  // The layout as raw bytes; `returned_` is its length.
  DWORD GetLayout(HANDLE disk, std::vector<std::byte>& out) {
    const BOOL success =
        win32::DeviceIoControl(disk, IOCTL_DISK_GET_DRIVE_LAYOUT_EX, nullptr, 0, out.data(),
                               static_cast<DWORD>(out.size()), &returned_, nullptr);
    return success != FALSE ? ERROR_SUCCESS : win32::GetLastError();
  }

  DWORD SetLayout(HANDLE disk, std::vector<std::byte>& in, std::span<std::byte> out = {}) {
    const BOOL success = win32::DeviceIoControl(
        disk, IOCTL_DISK_SET_DRIVE_LAYOUT_EX, in.data(), static_cast<DWORD>(in.size()), out.data(),
        static_cast<DWORD>(out.size()), &returned_, nullptr);
    return success != FALSE ? ERROR_SUCCESS : win32::GetLastError();
  }

  DWORD Create(HANDLE disk, DWORD style, DWORD size = sizeof(CREATE_DISK)) {
    std::array<std::byte, sizeof(CREATE_DISK)> request{};
    std::memcpy(request.data(), &style, sizeof style);
    request[4] = std::byte{1};  // signature, or the disk's GUID
    const BOOL success = win32::DeviceIoControl(disk, IOCTL_DISK_CREATE_DISK, request.data(), size,
                                                nullptr, 0, &returned_, nullptr);
    return success != FALSE ? ERROR_SUCCESS : win32::GetLastError();
  }

  static DWORD CountIn(const std::vector<std::byte>& layout) {
    DWORD count = 0;
    std::memcpy(&count, layout.data() + 4, sizeof count);
    return count;
  }

  static PARTITION_INFORMATION_EX RowIn(const std::vector<std::byte>& layout, std::size_t index) {
    PARTITION_INFORMATION_EX row;
    std::memcpy(&row, layout.data() + kHeader + index * kRow, kRow);
    return row;
  }

  DWORD returned_ = 0;
};

TEST_F(DiskDeviceTest, ReadsAndWritesAtThePositionAndMovesIt) {
  machine_.AttachDisk(1, NewImage("raw.img", kMegabyte));
  const HANDLE disk = OpenDisk();
  const std::vector<std::byte> data(1024, std::byte{0x5A});
  ASSERT_EQ(WriteAt(disk, 512, data), ERROR_SUCCESS);
  EXPECT_EQ(done_, 1024u);
  EXPECT_EQ(win32::SetFilePointer(disk, 0, nullptr, FILE_CURRENT), 1536u);
  std::vector<std::byte> back(1024);
  ASSERT_EQ(ReadAt(disk, 512, back), ERROR_SUCCESS);
  EXPECT_EQ(back, data);
  EXPECT_EQ(win32::GetLastError(), kUntouchedError);
}

TEST_F(DiskDeviceTest, RefusesTransfersThatAreNotWholeSectors) {
  machine_.AttachDisk(1, NewImage("raw.img", kMegabyte));
  const HANDLE disk = OpenDisk();
  std::vector<std::byte> sector(512);
  std::vector<std::byte> part(100);
  EXPECT_EQ(ReadAt(disk, 0, part), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(done_, 0u);
  EXPECT_EQ(ReadAt(disk, 100, sector), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(WriteAt(disk, 100, sector), ERROR_INVALID_PARAMETER);
}

TEST_F(DiskDeviceTest, SectorsOf4096BytesCount) {
  machine_.AttachDisk(1, NewImage("raw.img", kMegabyte), 4096);
  const HANDLE disk = OpenDisk();
  std::vector<std::byte> sector(4096);
  std::vector<std::byte> part(512);
  EXPECT_EQ(ReadAt(disk, 0, part), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(ReadAt(disk, 4096, sector), ERROR_SUCCESS);
}

TEST_F(DiskDeviceTest, RefusesATransferPastTheEndAsAWhole) {
  machine_.AttachDisk(1, NewImage("raw.img", kMegabyte));
  const HANDLE disk = OpenDisk();
  std::vector<std::byte> two(1024, std::byte{1});
  EXPECT_EQ(ReadAt(disk, kMegabyte - 512, two), ERROR_SECTOR_NOT_FOUND);
  EXPECT_EQ(done_, 0u);
  EXPECT_EQ(WriteAt(disk, kMegabyte - 512, two), ERROR_SECTOR_NOT_FOUND);
  EXPECT_EQ(ReadAt(disk, kMegabyte, two), ERROR_SECTOR_NOT_FOUND);
  EXPECT_EQ(ReadAt(disk, 0x7FFFFFFFFFFFFE00, two), ERROR_SECTOR_NOT_FOUND);
  std::vector<std::byte> last(512);
  ASSERT_EQ(ReadAt(disk, kMegabyte - 512, last), ERROR_SUCCESS);
  EXPECT_EQ(last, std::vector<std::byte>(512));
}

TEST_F(DiskDeviceTest, TransfersNeedTheirAccess) {
  machine_.AttachDisk(1, NewImage("raw.img", kMegabyte));
  std::vector<std::byte> sector(512);
  EXPECT_EQ(WriteAt(OpenDisk(GENERIC_READ), 0, sector), ERROR_ACCESS_DENIED);
  EXPECT_EQ(ReadAt(OpenDisk(GENERIC_WRITE), 0, sector), ERROR_ACCESS_DENIED);
}

TEST_F(DiskDeviceTest, RefusesWritesIntoAMountedVolume) {
  AttachTwoPartitions();
  const HANDLE disk = OpenDisk();
  std::vector<std::byte> sector(512, std::byte{1});
  EXPECT_EQ(WriteAt(disk, kMegabyte, sector), ERROR_ACCESS_DENIED);
  EXPECT_EQ(WriteAt(disk, 9 * kMegabyte - 512, sector), ERROR_ACCESS_DENIED);
  EXPECT_EQ(ReadAt(disk, kMegabyte, sector), ERROR_SUCCESS);
}

TEST_F(DiskDeviceTest, AWriteThatTouchesAMountedVolumeIsRefusedAsAWhole) {
  AttachTwoPartitions();
  const HANDLE disk = OpenDisk();
  const std::vector<std::byte> two(1024, std::byte{1});
  EXPECT_EQ(WriteAt(disk, kMegabyte - 512, two), ERROR_ACCESS_DENIED);
  std::vector<std::byte> before(512);
  ASSERT_EQ(ReadAt(disk, kMegabyte - 512, before), ERROR_SUCCESS);
  EXPECT_EQ(before, std::vector<std::byte>(512));
}

TEST_F(DiskDeviceTest, WritesOutsideVolumesAndWhereNothingIsMounted) {
  AttachTwoPartitions();
  const HANDLE disk = OpenDisk();
  const std::vector<std::byte> sector(512, std::byte{1});
  EXPECT_EQ(WriteAt(disk, kMegabyte - 512, sector), ERROR_SUCCESS);
  EXPECT_EQ(WriteAt(disk, 9 * kMegabyte, sector), ERROR_SUCCESS);
  EXPECT_EQ(WriteAt(disk, 16 * kMegabyte, sector), ERROR_SUCCESS);
}

TEST_F(DiskDeviceTest, WritesIntoALockedOrDismountedVolume) {
  AttachTwoPartitions();
  const HANDLE disk = OpenDisk();
  const std::vector<std::byte> sector(512, std::byte{1});
  const HANDLE volume = Open(GptVolumePath(1), GENERIC_READ);
  ASSERT_EQ(Control(volume, FSCTL_LOCK_VOLUME), ERROR_SUCCESS);
  EXPECT_EQ(WriteAt(disk, 2 * kMegabyte, sector), ERROR_SUCCESS);
  ASSERT_EQ(Control(volume, FSCTL_UNLOCK_VOLUME), ERROR_SUCCESS);
  EXPECT_EQ(WriteAt(disk, 2 * kMegabyte, sector), ERROR_ACCESS_DENIED);
  ASSERT_EQ(Control(volume, FSCTL_DISMOUNT_VOLUME), ERROR_SUCCESS);
  EXPECT_EQ(WriteAt(disk, 2 * kMegabyte, sector), ERROR_SUCCESS);
}

TEST_F(DiskDeviceTest, ADismountLastsUntilTheNextAccessByName) {
  AttachTwoPartitions();
  const HANDLE disk = OpenDisk();
  const std::vector<std::byte> sector(512, std::byte{1});
  const HANDLE volume = Open(GptVolumePath(1), GENERIC_READ);
  ASSERT_EQ(Control(volume, FSCTL_DISMOUNT_VOLUME), ERROR_SUCCESS);
  EXPECT_EQ(WriteAt(disk, 2 * kMegabyte, sector), ERROR_SUCCESS);
  ASSERT_EQ(Control(disk, IOCTL_DISK_UPDATE_PROPERTIES), ERROR_SUCCESS);
  EXPECT_EQ(WriteAt(disk, 2 * kMegabyte, sector), ERROR_SUCCESS);
  ASSERT_TRUE(win32::CloseHandle(volume));
  EXPECT_EQ(WriteAt(disk, 2 * kMegabyte, sector), ERROR_SUCCESS);

  ASSERT_NE(Open(GptVolumePath(1), GENERIC_READ), INVALID_HANDLE_VALUE);
  EXPECT_EQ(WriteAt(disk, 2 * kMegabyte, sector), ERROR_ACCESS_DENIED);
}

TEST_F(DiskDeviceTest, TellsStyleAndLengthOfTheWholeDisk) {
  AttachTwoPartitions();
  PARTITION_INFORMATION_EX info;
  std::memset(&info, 0xFF, sizeof info);
  ASSERT_TRUE(win32::DeviceIoControl(OpenDisk(), IOCTL_DISK_GET_PARTITION_INFO_EX, nullptr, 0,
                                     &info, sizeof info, &returned_, nullptr));
  EXPECT_EQ(returned_, 144u);
  PARTITION_INFORMATION_EX expected{};
  expected.PartitionStyle = PARTITION_STYLE_GPT;
  expected.PartitionLength.QuadPart = 64 * kMegabyte;
  EXPECT_EQ(std::memcmp(&info, &expected, sizeof info), 0);
}

TEST_F(DiskDeviceTest, PartitionInfoNeedsItsWholeLength) {
  AttachTwoPartitions();
  std::array<std::byte, 143> out{};
  EXPECT_FALSE(win32::DeviceIoControl(OpenDisk(), IOCTL_DISK_GET_PARTITION_INFO_EX, nullptr, 0,
                                      out.data(), 143, &returned_, nullptr));
  EXPECT_EQ(win32::GetLastError(), ERROR_INSUFFICIENT_BUFFER);
  EXPECT_EQ(returned_, 0u);
}

TEST_F(DiskDeviceTest, TellsItsNumber) {
  AttachTwoPartitions();
  STORAGE_DEVICE_NUMBER number{};
  ASSERT_TRUE(win32::DeviceIoControl(OpenDisk(), IOCTL_STORAGE_GET_DEVICE_NUMBER, nullptr, 0,
                                     &number, sizeof number, &returned_, nullptr));
  EXPECT_EQ(number.DeviceType, DWORD{FILE_DEVICE_DISK});
  EXPECT_EQ(number.DeviceNumber, 1u);
  EXPECT_EQ(number.PartitionNumber, 0u);
  EXPECT_FALSE(win32::DeviceIoControl(OpenDisk(), IOCTL_STORAGE_GET_DEVICE_NUMBER, nullptr, 0,
                                      &number, sizeof number - 1, &returned_, nullptr));
  EXPECT_EQ(win32::GetLastError(), ERROR_INSUFFICIENT_BUFFER);
}

TEST_F(DiskDeviceTest, LayoutHasAHeaderAndARowForEachPartition) {
  AttachTwoPartitions();
  std::vector<std::byte> layout(kWholeLayout);
  ASSERT_EQ(GetLayout(OpenDisk(), layout), ERROR_SUCCESS);
  EXPECT_EQ(returned_, kHeader + 2 * kRow);
  EXPECT_EQ(CountIn(layout), 2u);
  EXPECT_EQ(RowIn(layout, 1).StartingOffset.QuadPart, static_cast<LONGLONG>(16 * kMegabyte));
  EXPECT_EQ(RowIn(layout, 1).PartitionNumber, 2u);
}

TEST_F(DiskDeviceTest, LayoutThatDoesNotFitIsRefused) {
  AttachTwoPartitions();
  std::vector<std::byte> layout(kHeader + 2 * kRow - 1);
  EXPECT_EQ(GetLayout(OpenDisk(), layout), ERROR_INSUFFICIENT_BUFFER);
  EXPECT_EQ(layout, std::vector<std::byte>(layout.size()));
}

TEST_F(DiskDeviceTest, RawWritesToTheTableAreNotBelievedUntilProperties) {
  AttachTwoPartitions();
  const HANDLE disk = OpenDisk();
  std::vector<std::byte> layout(kWholeLayout);
  ASSERT_EQ(WriteAt(disk, 0, std::vector<std::byte>(34 * 512)), ERROR_SUCCESS);
  ASSERT_EQ(GetLayout(disk, layout), ERROR_SUCCESS);
  EXPECT_EQ(CountIn(layout), 2u);
  EXPECT_EQ(machine_.volumes().size(), 2u);

  ASSERT_EQ(Control(disk, IOCTL_DISK_UPDATE_PROPERTIES), ERROR_SUCCESS);
  ASSERT_EQ(GetLayout(disk, layout), ERROR_SUCCESS);
  EXPECT_EQ(CountIn(layout), 0u);
  EXPECT_EQ(layout[0], std::byte{PARTITION_STYLE_RAW});
  EXPECT_TRUE(machine_.volumes().empty());
}

TEST_F(DiskDeviceTest, ARescanLooksAgainToo) {
  simulator::Disk& disk = AttachTwoPartitions();
  ASSERT_TRUE(disk.device().Zero(0, 34 * 512));
  EXPECT_EQ(machine_.volumes().size(), 2u);
  machine_.Rescan();
  EXPECT_TRUE(machine_.volumes().empty());
}

TEST_F(DiskDeviceTest, CreateDiskEmptiesTheTableAndTakesVolumesAway) {
  AttachTwoPartitions();
  const HANDLE disk = OpenDisk();
  ASSERT_EQ(machine_.mount_manager().Mask() & 0b11100, 0b01100u);
  ASSERT_EQ(Create(disk, PARTITION_STYLE_MBR), ERROR_SUCCESS);
  EXPECT_TRUE(machine_.volumes().empty());
  EXPECT_EQ(machine_.mount_manager().Mask() & 0b11100, 0u);
  std::vector<std::byte> layout(kWholeLayout);
  ASSERT_EQ(GetLayout(disk, layout), ERROR_SUCCESS);
  EXPECT_EQ(CountIn(layout), 4u);
  EXPECT_EQ(layout[8], std::byte{1});
  EXPECT_EQ(RowIn(layout, 0).Mbr.PartitionType, 0);
}

TEST_F(DiskDeviceTest, CreateDiskChecksLengthAndStyle) {
  AttachTwoPartitions();
  const HANDLE disk = OpenDisk();
  EXPECT_EQ(Create(disk, PARTITION_STYLE_MBR, 23), ERROR_BAD_LENGTH);
  EXPECT_EQ(Create(disk, 3), ERROR_NOT_SUPPORTED);
  EXPECT_EQ(Create(disk, 0xFFFFFFFF), ERROR_NOT_SUPPORTED);
  EXPECT_EQ(machine_.volumes().size(), 2u);
}

TEST_F(DiskDeviceTest, CreateDiskMakesTheReservedPartitionOnlyWhereToldTo) {
  machine_.AttachDisk(1, NewImage("raw.img", 64 * kMegabyte));
  const HANDLE disk = OpenDisk();
  std::vector<std::byte> layout(kWholeLayout);
  ASSERT_EQ(Create(disk, PARTITION_STYLE_GPT), ERROR_SUCCESS);
  ASSERT_EQ(GetLayout(disk, layout), ERROR_SUCCESS);
  EXPECT_EQ(CountIn(layout), 0u);

  machine_.switches().create_disk_makes_reserved_partition = true;
  ASSERT_EQ(Create(disk, PARTITION_STYLE_GPT), ERROR_SUCCESS);
  ASSERT_EQ(GetLayout(disk, layout), ERROR_SUCCESS);
  ASSERT_EQ(CountIn(layout), 1u);
  const PARTITION_INFORMATION_EX row = RowIn(layout, 0);
  EXPECT_EQ(row.StartingOffset.QuadPart, 17408);
  EXPECT_EQ(row.StartingOffset.QuadPart + row.PartitionLength.QuadPart,
            static_cast<LONGLONG>(16 * kMegabyte));
  EXPECT_TRUE(machine_.volumes().empty());
}

TEST_F(DiskDeviceTest, LayoutCodesNeedReadAndWriteAccess) {
  AttachTwoPartitions();
  EXPECT_EQ(Create(OpenDisk(GENERIC_READ), PARTITION_STYLE_MBR), ERROR_ACCESS_DENIED);
  EXPECT_EQ(Create(OpenDisk(GENERIC_WRITE), PARTITION_STYLE_MBR), ERROR_ACCESS_DENIED);
  std::vector<std::byte> layout(kWholeLayout);
  EXPECT_EQ(SetLayout(OpenDisk(GENERIC_READ), layout), ERROR_ACCESS_DENIED);
  EXPECT_EQ(GetLayout(OpenDisk(0), layout), ERROR_SUCCESS);
  EXPECT_EQ(machine_.volumes().size(), 2u);
}

TEST_F(DiskDeviceTest, SetLayoutChecksItsLength) {
  AttachTwoPartitions();
  const HANDLE disk = OpenDisk();
  std::vector<std::byte> layout(kWholeLayout);
  ASSERT_EQ(GetLayout(disk, layout), ERROR_SUCCESS);
  std::vector<std::byte> cut(layout.begin(), layout.begin() + 191);
  EXPECT_EQ(SetLayout(disk, cut), ERROR_BAD_LENGTH);
  cut.assign(layout.begin(), layout.begin() + kHeader + 2 * kRow - 1);
  EXPECT_EQ(SetLayout(disk, cut), ERROR_BAD_LENGTH);
  std::memset(layout.data() + 4, 0xFF, 4);
  EXPECT_EQ(SetLayout(disk, layout), ERROR_BAD_LENGTH);
}

TEST_F(DiskDeviceTest, SetLayoutRefusesARowOfAnUnknownStyle) {
  AttachTwoPartitions();
  const HANDLE disk = OpenDisk();
  std::vector<std::byte> layout(kWholeLayout);
  ASSERT_EQ(GetLayout(disk, layout), ERROR_SUCCESS);
  layout[kHeader + kRow] = std::byte{200};
  EXPECT_EQ(SetLayout(disk, layout), ERROR_INVALID_PARAMETER);
}

TEST_F(DiskDeviceTest, SetLayoutTakesALongerBufferAndAnswersWithNumbers) {
  AttachTwoPartitions();
  const HANDLE disk = OpenDisk();
  std::vector<std::byte> layout(kWholeLayout);
  ASSERT_EQ(GetLayout(disk, layout), ERROR_SUCCESS);
  std::memset(layout.data() + kHeader + 24, 0x77, 4);  // the number of the first row
  std::vector<std::byte> out(kWholeLayout);
  ASSERT_EQ(SetLayout(disk, layout, out), ERROR_SUCCESS);
  EXPECT_EQ(returned_, kHeader + 2 * kRow);
  EXPECT_EQ(RowIn(out, 0).PartitionNumber, 1u);
  EXPECT_EQ(RowIn(out, 1).PartitionNumber, 2u);
}

TEST_F(DiskDeviceTest, SetLayoutKeepsUnchangedPartitionsAndTheirLetters) {
  AttachTwoPartitions();
  const HANDLE disk = OpenDisk();
  const std::uint64_t kept = machine_.FindVolumeAt(1, 16 * kMegabyte)->arrival;
  std::vector<std::byte> layout(kWholeLayout);
  ASSERT_EQ(GetLayout(disk, layout), ERROR_SUCCESS);
  const LONGLONG shorter = 7 * kMegabyte;
  std::memcpy(layout.data() + kHeader + 16, &shorter, sizeof shorter);
  const std::uint64_t changed = machine_.FindVolumeAt(1, kMegabyte)->arrival;
  ASSERT_EQ(SetLayout(disk, layout), ERROR_SUCCESS);
  EXPECT_EQ(machine_.FindVolumeAt(1, 16 * kMegabyte)->arrival, kept);
  EXPECT_NE(machine_.FindVolumeAt(1, kMegabyte)->arrival, changed);
  // The same partition GUID brings the same letter back.
  EXPECT_EQ(machine_.LettersOf(*machine_.FindVolumeAt(1, kMegabyte)), "C");
}

TEST_F(DiskDeviceTest, SetLayoutWithoutRowsMakesANewTable) {
  AttachTwoPartitions();
  const HANDLE disk = OpenDisk();
  std::vector<std::byte> layout(sizeof(DRIVE_LAYOUT_INFORMATION_EX));
  ASSERT_EQ(SetLayout(disk, layout), ERROR_SUCCESS);
  EXPECT_TRUE(machine_.volumes().empty());
  std::vector<std::byte> back(kWholeLayout);
  ASSERT_EQ(GetLayout(disk, back), ERROR_SUCCESS);
  EXPECT_EQ(back[0], std::byte{PARTITION_STYLE_MBR});
}

TEST_F(DiskDeviceTest, ADiskIsNoVolume) {
  AttachTwoPartitions();
  EXPECT_EQ(Control(OpenDisk(), FSCTL_DISMOUNT_VOLUME), ERROR_INVALID_PARAMETER);
}

TEST_F(DiskDeviceTest, RefusesCodesThatItDoesNotKnow) {
  AttachTwoPartitions();
  EXPECT_EQ(Control(OpenDisk(), IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS), ERROR_INVALID_FUNCTION);
  EXPECT_EQ(Control(OpenDisk(), 0x12340), ERROR_INVALID_FUNCTION);
}

TEST_F(DiskDeviceTest, AnOfflineDiskHasNoVolumes) {
  simulator::Disk& disk = AttachTwoPartitions();
  disk.set_online(false);
  machine_.UpdateProperties(disk);
  EXPECT_TRUE(machine_.volumes().empty());
  disk.set_online(true);
  machine_.UpdateProperties(disk);
  EXPECT_EQ(machine_.LettersOf(*machine_.FindVolumeByPath(GptVolumePath(2))), "D");
}

}  // namespace
}  // namespace testing_support
