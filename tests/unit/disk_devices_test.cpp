#include "disk/disk_devices.h"

#include "disk/device_handle.h"
#include "frame/global_context.h"
#include "logging/log.h"
#include "platform/guard.h"
#include "platform/win32.h"
#include "simulator/disk.h"
#include "support/machine_fixture.h"

namespace testing_support {
namespace {

constexpr char kDetailCall[] = "SetupDiGetDeviceInterfaceDetailA";
constexpr char kEnumerateCall[] = "SetupDiEnumDeviceInterfaces";
constexpr char kQueryCall[] = "DeviceIoControl/IOCTL_STORAGE_QUERY_PROPERTY";
constexpr char kGeometryCall[] = "DeviceIoControl/IOCTL_DISK_GET_DRIVE_GEOMETRY_EX";

class DiskDevicesTest : public MachineTest {
 protected:
  DiskDevicesTest() : first_(NewDisk(1, 4 * kMiB)), second_(NewDisk(2, 8 * kMiB)) {
    first_.identity.interface_path = "\\\\?\\first";
    second_.identity.interface_path = "\\\\?\\second";
    machine_.calls().Clear();
    win32::SetLastError(ERROR_SUCCESS);
  }

  simulator::Disk& first_;
  simulator::Disk& second_;
};

class GetDiskDevicePaths : public DiskDevicesTest {};

class GetDiskSerialId : public DiskDevicesTest {
 protected:
  GetDiskSerialId() : handle_(velkora::GetDeviceHandleById("\\\\?\\first")) {}

  bool Query() { return velkora::GetDiskSerialId(handle_, serial_); }

  HANDLE handle_;
  std::string serial_ = "an earlier one";
};

class GetDiskSize : public DiskDevicesTest {};

TEST_F(GetDiskDevicePaths, AppendsThePathsOfAllDisksInTheSystemsOrder) {
  Texts paths = {"an earlier one"};
  EXPECT_TRUE(velkora::GetDiskDevicePaths(paths));
  EXPECT_EQ(paths, (Texts{"an earlier one", "\\\\?\\first", "\\\\?\\second"}));
  EXPECT_EQ(
      machine_.calls().Lines(),
      (Texts{"SetupDiGetClassDevsW flags 18", "SetupDiEnumDeviceInterfaces index 0",
             "SetupDiGetDeviceInterfaceDetailA size 2048", "SetupDiEnumDeviceInterfaces index 1",
             "SetupDiGetDeviceInterfaceDetailA size 2048", "SetupDiEnumDeviceInterfaces index 2"}));
  EXPECT_EQ(log_, Log{});
}

TEST_F(GetDiskDevicePaths, LeavesTheDeviceInformationSetOpen) {
  Texts paths;
  EXPECT_TRUE(velkora::GetDiskDevicePaths(paths));
  EXPECT_EQ(machine_.handles().Open(), Texts{"device information set"});
}

TEST_F(GetDiskDevicePaths, ShorterPathBehindALongerOneHasNoTail) {
  first_.identity.interface_path = "\\\\?\\a much longer path";
  Texts paths;
  EXPECT_TRUE(velkora::GetDiskDevicePaths(paths));
  EXPECT_EQ(paths, (Texts{"\\\\?\\a much longer path", "\\\\?\\second"}));
}

// Of the 2048 bytes of the detail four stand in front of the path and one ends it.
TEST_F(GetDiskDevicePaths, PathThatDoesNotFitTheDetailIsLoggedAndLeftOut) {
  first_.identity.interface_path = std::string(2044, 'p');
  second_.identity.interface_path = std::string(2043, 'q');
  Texts paths;
  EXPECT_TRUE(velkora::GetDiskDevicePaths(paths));
  EXPECT_EQ(paths, Texts{std::string(2043, 'q')});
  EXPECT_EQ(log_, (Log{{3, "SetupDiGetDeviceInterfaceDetailA error 122"}}));
}

TEST_F(GetDiskDevicePaths, SetThatCannotBeOpenedIsLogged) {
  machine_.calls().FailOn("SetupDiGetClassDevsW", 1, 13);
  Texts paths;
  EXPECT_FALSE(velkora::GetDiskDevicePaths(paths));
  EXPECT_EQ(machine_.calls().Count(kEnumerateCall), 0U);
  EXPECT_EQ(log_, (Log{{3, "SetupDiGetClassDevs or SetupDiEnumDeviceInterfaces error 13"}}));
}

TEST_F(GetDiskDevicePaths, MachineWithoutDisksIsLoggedWithTheEndOfTheList) {
  first_.identity.interface_path.clear();
  second_.identity.interface_path.clear();
  Texts paths;
  EXPECT_FALSE(velkora::GetDiskDevicePaths(paths));
  EXPECT_EQ(log_, (Log{{3, "SetupDiGetClassDevs or SetupDiEnumDeviceInterfaces error 259"}}));
}

// The list is never emptied: what the caller left in it counts as found.
TEST_F(GetDiskDevicePaths, ListThatWasNotEmptyHidesAFailure) {
  machine_.calls().FailOn("SetupDiGetClassDevsW");
  Texts paths = {"an earlier one"};
  EXPECT_TRUE(velkora::GetDiskDevicePaths(paths));
  EXPECT_EQ(log_, Log{});
}

TEST_F(GetDiskDevicePaths, DiskWithoutAPathIsLoggedAndLeftOut) {
  machine_.calls().FailOn(kDetailCall, 1, 1168);
  Texts paths;
  EXPECT_TRUE(velkora::GetDiskDevicePaths(paths));
  EXPECT_EQ(paths, Texts{"\\\\?\\second"});
  EXPECT_EQ(log_, (Log{{3, "SetupDiGetDeviceInterfaceDetailA error 1168"}}));
}

TEST_F(GetDiskDevicePaths, NoPathAtAllIsAFailureWithTheEndOfTheListAsItsError) {
  machine_.calls().FailOn(kDetailCall, 1, 1168, simulator::Repeat::kFromThenOn);
  Texts paths;
  EXPECT_FALSE(velkora::GetDiskDevicePaths(paths));
  EXPECT_EQ(log_, (Log{{3, "SetupDiGetDeviceInterfaceDetailA error 1168"},
                       {3, "SetupDiGetDeviceInterfaceDetailA error 1168"},
                       {3, "SetupDiGetClassDevs or SetupDiEnumDeviceInterfaces error 259"}}));
}

TEST_F(GetDiskDevicePaths, StopBeforeTheFirstMemberFailsWithAStaleError) {
  velkora::GetGlobalContext().stop_requested = 1;
  win32::SetLastError(4711);
  Texts paths;
  EXPECT_FALSE(velkora::GetDiskDevicePaths(paths));
  EXPECT_EQ(machine_.calls().Count(kDetailCall), 0U);
  EXPECT_EQ(log_, (Log{{3, "SetupDiGetClassDevs or SetupDiEnumDeviceInterfaces error 4711"}}));
}

TEST_F(GetDiskDevicePaths, StopBehindTheFirstMemberCutsTheListAndSucceeds) {
  // The log of the failing first member is where another thread asks for the stop.
  simulator::Disk& third = NewDisk(3, kMiB);
  third.identity.interface_path = "\\\\?\\third";
  machine_.calls().FailOn(kDetailCall, 2, 1168);
  struct Stop {
    static void AtLine(void*, const char*, int, const char*) {
      velkora::GetGlobalContext().stop_requested = 1;
    }
  };
  const velkora::LogObserver observer{&Stop::AtLine, nullptr};
  velkora::InitLogEx(nullptr, velkora::kLogModule, &observer, nullptr);
  Texts paths;
  EXPECT_TRUE(velkora::GetDiskDevicePaths(paths));
  EXPECT_EQ(paths, Texts{"\\\\?\\first"});
  EXPECT_EQ(machine_.calls().Count(kDetailCall), 2U);
}

TEST_F(GetDiskSerialId, ReplacesTheTextByTheSerialNumberWithItsBlanks) {
  first_.identity.serial_number = "  WD-1234  ";
  EXPECT_TRUE(Query());
  EXPECT_EQ(serial_, "  WD-1234  ");
  EXPECT_EQ(log_, Log{});
}

TEST_F(GetDiskSerialId, AsksForTheHeaderAndThenForTheWhole) {
  first_.identity.serial_number = "123456";
  machine_.calls().Clear();
  EXPECT_TRUE(Query());
  EXPECT_EQ(machine_.calls().Lines(), (Texts{std::string(kQueryCall) + " disk 1 in 12 out 8",
                                             std::string(kQueryCall) + " disk 1 in 12 out 43"}));
}

TEST_F(GetDiskSerialId, OffsetZeroGivesTheDescriptorsFirstBytes) {
  first_.identity.serial_number.reset();
  EXPECT_TRUE(Query());
  EXPECT_EQ(serial_, "(");  // the version, 40
}

TEST_F(GetDiskSerialId, OffsetAtOrBehindTheEndGivesAnEmptyText) {
  for (const DWORD offset : {43U, 44U, 0xFFFFFFFFU}) {
    first_.identity.serial_number = "123456";
    first_.identity.told_serial_offset = offset;
    serial_ = "an earlier one";
    EXPECT_TRUE(Query()) << offset;
    EXPECT_EQ(serial_, "") << offset;
  }
  EXPECT_EQ(log_, Log{});
}

TEST_F(GetDiskSerialId, TextWithoutAnEndStopsAtTheDescriptorsEnd) {
  first_.identity.serial_number = "123456";
  first_.identity.told_size = 36 + 4;
  EXPECT_TRUE(Query());
  EXPECT_EQ(serial_, "1234");
}

TEST_F(GetDiskSerialId, DescriptorOfSizeZeroLogsTwoLines) {
  first_.identity.told_size = 0;
  win32::SetLastError(4711);
  EXPECT_FALSE(Query());
  EXPECT_EQ(serial_, "an earlier one");
  EXPECT_EQ(log_, (Log{{3,
                        "DeviceIoControl with IOCTL_STORAGE_QUERY_PROPERTY "
                        "STORAGE_DESCRIPTOR_HEADER Size == 0 4711"},
                       {3, "DeviceIoControl with IOCTL_STORAGE_QUERY_PROPERTY error 4711"}}));
}

TEST_F(GetDiskSerialId, DescriptorTooShortForThePlaceOfTheNumberIsAnAccessViolation) {
  first_.identity.told_size = 27;
  EXPECT_THROW(Query(), win32::Fault);
  first_.identity.told_size = 28;
  first_.identity.told_serial_offset = 27;
  EXPECT_TRUE(Query());
  EXPECT_EQ(serial_, "");
}

TEST_F(GetDiskSerialId, FailureOfEitherQueryIsLogged) {
  for (const std::size_t occurrence : {1U, 2U}) {
    log_.clear();
    machine_.calls().FailOn(kQueryCall, occurrence, 1117);
    EXPECT_FALSE(Query());
    EXPECT_EQ(serial_, "an earlier one");
    EXPECT_EQ(log_, (Log{{3, "DeviceIoControl with IOCTL_STORAGE_QUERY_PROPERTY error 1117"}}));
  }
}

TEST_F(GetDiskSize, GivesTheBytesOfTheDisk) {
  const HANDLE handle = velkora::GetDeviceHandleById("\\\\?\\second");
  std::uint64_t size = 0;
  EXPECT_TRUE(velkora::GetDiskSize(&handle, &size));
  EXPECT_EQ(size, 8 * kMiB);
  EXPECT_EQ(log_, (Log{{1, "Get Disk Size..."}, {1, "Get Disk Size End!"}}));
  EXPECT_EQ(machine_.calls().Lines().back(), std::string(kGeometryCall) + " disk 2 in 0 out 40");
}

TEST_F(GetDiskSize, FailureStoresAndLogsNothingMore) {
  const HANDLE handle = velkora::GetDeviceHandleById("\\\\?\\second");
  machine_.calls().FailOn(kGeometryCall);
  std::uint64_t size = 4711;
  EXPECT_FALSE(velkora::GetDiskSize(&handle, &size));
  EXPECT_EQ(size, 4711U);
  EXPECT_EQ(log_, (Log{{1, "Get Disk Size..."}}));
}

}  // namespace
}  // namespace testing_support
