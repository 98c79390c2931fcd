#include <cstring>

#include "simulator/disk.h"
#include "simulator/mount_manager.h"
#include "simulator/seam_fixture.h"
#include "simulator/volume.h"

namespace testing_support {
namespace {

class DiskDeviceTest : public SeamTest {
 protected:
  // One NTFS partition of 8 MiB at 1 MiB, one without a file system at 16 MiB.
  simulator::Disk& AttachTwoPartitions() {
    return AttachGpt(
        1, {GptRow(kMegabyte, 8 * kMegabyte, 1), GptRow(16 * kMegabyte, 8 * kMegabyte, 2)},
        {kMegabyte});
  }

  static HANDLE OpenDisk() { return Open("\\\\.\\PhysicalDrive1"); }
};

TEST_F(DiskDeviceTest, SectorsOf4096BytesCount) {
  machine_.AttachDisk(1, NewImage("raw.img", kMegabyte), 4096);
  const HANDLE disk = OpenDisk();
  std::vector<std::byte> sector(4096);
  std::vector<std::byte> part(512);
  EXPECT_EQ(ReadAt(disk, 0, part), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(ReadAt(disk, 4096, sector), ERROR_SUCCESS);
}

TEST_F(DiskDeviceTest, ATransferAtTheTopOfTheRangeIsRefused) {
  machine_.AttachDisk(1, NewImage("raw.img", kMegabyte));
  std::vector<std::byte> two(1024);
  EXPECT_EQ(ReadAt(OpenDisk(), 0x7FFFFFFFFFFFFE00, two), ERROR_SECTOR_NOT_FOUND);
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

TEST_F(DiskDeviceTest, ARescanLooksAgain) {
  simulator::Disk& disk = AttachTwoPartitions();
  ASSERT_TRUE(disk.device().Zero(0, 34 * 512));
  EXPECT_EQ(machine_.volumes().size(), 2U);
  machine_.Rescan();
  EXPECT_TRUE(machine_.volumes().empty());
}

TEST_F(DiskDeviceTest, CreateDiskMakesTheReservedPartitionWhereToldTo) {
  simulator::Disk& disk = machine_.AttachDisk(1, NewImage("raw.img", 64 * kMegabyte));
  machine_.switches().create_disk_makes_reserved_partition = true;
  CREATE_DISK request{};
  request.PartitionStyle = PARTITION_STYLE_GPT;
  ASSERT_TRUE(win32::DeviceIoControl(OpenDisk(), IOCTL_DISK_CREATE_DISK, &request, sizeof request,
                                     nullptr, 0, &done_, nullptr));
  simulator::DiskLayout layout;
  ASSERT_EQ(disk.Layout(layout), ERROR_SUCCESS);
  ASSERT_EQ(layout.rows.size(), 1U);
  EXPECT_EQ(layout.rows[0].StartingOffset.QuadPart, 17408);
  EXPECT_EQ(layout.rows[0].StartingOffset.QuadPart + layout.rows[0].PartitionLength.QuadPart,
            static_cast<LONGLONG>(16 * kMegabyte));
  EXPECT_TRUE(machine_.volumes().empty());
}

TEST_F(DiskDeviceTest, SetLayoutRefusesACountThatNoBufferHolds) {
  AttachTwoPartitions();
  std::vector<std::byte> layout(sizeof(DRIVE_LAYOUT_INFORMATION_EX));
  std::memset(layout.data() + 4, 0xFF, 4);
  EXPECT_FALSE(win32::DeviceIoControl(OpenDisk(), IOCTL_DISK_SET_DRIVE_LAYOUT_EX, layout.data(),
                                      static_cast<DWORD>(layout.size()), nullptr, 0, &done_,
                                      nullptr));
  EXPECT_EQ(win32::GetLastError(), ERROR_BAD_LENGTH);
}

}  // namespace
}  // namespace testing_support
