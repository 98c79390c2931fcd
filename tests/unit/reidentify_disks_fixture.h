// Three disks and a record that has lost one of them.
#pragma once

#include "frame/disk_records.h"
#include "frame/global_context.h"
#include "frame/velkora.h"
#include "logging/log.h"
#include "platform/win32.h"
#include "simulator/disk.h"
#include "support/caller_record.h"
#include "support/machine_fixture.h"

namespace testing_support {

inline constexpr char kOldPath[] = "\\\\?\\old";
inline constexpr char kFirstPath[] = "\\\\?\\first";
inline constexpr char kSecondPath[] = "\\\\?\\second";
inline constexpr char kThirdPath[] = "\\\\?\\third";
inline constexpr char kOpenFirst[] = "CreateFileA/\\\\?\\first";
inline constexpr char kNumberCall[] = "DeviceIoControl/IOCTL_STORAGE_GET_DEVICE_NUMBER";
inline constexpr char kSerialCall[] = "DeviceIoControl/IOCTL_STORAGE_QUERY_PROPERTY";

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
    simulator::Disk& disk = NewDisk(number, 1 << 20);
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
  std::vector<std::string> OpenDisks() {
    std::vector<std::string> open = machine_.handles().Open();
    std::erase(open, "device information set");
    return open;
  }

  // Lets a stop arrive with the first line that names the first disk.
  void StopAtTheFirstDisk() {
    const velkora::LogObserver observer{&StopAtLine, nullptr};
    velkora::InitLogEx(nullptr, velkora::kLogModule, &observer, nullptr);
  }

  CallerRecord record_;
  velkora::Velkora converter_;
  HANDLE handle_ = INVALID_HANDLE_VALUE;

 private:
  static void StopAtLine(void*, const char*, int, const char* text) {
    if (std::string_view(text).find(kFirstPath) != std::string_view::npos) {
      velkora::GetGlobalContext().stop_requested = 1;
    }
  }
};

}  // namespace testing_support
