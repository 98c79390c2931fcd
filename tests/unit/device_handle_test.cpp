#include "disk/device_handle.h"

#include "platform/win32.h"
#include "simulator/volume.h"
#include "two_volumes_fixture.h"

namespace testing_support {
namespace {

using Handles = std::vector<std::string>;

constexpr char kDiskPath[] = "\\\\.\\PhysicalDrive1";
constexpr char kDeviceNumberCall[] = "DeviceIoControl/IOCTL_STORAGE_GET_DEVICE_NUMBER";
constexpr std::uint32_t kUntouched = 0xCDCDCDCD;

class GetDeviceHandleById : public TwoVolumesTest {};
class GetDeviceHandleByIndex : public TwoVolumesTest {};
class WideOpen : public TwoVolumesTest {};
class CloseDeviceHandle : public TwoVolumesTest {};
class GetDeviceIndexByHandle : public TwoVolumesTest {};
class GetDeviceIndex : public TwoVolumesTest {};

TEST_F(GetDeviceHandleById, GivesAHandleThatReadsAndWrites) {
  HANDLE handle = velkora::GetDeviceHandleById(kDiskPath);
  ASSERT_NE(handle, INVALID_HANDLE_VALUE);
  Sector sector{};
  sector[7] = 0x5A;
  DWORD done = 0;
  EXPECT_TRUE(win32::WriteFile(handle, sector.data(), 512, &done, nullptr));
  EXPECT_TRUE(win32::ReadFile(handle, sector.data(), 512, &done, nullptr));
  EXPECT_EQ(ReadSector(disk_, 0)[7], 0x5A);
  EXPECT_EQ(log_, Log{});
  velkora::CloseDeviceHandle(handle);
}

TEST_F(GetDeviceHandleById, AsksForReadingAndWritingAndSharesBoth) {
  HANDLE handle = velkora::GetDeviceHandleById(kDiskPath);
  EXPECT_EQ(machine_.calls().calls().back().arguments,
            "access 0xc0000000 share 0x3 disposition 3 flags 0x0");
  velkora::CloseDeviceHandle(handle);
}

TEST_F(WideOpen, AsksForTheSameWithoutFlags) {
  HANDLE handle = velkora::GetDeviceHandleByIdW(WIDE("\\\\.\\PhysicalDrive1"));
  EXPECT_EQ(machine_.calls().calls().back().arguments,
            "access 0xc0000000 share 0x3 disposition 3 flags 0x0");
  velkora::CloseDeviceHandle(handle);
}

TEST_F(WideOpen, PastTheCacheAsksForWriteThroughNoBufferingAndBackupSemantics) {
  HANDLE handle = velkora::GetDeviceHandleUnbuffered(WIDE("\\\\.\\PhysicalDrive1"));
  EXPECT_EQ(machine_.calls().calls().back().arguments,
            "access 0xc0000000 share 0x3 disposition 3 flags 0xa2000000");
  velkora::CloseDeviceHandle(handle);
}

TEST_F(GetDeviceHandleById, OpensADiskTwiceAtOnce) {
  HANDLE first = velkora::GetDeviceHandleById(kDiskPath);
  HANDLE second = velkora::GetDeviceHandleById(kDiskPath);
  EXPECT_EQ(machine_.handles().Open().size(), 2U);
  velkora::CloseDeviceHandle(first);
  velkora::CloseDeviceHandle(second);
}

TEST_F(GetDeviceHandleById, FailureIsLoggedWithPathAndError) {
  machine_.calls().FailOn("CreateFileA", 1, 32);
  EXPECT_EQ(velkora::GetDeviceHandleById(kDiskPath), INVALID_HANDLE_VALUE);
  EXPECT_EQ(log_, (Log{{3,
                        "open device failed, device_id: \\\\.\\PhysicalDrive1, "
                        "error_code: 32"}}));
  EXPECT_EQ(win32::GetLastError(), 32U);
}

TEST_F(GetDeviceHandleByIndex, OpensTheDiskOfThatNumber) {
  const std::uint32_t index = 1;
  HANDLE handle = velkora::GetDeviceHandleByIndex(&index);
  EXPECT_EQ(machine_.calls().Count("CreateFileA/\\\\.\\PhysicalDrive1"), 1U);
  EXPECT_EQ(machine_.handles().Open(), Handles{"disk 1"});
  velkora::CloseDeviceHandle(handle);
}

TEST_F(GetDeviceHandleByIndex, PrintsTheNumberWithASign) {
  const std::uint32_t index = 0xFFFFFFFF;
  EXPECT_EQ(velkora::GetDeviceHandleByIndex(&index), INVALID_HANDLE_VALUE);
  EXPECT_EQ(machine_.calls().Count("CreateFileA/\\\\.\\PhysicalDrive-1"), 1U);
}

TEST_F(GetDeviceHandleByIndex, FailureIsThatOfTheOpenByPath) {
  const std::uint32_t index = 12;
  machine_.calls().FailOn("CreateFileA", 1, 21);
  EXPECT_EQ(velkora::GetDeviceHandleByIndex(&index), INVALID_HANDLE_VALUE);
  EXPECT_EQ(log_, (Log{{3,
                        "open device failed, device_id: \\\\.\\PhysicalDrive12, "
                        "error_code: 21"}}));
}

TEST_F(WideOpen, OpensADevice) {
  HANDLE plain = velkora::GetDeviceHandleByIdW(WIDE("\\\\.\\PhysicalDrive1"));
  HANDLE unbuffered = velkora::GetDeviceHandleUnbuffered(WIDE("\\\\.\\PhysicalDrive1"));
  EXPECT_EQ(machine_.handles().Open(), (Handles{"disk 1", "disk 1"}));
  EXPECT_EQ(machine_.calls().Count("CreateFileW"), 2U);
  EXPECT_EQ(machine_.calls().Count("CreateFileA"), 0U);
  velkora::CloseDeviceHandle(plain);
  velkora::CloseDeviceHandle(unbuffered);
}

TEST_F(WideOpen, FailureIsNotLogged) {
  machine_.calls().FailOn("CreateFileW", 1, 5, simulator::Repeat::kFromThenOn);
  EXPECT_EQ(velkora::GetDeviceHandleByIdW(WIDE("\\\\.\\PhysicalDrive1")), INVALID_HANDLE_VALUE);
  EXPECT_EQ(win32::GetLastError(), 5U);
  EXPECT_EQ(velkora::GetDeviceHandleUnbuffered(WIDE("\\\\.\\PhysicalDrive1")),
            INVALID_HANDLE_VALUE);
  EXPECT_EQ(log_, Log{});
}

TEST_F(CloseDeviceHandle, ClosesAndMarksTheVariable) {
  HANDLE handle = velkora::GetDeviceHandleById(kDiskPath);
  velkora::CloseDeviceHandle(handle);
  EXPECT_EQ(handle, INVALID_HANDLE_VALUE);
  EXPECT_EQ(machine_.handles().Open(), Handles{});
}

TEST_F(CloseDeviceHandle, LeavesAHandleThatIsNotOpenAlone) {
  HANDLE handle = INVALID_HANDLE_VALUE;
  velkora::CloseDeviceHandle(handle);
  EXPECT_EQ(handle, INVALID_HANDLE_VALUE);
  EXPECT_EQ(machine_.calls().Count("CloseHandle"), 0U);
}

TEST_F(GetDeviceIndexByHandle, TellsDiskAndPartitionOfAVolume) {
  HANDLE handle = velkora::GetDeviceHandleById(PathAt(kSecondOffset).c_str());
  std::uint32_t device = kUntouched;
  std::uint32_t partition = kUntouched;
  EXPECT_TRUE(velkora::GetDeviceIndexByHandle(handle, &device, true));
  EXPECT_TRUE(velkora::GetDeviceIndexByHandle(handle, &partition, false));
  EXPECT_EQ(device, 1U);
  EXPECT_EQ(partition, 2U);
  EXPECT_EQ(log_, Log{});
  velkora::CloseDeviceHandle(handle);
}

TEST_F(GetDeviceIndexByHandle, FailureIsLoggedAndStoresNothing) {
  HANDLE handle = velkora::GetDeviceHandleById(kDiskPath);
  machine_.calls().FailOn(kDeviceNumberCall, 1, 1117);
  std::uint32_t number = kUntouched;
  EXPECT_FALSE(velkora::GetDeviceIndexByHandle(handle, &number, true));
  EXPECT_EQ(number, kUntouched);
  EXPECT_EQ(log_, (Log{{3, "DeviceIoControl with IOCTL_STORAGE_GET_DEVICE_NUMBER error 1117"}}));
  EXPECT_EQ(machine_.handles().Open(), Handles{"disk 1"});
  velkora::CloseDeviceHandle(handle);
}

TEST_F(GetDeviceIndexByHandle, HandleThatIsNotOpenIsErrorSix) {
  std::uint32_t number = kUntouched;
  EXPECT_FALSE(velkora::GetDeviceIndexByHandle(INVALID_HANDLE_VALUE, &number, false));
  EXPECT_EQ(number, kUntouched);
  EXPECT_EQ(log_, (Log{{3, "DeviceIoControl with IOCTL_STORAGE_GET_DEVICE_NUMBER error 6"}}));
}

TEST_F(GetDeviceIndex, TellsThePartitionOfAVolumePath) {
  std::uint32_t number = kUntouched;
  EXPECT_TRUE(velkora::GetDeviceIndex(PathAt(kSecondOffset), &number, false));
  EXPECT_EQ(number, 2U);
  EXPECT_EQ(machine_.handles().Open(), Handles{});
}

TEST_F(GetDeviceIndex, WholeDiskHasThePartitionNumberThatThePlatformGives) {
  std::uint32_t number = kUntouched;
  EXPECT_TRUE(velkora::GetDeviceIndex(kDiskPath, &number, false));
  EXPECT_EQ(number, 0U);
  EXPECT_TRUE(velkora::GetDeviceIndex(kDiskPath, &number, true));
  EXPECT_EQ(number, 1U);
}

TEST_F(GetDeviceIndex, FailedOpenGivesFalse) {
  machine_.calls().FailOn("CreateFileA", 1, 3);
  std::uint32_t number = kUntouched;
  EXPECT_FALSE(velkora::GetDeviceIndex(kDiskPath, &number, true));
  EXPECT_EQ(number, kUntouched);
  EXPECT_EQ(log_, (Log{{3,
                        "open device failed, device_id: \\\\.\\PhysicalDrive1, "
                        "error_code: 3"}}));
  EXPECT_EQ(machine_.calls().Count(kDeviceNumberCall), 0U);
}

TEST_F(GetDeviceIndex, FailedQueryClosesTheHandle) {
  machine_.calls().FailOn(kDeviceNumberCall, 1, 50);
  std::uint32_t number = kUntouched;
  EXPECT_FALSE(velkora::GetDeviceIndex(kDiskPath, &number, true));
  EXPECT_EQ(log_, (Log{{3, "DeviceIoControl with IOCTL_STORAGE_GET_DEVICE_NUMBER error 50"}}));
  EXPECT_EQ(machine_.handles().Open(), Handles{});
}

}  // namespace
}  // namespace testing_support
