#include <cstring>

#include "disk/device_handle.h"
#include "disk/reidentify.h"
#include "reidentify_disks_fixture.h"
#include "simulator/device_setup.h"

namespace testing_support {
namespace {

using Log = std::vector<LogLine>;
using Texts = std::vector<std::string>;

class CorrectDiskBySerial : public ReidentifyDisks {
 protected:
  bool Correct() { return velkora::CorrectDiskBySerial(record_.disk(), handle_); }
};
class CorrectDiskByIndex : public ReidentifyDisks {
 protected:
  bool Correct() { return velkora::CorrectDiskByIndex(record_.disk(), handle_); }
};

TEST_F(CorrectDiskBySerial, StoresPathAndNumberAndHandsOutTheHandle) {
  EXPECT_TRUE(Correct());
  ExpectRecord(kSecondPath, 2);
  std::uint32_t number = 0;
  EXPECT_TRUE(velkora::GetDeviceIndexByHandle(handle_, &number, true));
  EXPECT_EQ(number, 2U);
  EXPECT_EQ(log_, (Log{{1, "disk id: \\\\?\\first, disk_serial_num: AAA"},
                       {1, "disk id: \\\\?\\second, disk_serial_num: BBB"},
                       {1, "correct device_path: \\\\?\\second"}}));
}

TEST_F(CorrectDiskBySerial, StoredPathIsNotTried) {
  identity(3).interface_path = kOldPath;
  EXPECT_TRUE(Correct());
  ExpectRecord(kSecondPath, 2);
}

TEST_F(CorrectDiskBySerial, NewPathReplacesAllBytesOfTheOldOne) {
  DiskInfo& disk = record_.disk();
  std::memset(disk.id, 'x', sizeof disk.id);
  EXPECT_TRUE(Correct());
  std::string expected = kSecondPath;
  expected.resize(sizeof disk.id);
  EXPECT_EQ(std::string(disk.id, sizeof disk.id), expected);
}

TEST_F(CorrectDiskBySerial, DiskThatMovedToAnotherNumberIsFound) {
  simulator::RenumberDisk(machine_, 2, 7);
  EXPECT_TRUE(Correct());
  ExpectRecord(kSecondPath, 7);
}

TEST_F(CorrectDiskBySerial, EmptySerialNumberInTheRecordMatchesTheFirstDiskThatReportsOne) {
  for (const char* serial : {"", "    "}) {
    SetText(record_.disk().serial_num, serial);
    machine_.calls().FailOn(kOpenFirst, 1, ERROR_ACCESS_DENIED);
    machine_.calls().FailOn(kSerialCall, 1, 31);
    EXPECT_TRUE(Correct());
    ExpectRecord(kThirdPath, 3);
  }
}

TEST_F(CorrectDiskBySerial, BlanksAroundTheRecordsSerialNumberDoNotCount) {
  SetText(record_.disk().serial_num, "  BBB ");
  EXPECT_TRUE(Correct());
  ExpectRecord(kSecondPath, 2);
}

TEST_F(CorrectDiskBySerial, SerialNumberThatBeginsWithTheOtherMatches) {
  for (const char* serial : {"B", "BBB-7"}) {
    identity(2).serial_number = serial;
    EXPECT_TRUE(Correct());
    ExpectRecord(kSecondPath, 2);
  }
}

TEST_F(CorrectDiskBySerial, DisksThatDidNotMatchStayOpen) {
  SetText(record_.disk().serial_num, "CCC");
  EXPECT_TRUE(Correct());
  EXPECT_EQ(OpenDisks(), (Texts{"disk 1", "disk 2", "disk 3"}));
}

TEST_F(CorrectDiskBySerial, SerialNumberIsLoggedWithoutItsBlanks) {
  identity(1).serial_number = "  BBB9 ";
  EXPECT_TRUE(Correct());
  EXPECT_EQ(log_, (Log{{1, "disk id: \\\\?\\first, disk_serial_num: BBB9"},
                       {1, "correct device_path: \\\\?\\first"}}));
}

TEST_F(CorrectDiskBySerial, FailuresAreLoggedAndPassedOver) {
  AddDisk(4, "\\\\?\\fourth", "DDD");
  SetText(record_.disk().serial_num, "DDD");
  machine_.calls().FailOn(kOpenFirst, 1, 5);
  machine_.calls().FailOn(kNumberCall, 1, 31);
  machine_.calls().FailOn(kSerialCall, 1, 32);
  EXPECT_TRUE(Correct());
  ExpectRecord("\\\\?\\fourth", 4);
  EXPECT_EQ(OpenDisks(), (Texts{"disk 2", "disk 3", "disk 4"}));
  EXPECT_EQ(log_, (Log{{3, "open device failed, device_id: \\\\?\\first, error_code: 5"},
                       {3, "GetDeviceHandleById Fail"},
                       {3, "DeviceIoControl with IOCTL_STORAGE_GET_DEVICE_NUMBER error 31"},
                       {3, "GetDeviceIndexByHandle Fail"},
                       {3, "DeviceIoControl with IOCTL_STORAGE_QUERY_PROPERTY error 32"},
                       {3, "GetDiskSerialId Fail"},
                       {1, "disk id: \\\\?\\fourth, disk_serial_num: DDD"},
                       {1, "correct device_path: \\\\?\\fourth"}}));
}

TEST_F(CorrectDiskBySerial, NoMatchLeavesRecordAndHandle) {
  SetText(record_.disk().serial_num, "DDD");
  EXPECT_FALSE(Correct());
  ExpectRecord(kOldPath, 9);
  EXPECT_EQ(handle_, INVALID_HANDLE_VALUE);
}

TEST_F(CorrectDiskBySerial, ListOfDisksThatFailsIsLogged) {
  machine_.calls().FailOn("SetupDiGetClassDevsW", 1, 13);
  EXPECT_FALSE(Correct());
  EXPECT_EQ(log_, (Log{{3, "SetupDiGetClassDevs or SetupDiEnumDeviceInterfaces error 13"},
                       {3, "GetDiskDevicePaths Fail"}}));
}

TEST_F(CorrectDiskBySerial, StopEndsTheSearchInFrontOfTheNextDisk) {
  StopAtTheFirstDisk();
  EXPECT_FALSE(Correct());
  EXPECT_EQ(OpenDisks(), Texts{"disk 1"});
}

TEST_F(CorrectDiskByIndex, FindsTheDiskByItsNumberAlone) {
  record_.disk().index = 3;
  EXPECT_TRUE(Correct());
  ExpectRecord(kThirdPath, 3);
  EXPECT_NE(handle_, INVALID_HANDLE_VALUE);
  EXPECT_EQ(machine_.calls().Count(kSerialCall), 0U);
  EXPECT_EQ(OpenDisks(), (Texts{"disk 1", "disk 2", "disk 3"}));
  EXPECT_EQ(log_, (Log{{1, "correct device_path: \\\\?\\third"}}));
}

TEST_F(CorrectDiskByIndex, DiskThatChangedItsPathIsFound) {
  record_.disk().index = 2;
  SetText(record_.disk().id, kSecondPath);
  identity(2).interface_path = "\\\\?\\elsewhere";
  EXPECT_TRUE(Correct());
  ExpectRecord("\\\\?\\elsewhere", 2);
  std::uint32_t number = 0;
  EXPECT_TRUE(velkora::GetDeviceIndexByHandle(handle_, &number, true));
  EXPECT_EQ(number, 2U);
}

TEST_F(CorrectDiskByIndex, FailuresAreLoggedAndPassedOver) {
  record_.disk().index = 3;
  machine_.calls().FailOn(kOpenFirst, 1, 5);
  machine_.calls().FailOn(kNumberCall, 1, 31);
  EXPECT_TRUE(Correct());
  EXPECT_EQ(log_, (Log{{3, "open device failed, device_id: \\\\?\\first, error_code: 5"},
                       {3, "GetDeviceHandleById Fail"},
                       {3, "DeviceIoControl with IOCTL_STORAGE_GET_DEVICE_NUMBER error 31"},
                       {3, "GetDeviceIndexByHandle Fail"},
                       {1, "correct device_path: \\\\?\\third"}}));
}

TEST_F(CorrectDiskByIndex, NoMatchLeavesRecordAndHandle) {
  EXPECT_FALSE(Correct());
  ExpectRecord(kOldPath, 9);
  EXPECT_EQ(handle_, INVALID_HANDLE_VALUE);
  EXPECT_EQ(log_, Log{});
}

TEST_F(CorrectDiskByIndex, ListOfDisksThatFailsIsLogged) {
  machine_.calls().FailOn("SetupDiGetClassDevsW", 1, 13);
  EXPECT_FALSE(Correct());
  EXPECT_EQ(log_.back(), (LogLine{3, "GetDiskDevicePaths Fail"}));
}

TEST_F(CorrectDiskByIndex, StopEndsTheSearchInFrontOfTheNextDisk) {
  record_.disk().index = 3;
  machine_.calls().FailOn(kOpenFirst, 1, ERROR_ACCESS_DENIED);
  StopAtTheFirstDisk();
  EXPECT_FALSE(Correct());
  EXPECT_EQ(OpenDisks(), Texts{});
}

}  // namespace
}  // namespace testing_support
