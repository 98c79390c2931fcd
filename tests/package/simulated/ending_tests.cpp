// What the library remembers for the rest of the process.
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

#include "application.h"
#include "host/disk_record.h"
#include "simulator/clock.h"
#include "simulator/crash_sender.h"
#include "test_machine.h"
#include "tests.h"

namespace {

// Of the only file of that kind; empty if there is none.
std::filesystem::path DumpIn(const std::filesystem::path& folder) {
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    if (entry.path().extension() == ".dmp") return entry.path();
  }
  return {};
}

}  // namespace

void Stops() {
  TestMachine test(DataPartitions());
  velkora_host::DiskRecord record(kDiskNumber);
  Application application(kLogsFolder);
  application.stop_at = VelkoraStatus::kCreating;
  Screen screen = Screen::kTableLost;
  simulator::Clock& clock = test.machine.clock();
  simulator::Clock::Participant* const worker =
      clock.Start([&] { screen = application.Convert(record.disk()); });
  clock.Join(worker);
  std::printf("%s\n", ScreenText(screen).c_str());
  Check(screen == Screen::kUndone, "the screen of a rollback");
  Check(HoldsGpt(ReadImage(test.image), test.partitions), "the old table");
}

// A converter is good for one conversion: a second one ends in a fault, which the library catches.
void Crashes() {
  TestMachine test(DataPartitions());
  VelkoraSDK* const sdk = InitVelkoraSDK(nullptr, kLogsFolder, nullptr, nullptr);
  velkora_host::DiskRecord first(kDiskNumber);
  Check(sdk->Convert(&first.disk(), &HearNothing) == 0, "the first conversion");
  Check(DumpIn(test.logs).empty(), "no dump");
  velkora_host::DiskRecord second(kDiskNumber);
  Check(sdk->Convert(&second.disk(), &HearNothing) == 1, "the second one fails");
  DestroyVelkoraSDK(sdk);

  char mark[4] = {};
  std::ifstream(DumpIn(test.logs), std::ios::binary).read(mark, sizeof mark);
  Check(std::memcmp(mark, "MDMP", sizeof mark) == 0, "a minidump in the logs folder");

  // What goes along when the vendor's crash sender reports an exception (its code 80).
  test.machine.crash_sender.Tell(80);
  for (const std::string& file : test.machine.crash_sender.attachments) {
    std::printf("  %s\n", file.c_str());
  }
  Check(!test.machine.crash_sender.attachments.empty(), "files of the logs folder are attached");
}
