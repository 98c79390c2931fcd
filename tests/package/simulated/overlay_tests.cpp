// One image for many runs: what each of them writes is kept apart.
#include <cstdio>
#include <map>
#include <string>

#include "application.h"
#include "host/disk_record.h"
#include "simulator/storage/block_device.h"
#include "simulator/storage/image_overlay.h"
#include "test_machine.h"
#include "tests.h"

namespace {

// The disk is what the screen says it is.
void CheckDisk(Screen screen, TestMachine& test, const simulator::ImageOverlay& overlay,
               const Bytes& bytes) {
  if (screen == Screen::kConverted) Check(HoldsMbr(bytes, test.partitions), "a new table");
  if (screen == Screen::kUndone) Check(HoldsGpt(bytes, test.partitions), "the old table");
  if (screen != Screen::kNothingTouched) return;
  simulator::BlockDevice image(test.image, 512, simulator::Access::kReadOnly);
  Check(overlay.Changes(image).empty(), "nothing is changed");
}

}  // namespace

void FailsAtEveryCall() {
  TestMachine test(DataPartitions());
  std::map<std::string, int> screens;
  bool failed = true;
  for (std::size_t number = 1; failed; ++number) {
    simulator::ImageOverlay overlay;
    simulator::SimulatedMachine machine;
    machine.MapFolder('X', test.logs);
    machine.AttachDisk(kDiskNumber, test.image, overlay);
    machine.MakeCurrent();
    velkora_host::DiskRecord record(kDiskNumber);
    machine.calls().FailNumber(number);
    machine.calls().SetBudget(1'000'000);
    const Screen screen = Application(kLogsFolder).Convert(record.disk());
    failed = machine.calls().calls().size() >= number;
    if (failed) ++screens[ScreenText(screen)];
    CheckDisk(screen, test, overlay, ReadDisk(*machine.FindDisk(kDiskNumber)));
    Check(failed || screen == Screen::kConverted, "a run without a failure converts");
  }
  for (const auto& [text, count] : screens) std::printf("%4d  %s\n", count, text.c_str());
  Check(screens.size() >= 3, "some calls end the conversion, others do not");
  Check(HoldsGpt(ReadImage(test.image), test.partitions), "the image itself stays as it is");
}

void PowerIsCut() {
  TestMachine test(DataPartitions());
  simulator::ImageOverlay overlay;
  simulator::ImageOverlay at_the_cut;
  {
    simulator::SimulatedMachine machine;
    machine.MapFolder('X', test.logs);
    machine.AttachDisk(kDiskNumber, test.image, overlay);
    machine.MakeCurrent();
    machine.calls().on_call = [&](std::size_t number) {
      const simulator::Call& call = machine.calls().calls()[number - 1];
      if (call.detail == "IOCTL_DISK_SET_DRIVE_LAYOUT_EX") at_the_cut = overlay;
    };
    velkora_host::DiskRecord record(kDiskNumber);
    Check(Application(kLogsFolder).Convert(record.disk()) == Screen::kConverted, "a whole run");
  }
  // What the application finds when it is started again.
  simulator::SimulatedMachine machine;
  machine.AttachDisk(kDiskNumber, test.image, at_the_cut);
  machine.MakeCurrent();
  velkora_host::DiskRecord record(kDiskNumber);
  Check(record.disk().disk_type == DiskType::kMbr, "the new style");
  Check(record.volumes().empty(), "and an empty table");
}
