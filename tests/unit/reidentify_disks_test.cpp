#include <cstring>

#include "disk/device_handle.h"
#include "disk/reidentify.h"
#include "platform/guard.h"
#include "reidentify_disks_fixture.h"
#include "simulator/device_setup.h"

namespace testing_support {
namespace {

using Log = std::vector<LogLine>;
using Texts = std::vector<std::string>;

class CheckAndUpdateDiskInfo : public ReidentifyDisks {
 protected:
  bool Check() { return velkora::CheckAndUpdateDiskInfo(converter_); }
};

const LogLine kOpenedNot = {3, "open device failed, device_id: \\\\?\\old, error_code: 2"};
const LogLine kCheckLine = {1, "Check and update disk info"};

TEST_F(CheckAndUpdateDiskInfo, StoredPathThatOpensGivesTheNumber) {
  identity(2).interface_path = kOldPath;
  EXPECT_TRUE(Check());
  ExpectRecord(kOldPath, 2);
  EXPECT_EQ(OpenDisks(), Texts{"disk 2"});
  EXPECT_EQ(log_, Log{kCheckLine});
}

TEST_F(CheckAndUpdateDiskInfo, StoredPathThatOpensIsTrustedWhateverDiskAnswersThere) {
  identity(3).interface_path = kOldPath;  // not the disk of the record's serial number
  EXPECT_TRUE(Check());
  ExpectRecord(kOldPath, 3);
  EXPECT_EQ(machine_.calls().Count(kSerialCall), 0U);
}

TEST_F(CheckAndUpdateDiskInfo, StoredPathWithoutANumberFailsAndClosesTheDisk) {
  identity(2).interface_path = kOldPath;
  machine_.calls().FailOn(kNumberCall, 1, 31);
  EXPECT_FALSE(Check());
  EXPECT_EQ(converter_.disk_handle, INVALID_HANDLE_VALUE);
  EXPECT_EQ(OpenDisks(), Texts{});
  ExpectRecord(kOldPath, 9);
  EXPECT_EQ(log_, (Log{kCheckLine,
                       {3, "DeviceIoControl with IOCTL_STORAGE_GET_DEVICE_NUMBER error 31"}}));
}

TEST_F(CheckAndUpdateDiskInfo, LostPathIsFoundBySerialNumber) {
  EXPECT_TRUE(Check());
  ExpectRecord(kSecondPath, 2);
  EXPECT_EQ(OpenDisks(), Texts{"disk 2"});  // the first disk is closed again
  EXPECT_NE(converter_.disk_handle, INVALID_HANDLE_VALUE);
  EXPECT_EQ(log_, (Log{kCheckLine, kOpenedNot}));
}

TEST_F(CheckAndUpdateDiskInfo, DiskThatMovedToAnotherNumberIsFound) {
  simulator::RenumberDisk(machine_, 2, 7);
  EXPECT_TRUE(Check());
  ExpectRecord(kSecondPath, 7);
}

TEST_F(CheckAndUpdateDiskInfo, InvalidHandleErrorStartsTheSearchToo) {
  machine_.calls().FailOn("CreateFileA/\\\\?\\old", 1, ERROR_INVALID_HANDLE);
  EXPECT_TRUE(Check());
  ExpectRecord(kSecondPath, 2);
}

TEST_F(CheckAndUpdateDiskInfo, AnyOtherFailedOpenEndsTheSearch) {
  machine_.calls().FailOn("CreateFileA/\\\\?\\old", 1, ERROR_ACCESS_DENIED);
  EXPECT_FALSE(Check());
  EXPECT_EQ(machine_.calls().Count("SetupDiGetClassDevsW"), 0U);
  EXPECT_EQ(converter_.disk_handle, INVALID_HANDLE_VALUE);
  EXPECT_EQ(log_,
            (Log{kCheckLine, {3, "open device failed, device_id: \\\\?\\old, error_code: 5"}}));
}

TEST_F(CheckAndUpdateDiskInfo, NewPathReplacesAllBytesOfTheOldOne) {
  DiskInfo& disk = record_.disk();
  std::memset(disk.id, 'x', sizeof disk.id);
  std::memcpy(disk.id, "\\\\?\\", 4);
  EXPECT_TRUE(Check());
  std::string expected = kSecondPath;
  expected.resize(sizeof disk.id);
  EXPECT_EQ(std::string(disk.id, sizeof disk.id), expected);
}

TEST_F(CheckAndUpdateDiskInfo, PathThatFillsItsFieldHasNoTerminator) {
  const std::string path = "\\\\?\\" + std::string(252, 'p');
  identity(2).interface_path = path;
  record_.disk().reserved_text[0] = 'r';
  EXPECT_TRUE(Check());
  EXPECT_EQ(std::string(record_.disk().id, 256), path);
  EXPECT_EQ(record_.disk().reserved_text[0], 'r');
}

TEST_F(CheckAndUpdateDiskInfo, PathLongerThanItsFieldIsAnAccessViolation) {
  identity(2).interface_path = "\\\\?\\" + std::string(253, 'p');
  EXPECT_THROW(Check(), win32::Fault);
}

TEST_F(CheckAndUpdateDiskInfo, BlanksAroundSerialNumbersDoNotCount) {
  identity(2).serial_number = "   BBB ";
  SetText(record_.disk().serial_num, " BBB    ");
  EXPECT_TRUE(Check());
  ExpectRecord(kSecondPath, 2);
}

TEST_F(CheckAndUpdateDiskInfo, OtherWhiteSpaceCounts) {
  identity(2).serial_number = "\tBBB";
  EXPECT_FALSE(Check());
  ExpectRecord(kOldPath, 9);
}

TEST_F(CheckAndUpdateDiskInfo, SerialNumberWithMoreBehindItMatches) {
  identity(2).serial_number = "BBB-7";
  EXPECT_TRUE(Check());
  ExpectRecord(kSecondPath, 2);
}

TEST_F(CheckAndUpdateDiskInfo, BeginningOfTheSerialNumberMatches) {
  identity(2).serial_number = "B";
  EXPECT_TRUE(Check());
  ExpectRecord(kSecondPath, 2);
}

TEST_F(CheckAndUpdateDiskInfo, EmptySerialNumberInTheRecordMatchesTheFirstDisk) {
  for (const char* serial : {"", "    "}) {
    SetText(record_.disk().id, kOldPath);
    SetText(record_.disk().serial_num, serial);
    EXPECT_TRUE(Check());
    ExpectRecord(kFirstPath, 1);
  }
}

TEST_F(CheckAndUpdateDiskInfo, EmptySerialNumberMatchesTheFirstDiskThatOpensAndReportsOne) {
  SetText(record_.disk().serial_num, "");
  machine_.calls().FailOn(kOpenFirst, 1, ERROR_ACCESS_DENIED);
  machine_.calls().FailOn(kSerialCall, 1, 31);
  EXPECT_TRUE(Check());
  ExpectRecord(kThirdPath, 3);
}

TEST_F(CheckAndUpdateDiskInfo, DiskThatReportsAnEmptySerialNumberMatchesEverything) {
  identity(1).serial_number = "  ";
  EXPECT_TRUE(Check());
  ExpectRecord(kFirstPath, 1);
}

// Its text is that of the descriptor's first bytes, and not an empty one.
TEST_F(CheckAndUpdateDiskInfo, DiskWithoutASerialNumberDoesNotMatch) {
  identity(1).serial_number.reset();
  EXPECT_TRUE(Check());
  ExpectRecord(kSecondPath, 2);
}

TEST_F(CheckAndUpdateDiskInfo, SerialNumberBehindTheDescriptorMatchesEverything) {
  identity(1).told_serial_offset = 5000;
  EXPECT_TRUE(Check());
  ExpectRecord(kFirstPath, 1);
}

TEST_F(CheckAndUpdateDiskInfo, HandleThatTheConverterHeldStaysOpen) {
  converter_.disk_handle = velkora::GetDeviceHandleById(kThirdPath);
  EXPECT_TRUE(Check());
  EXPECT_EQ(OpenDisks(), (Texts{"disk 3", "disk 2"}));
}

TEST_F(CheckAndUpdateDiskInfo, DisksThatFailAreClosedAndPassedOver) {
  machine_.calls().FailOn(kNumberCall, 1, 31);
  SetText(record_.disk().serial_num, "CCC");
  machine_.calls().FailOn(kSerialCall, 1, 32);
  EXPECT_TRUE(Check());
  ExpectRecord(kThirdPath, 3);
  EXPECT_EQ(OpenDisks(), Texts{"disk 3"});
  EXPECT_EQ(log_, (Log{kCheckLine,
                       kOpenedNot,
                       {3, "DeviceIoControl with IOCTL_STORAGE_GET_DEVICE_NUMBER error 31"},
                       {3, "DeviceIoControl with IOCTL_STORAGE_QUERY_PROPERTY error 32"}}));
}

TEST_F(CheckAndUpdateDiskInfo, NoMatchLeavesTheRecordAndClosesAllDisks) {
  SetText(record_.disk().serial_num, "DDD");
  converter_.disk_handle = nullptr;
  EXPECT_FALSE(Check());
  ExpectRecord(kOldPath, 9);
  EXPECT_EQ(converter_.disk_handle, INVALID_HANDLE_VALUE);
  EXPECT_EQ(OpenDisks(), Texts{});
  EXPECT_EQ(log_, (Log{kCheckLine, kOpenedNot}));
}

TEST_F(CheckAndUpdateDiskInfo, ListOfDisksThatFailsEndsTheSearch) {
  machine_.calls().FailOn("SetupDiGetClassDevsW", 1, 13);
  EXPECT_FALSE(Check());
  EXPECT_EQ(log_, (Log{kCheckLine,
                       kOpenedNot,
                       {3, "SetupDiGetClassDevs or SetupDiEnumDeviceInterfaces error 13"}}));
}

TEST_F(CheckAndUpdateDiskInfo, StopEndsTheSearchInFrontOfTheNextDisk) {
  machine_.calls().FailOn(kOpenFirst, 1, ERROR_ACCESS_DENIED);
  StopAtTheFirstDisk();
  EXPECT_FALSE(Check());
  EXPECT_EQ(machine_.calls().Count("CreateFileA/\\\\?\\second"), 0U);
  ExpectRecord(kOldPath, 9);
}

}  // namespace
}  // namespace testing_support
