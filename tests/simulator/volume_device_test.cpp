#include <array>
#include <cstring>

#include "simulator/disk.h"
#include "simulator/seam_fixture.h"
#include "simulator/storage/partition_store.h"
#include "simulator/volume.h"

namespace testing_support {
namespace {

class VolumeDeviceTest : public SeamTest {
 protected:
  // NTFS in 8 MiB at 1 MiB, nothing in 8 MiB at 16 MiB.
  void SetUp() override {
    disk_ = &AttachGpt(
        1, {GptRow(kMegabyte, 8 * kMegabyte, 1), GptRow(16 * kMegabyte, 8 * kMegabyte, 2)},
        {kMegabyte});
    ntfs_ = Open(GptVolumePath(1));
    raw_ = Open(GptVolumePath(2));
    ASSERT_NE(ntfs_, INVALID_HANDLE_VALUE);
    ASSERT_NE(raw_, INVALID_HANDLE_VALUE);
  }

  DWORD Extents(HANDLE volume, std::span<std::byte> out) {
    const BOOL success =
        win32::DeviceIoControl(volume, IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS, nullptr, 0, out.data(),
                               static_cast<DWORD>(out.size()), &returned_, nullptr);
    return success != FALSE ? ERROR_SUCCESS : win32::GetLastError();
  }

  static DWORD Number(HANDLE volume, STORAGE_DEVICE_NUMBER& number) {
    DWORD returned = 0;
    const BOOL success = win32::DeviceIoControl(volume, IOCTL_STORAGE_GET_DEVICE_NUMBER, nullptr, 0,
                                                &number, sizeof number, &returned, nullptr);
    return success != FALSE ? ERROR_SUCCESS : win32::GetLastError();
  }

  std::vector<std::byte> sector_ = std::vector<std::byte>(512, std::byte{0x77});
  simulator::Disk* disk_ = nullptr;
  HANDLE ntfs_ = nullptr;
  HANDLE raw_ = nullptr;
  DWORD returned_ = 0;
};

TEST_F(VolumeDeviceTest, AWriteBehindTheEndSucceedsWithNothing) {
  EXPECT_EQ(WriteAt(raw_, 9 * kMegabyte, sector_), ERROR_SUCCESS);
  EXPECT_EQ(done_, 0u);
  std::vector<std::byte> buffer(512);
  ASSERT_TRUE(disk_->device().Read(25 * kMegabyte, buffer));
  EXPECT_EQ(buffer, std::vector<std::byte>(512));
}

TEST_F(VolumeDeviceTest, TheFileSystemIsLookedAtWhenItIsMounted) {
  ASSERT_EQ(Control(ntfs_, FSCTL_DISMOUNT_VOLUME), ERROR_SUCCESS);
  ASSERT_EQ(WriteAt(ntfs_, 0, std::vector<std::byte>(512)), ERROR_SUCCESS);
  simulator::Volume* volume = machine_.FindVolumeAt(1, kMegabyte);
  EXPECT_EQ(volume->file_system, simulator::FileSystem::kNtfs);
  Open(GptVolumePath(1));
  EXPECT_EQ(volume->file_system, simulator::FileSystem::kNone);
  EXPECT_FALSE(volume->mounted);
}

TEST_F(VolumeDeviceTest, AnotherHandleCannotDismountALockedVolume) {
  const HANDLE other = Open(GptVolumePath(1));
  ASSERT_EQ(Control(ntfs_, FSCTL_LOCK_VOLUME), ERROR_SUCCESS);
  EXPECT_EQ(Control(other, FSCTL_DISMOUNT_VOLUME), ERROR_ACCESS_DENIED);
  EXPECT_EQ(Control(ntfs_, FSCTL_DISMOUNT_VOLUME), ERROR_SUCCESS);
}

TEST_F(VolumeDeviceTest, AHandleOutlivesItsVolumeWithoutUse) {
  const CREATE_DISK request{};
  ASSERT_EQ(machine_.CreateDisk(*disk_, request), ERROR_SUCCESS);
  std::array<std::byte, 32> out{};
  STORAGE_DEVICE_NUMBER number{};
  EXPECT_EQ(ReadAt(raw_, 0, sector_), ERROR_NOT_READY);
  EXPECT_EQ(WriteAt(raw_, 0, sector_), ERROR_NOT_READY);
  EXPECT_EQ(Extents(raw_, out), ERROR_NOT_READY);
  EXPECT_EQ(Number(raw_, number), ERROR_NOT_READY);
  EXPECT_EQ(Control(raw_, FSCTL_LOCK_VOLUME), ERROR_NOT_READY);
  EXPECT_EQ(Control(raw_, FSCTL_DISMOUNT_VOLUME), ERROR_NOT_READY);
}

TEST_F(VolumeDeviceTest, ANewVolumeOfTheSameNameIsAnother) {
  simulator::DiskLayout before;
  ASSERT_EQ(disk_->Layout(before), ERROR_SUCCESS);
  CREATE_DISK request{};
  request.PartitionStyle = PARTITION_STYLE_GPT;
  ASSERT_EQ(machine_.CreateDisk(*disk_, request), ERROR_SUCCESS);
  ASSERT_EQ(machine_.SetLayout(*disk_, before), ERROR_SUCCESS);
  ASSERT_NE(machine_.FindVolumeByPath(GptVolumePath(1)), nullptr);
  EXPECT_EQ(ReadAt(ntfs_, 0, sector_), ERROR_NOT_READY);
}

TEST_F(VolumeDeviceTest, MoreExtentsThanFitGiveTheirCount) {
  simulator::Volume spanned;
  spanned.path = "\\\\?\\Volume{spanned}";
  spanned.extents = {{5, 100, 200}, {6, 300, 400}};
  machine_.AddVolume(spanned);
  const HANDLE volume = Open(spanned.path);
  std::array<std::byte, 56> out{};
  EXPECT_EQ(Extents(volume, std::span(out).first(55)), ERROR_MORE_DATA);
  EXPECT_EQ(out[0], std::byte{2});
  EXPECT_EQ(out[8], std::byte{0});
  ASSERT_EQ(Extents(volume, out), ERROR_SUCCESS);
  DISK_EXTENT second{};
  std::memcpy(&second, out.data() + 32, sizeof second);
  EXPECT_EQ(second.DiskNumber, 6u);
  EXPECT_EQ(second.StartingOffset.QuadPart, 300);
  STORAGE_DEVICE_NUMBER number{};
  EXPECT_EQ(Number(volume, number), ERROR_INVALID_FUNCTION);
  EXPECT_EQ(ReadAt(volume, 0, sector_), ERROR_NOT_READY);
}

TEST_F(VolumeDeviceTest, AVolumeWithoutExtentsDoesNotKnowTheCode) {
  simulator::Volume optical;
  optical.path = "\\\\?\\Volume{optical}";
  machine_.AddVolume(optical);
  std::array<std::byte, 32> out{};
  EXPECT_EQ(Extents(Open(optical.path), out), ERROR_INVALID_FUNCTION);
}

TEST_F(VolumeDeviceTest, RefusesCodesThatItDoesNotKnow) {
  EXPECT_EQ(Control(raw_, IOCTL_DISK_CREATE_DISK), ERROR_INVALID_FUNCTION);
}

// A start near 2^64 must not lead a transfer around to the front of the disk.
TEST_F(VolumeDeviceTest, AnExtentOutsideTheDiskIsNotReached) {
  simulator::Volume wrapped;
  wrapped.path = "\\\\?\\Volume{wrapped}";
  wrapped.extents = {{1, ~std::uint64_t{511}, 4096}};
  machine_.AddVolume(wrapped);
  const HANDLE volume = Open(wrapped.path);
  EXPECT_EQ(ReadAt(volume, 512, sector_), ERROR_SECTOR_NOT_FOUND);
  EXPECT_EQ(WriteAt(volume, 0, sector_), ERROR_SECTOR_NOT_FOUND);
}

}  // namespace
}  // namespace testing_support
