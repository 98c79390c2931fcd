#include <cstring>

#include "disk/device_handle.h"
#include "disk/reidentify.h"
#include "frame/disk_records.h"
#include "frame/global_context.h"
#include "logging/log.h"
#include "platform/guard.h"
#include "platform/win32.h"
#include "simulator/device_setup.h"
#include "support/caller_record.h"
#include "support/machine_test.h"

namespace {

using testing_support::CallerRecord;
using testing_support::LogLine;
using testing_support::MachineTest;
using testing_support::SetText;
using Log = std::vector<LogLine>;
using Texts = std::vector<std::string>;

constexpr std::uint64_t kMiB = 1024 * 1024;
constexpr char kOldPath[] = "\\\\?\\old";
constexpr char kFirstPath[] = "\\\\?\\first";
constexpr char kSecondPath[] = "\\\\?\\second";
constexpr char kThirdPath[] = "\\\\?\\third";
constexpr char kOpenFirst[] = "CreateFileA/\\\\?\\first";
constexpr char kNumberCall[] = "DeviceIoControl/IOCTL_STORAGE_GET_DEVICE_NUMBER";
constexpr char kSerialCall[] = "DeviceIoControl/IOCTL_STORAGE_QUERY_PROPERTY";
const LogLine kOpenedNot = {3, "open device failed, device_id: \\\\?\\old, error_code: 2"};

// Disks 1, 2 and 3 with serial numbers AAA, BBB and CCC. The record is of BBB, whose path is an old
// one and whose number was 9.
class ReidentifyDisks : public MachineTest {
 protected:
  ReidentifyDisks() : record_(DiskType::kMbr, 9) {
    AddDisk(1, kFirstPath, "AAA");
    AddDisk(2, kSecondPath, "BBB");
    AddDisk(3, kThirdPath, "CCC");
    SetText(record_.disk().id, kOldPath);
    SetText(record_.disk().serial_num, "BBB");
    converter_.disk_info = &record_.disk();
    machine_.calls().Clear();
    win32::SetLastError(ERROR_SUCCESS);
  }

  void AddDisk(std::uint32_t number, const char* path, const char* serial) {
    simulator::Disk& disk = NewDisk(number, kMiB);
    disk.identity.interface_path = path;
    disk.identity.serial_number = serial;
  }
  simulator::DeviceIdentity& identity(std::uint32_t number) {
    return machine_.FindDisk(number)->identity;
  }

  void ExpectRecord(const std::string& path, std::uint32_t index) {
    EXPECT_EQ(velkora::FieldText(record_.disk().id), path);
    EXPECT_EQ(record_.disk().index, index);
  }
  // What is open, without the sets that each walk leaves behind.
  Texts OpenDisks() {
    Texts open = machine_.handles().Open();
    std::erase(open, "device information set");
    return open;
  }

  CallerRecord record_;
  velkora::Velkora converter_;
  HANDLE handle_ = INVALID_HANDLE_VALUE;
};

class CheckAndUpdateDiskInfo : public ReidentifyDisks {
 protected:
  bool Check() { return velkora::CheckAndUpdateDiskInfo(converter_); }
};
class CorrectDiskBySerial : public ReidentifyDisks {
 protected:
  bool Correct() { return velkora::CorrectDiskBySerial(record_.disk(), handle_); }
};
class CorrectDiskByIndex : public ReidentifyDisks {
 protected:
  bool Correct() { return velkora::CorrectDiskByIndex(record_.disk(), handle_); }
};

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

// Lets a stop arrive with the failing open of the first disk, which is logged.
void StopAtLine(void*, const char*, int, const char* text) {
  if (std::string_view(text).find(kFirstPath) != std::string_view::npos) {
    velkora::GetGlobalContext().stop_requested = 1;
  }
}

TEST_F(CheckAndUpdateDiskInfo, StopEndsTheSearchInFrontOfTheNextDisk) {
  machine_.calls().FailOn(kOpenFirst, 1, ERROR_ACCESS_DENIED);
  const velkora::LogObserver observer{&StopAtLine, nullptr};
  velkora::InitLogEx(nullptr, velkora::kLogModule, &observer, nullptr);
  EXPECT_FALSE(Check());
  EXPECT_EQ(machine_.calls().Count("CreateFileA/\\\\?\\second"), 0U);
  ExpectRecord(kOldPath, 9);
}

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
  const velkora::LogObserver observer{&StopAtLine, nullptr};
  velkora::InitLogEx(nullptr, velkora::kLogModule, &observer, nullptr);
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
  const velkora::LogObserver observer{&StopAtLine, nullptr};
  velkora::InitLogEx(nullptr, velkora::kLogModule, &observer, nullptr);
  EXPECT_FALSE(Correct());
  EXPECT_EQ(OpenDisks(), Texts{});
}

}  // namespace
