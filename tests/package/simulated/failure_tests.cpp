#include <cstdio>
#include <string>
#include <vector>

#include "application.h"
#include "host/disk_record.h"
#include "platform/guard.h"
#include "simulator/volume_files.h"
#include "test_machine.h"
#include "tests.h"

void Fails() {
  TestMachine test(DataPartitions());
  test.machine.SetLetter(kDiskNumber, test.partitions[0].offset, 'R');
  test.machine.calls().FailOn("DeviceIoControl/IOCTL_DISK_SET_DRIVE_LAYOUT_EX", 1,
                              ERROR_ACCESS_DENIED);
  velkora_host::DiskRecord record(kDiskNumber);
  Application application(kLogsFolder);
  const Screen screen = application.Convert(record.disk());
  std::printf("%s\n%s\n", ScreenText(screen).c_str(), application.reason().c_str());
  Check(screen == Screen::kUndone, "the screen of a rollback");
  Check(application.reason().find("error 5") != std::string::npos, "the reason is told");
  Check(HoldsGpt(ReadImage(test.image), test.partitions), "the old table");
  Check(test.LettersAt(test.partitions[0].offset) == "R", "the letter is back");
}

void ToolFails() {
  TestMachine test(SystemPartitions());
  test.RunFromDisk();
  std::vector<std::string> words;
  test.machine.SetCommand(
      "bcdboot", [&words](simulator::SimulatedMachine&, const std::vector<std::string>& arguments) {
        words = arguments;
        return simulator::CommandResult{193, "Failure when attempting to copy boot files.\r\n"};
      });
  velkora_host::DiskRecord record(kDiskNumber);
  record.MarkSystem('C');
  Application application(kLogsFolder);
  Check(application.Convert(record.disk()) == Screen::kUndone, "the screen of a rollback");
  Check(words.size() > 1 && words[1] == "C:\\Windows", "bcdboot is given the folder of Windows");
  std::string output;
  Check(simulator::VolumeFiles(test.machine).Read("X:\\BCDBOOT_result.log", output) ==
                ERROR_SUCCESS &&
            output.find("attempting to copy") != std::string::npos,
        "what bcdboot said is kept");
  Check(HoldsGpt(ReadImage(test.image), test.partitions), "the old table");
}

void PersonRefuses() {
  TestMachine test(DataPartitions());
  constexpr DWORD kCancelled = 1223;  // what Windows says when the question for rights gets a no
  test.machine.calls().FailOn("ShellExecuteExW", 1, kCancelled, simulator::Repeat::kFromThenOn);
  velkora_host::DiskRecord record(kDiskNumber);
  Application application(kLogsFolder);
  const Screen screen = application.Convert(record.disk());
  std::printf("%s\n%s\n", ScreenText(screen).c_str(), application.reason().c_str());
  Check(screen == Screen::kUndone, "the screen of a rollback");
  Check(HoldsGpt(ReadImage(test.image), test.partitions), "the old table");
}

void RollbackFails() {
  TestMachine test(DataPartitions());
  velkora_host::DiskRecord record(kDiskNumber);
  // The disk is opened once for the conversion and once for the backup; whatever opens it later
  // is refused.
  test.machine.calls().FailOn(R"(CreateFileA/\\.\PhysicalDrive1)", 3, ERROR_ACCESS_DENIED,
                              simulator::Repeat::kFromThenOn);
  test.machine.calls().FailOn("DeviceIoControl/IOCTL_DISK_CREATE_DISK");
  Application application(kLogsFolder);
  const Screen screen = application.Convert(record.disk());
  std::printf("%s\n%s\n", ScreenText(screen).c_str(), application.reason().c_str());
  Check(screen == Screen::kTableLost, "the screen of a failed rollback");
}

void UnfitRecord() {
  TestMachine test(DataPartitions());
  velkora_host::DiskRecord record(kDiskNumber);
  record.disk().disk_type = DiskType::kMbr;
  Application application(kLogsFolder);
  Check(application.Convert(record.disk()) == Screen::kNothingTouched, "a wrong style is refused");
  Check(application.statuses().empty(), "without a callback");

  record.disk().volume_count = 256;
  for (VolumeInfo*& volume : record.disk().volumes) volume = &record.volumes().front();
  VelkoraSDK* const sdk = InitVelkoraSDK(nullptr, kLogsFolder, nullptr, nullptr);
  DWORD code = 0;
  try {
    sdk->Convert(&record.disk(), &HearNothing);
  } catch (const win32::Fault& fault) {
    code = fault.code;
  }
  DestroyVelkoraSDK(sdk);
  Check(code == EXCEPTION_ACCESS_VIOLATION, "a record that is too long is an access violation");
}
