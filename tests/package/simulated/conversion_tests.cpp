#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "application.h"
#include "host/disk_record.h"
#include "simulator/clock.h"
#include "simulator/volume_files.h"
#include "test_machine.h"
#include "tests.h"

void Converts() {
  TestMachine test(DataPartitions());
  simulator::SimulatedMachine& machine = test.machine;
  machine.SetLetter(kDiskNumber, test.partitions[0].offset, 'R');
  machine.SetLetter(kDiskNumber, test.partitions[1].offset, 'S');
  machine.AddFile(kDiskNumber, test.partitions[0].offset, "\\letters\\one.txt", "dear reader");

  std::vector<std::string> scripts;
  machine.on_script = [&scripts](std::string_view text) { scripts.emplace_back(text); };

  velkora_host::DiskRecord record(kDiskNumber);
  Application application(kLogsFolder);
  const Screen screen = application.Convert(record.disk());
  std::printf("%s\n", ScreenText(screen).c_str());

  Check(screen == Screen::kConverted, "the screen of a success");
  Check(HoldsMbr(ReadImage(test.image), test.partitions), "an MBR with both partitions");
  Check(test.LettersAt(test.partitions[0].offset) == "R", "the first letter is back");
  Check(test.LettersAt(test.partitions[1].offset) == "S", "the second letter is back");
  std::string text;
  Check(simulator::VolumeFiles(machine).Read("R:\\letters\\one.txt", text) == ERROR_SUCCESS &&
            text == "dear reader",
        "the file is there");

  // The library leaves the process of each tool open.
  for (const std::string& handle : machine.handles().Open()) {
    Check(handle == "process", "left open: " + handle);
  }

  // What the library did, call by call.
  const simulator::CallLog& calls = machine.calls();
  Check(calls.Count("DeviceIoControl/IOCTL_DISK_SET_DRIVE_LAYOUT_EX") == 1, "one new table");
  Check(calls.Count("command/diskpart") == scripts.size(), "diskpart runs by scripts alone");
  for (const std::string& line : calls.Lines()) {
    if (line.starts_with("DeviceIoControl/IOCTL_DISK_")) std::printf("  %s\n", line.c_str());
  }
}

void SystemDisk() {
  TestMachine test(SystemPartitions());
  test.RunFromDisk();
  test.machine.on_shell_line = [](simulator::ShellRoute, std::string_view line) {
    std::printf("  %.*s\n", static_cast<int>(line.size()), line.data());
  };
  velkora_host::DiskRecord record(kDiskNumber);
  record.MarkSystem('C');
  Application application(kLogsFolder);
  Check(application.Convert(record.disk()) == Screen::kConverted, "the screen of a success");
  // The EFI system partition has no place in an MBR; the volume of Windows becomes active.
  Check(HoldsMbr(ReadImage(test.image), {test.partitions[1]}), "an MBR with the Windows partition");
  Check(ReadImage(test.image)[446] == 0x80, "which is active");
  Check(simulator::VolumeFiles(test.machine).Exists("C:\\Boot\\BCD"), "bcdboot made a store");
}

void VolumesComeLate() {
  TestMachine test(SystemPartitions());
  test.RunFromDisk();
  test.machine.mount_delay_runs = 10'000;  // never, as far as the library is willing to wait

  velkora_host::DiskRecord record(kDiskNumber);
  record.MarkSystem('C');
  Application application(kLogsFolder);
  const auto begin = std::chrono::steady_clock::now();
  const Screen screen = application.Convert(record.disk());
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - begin;
  std::printf("%s\n%.0f s of the machine's time, %.3f s of ours\n", ScreenText(screen).c_str(),
              static_cast<double>(test.machine.clock().now()) / 1000, elapsed.count());
  Check(screen == Screen::kConverted, "the screen of a success");
  Check(test.machine.clock().now() >= 120'000, "the library waited for two minutes");
}
