#include <fstream>
#include <string>

#include "application.h"
#include "host/disk_record.h"
#include "simulator/device_setup.h"
#include "simulator/disk.h"
#include "simulator/volume.h"
#include "simulator/volume_files.h"
#include "test_machine.h"
#include "tests.h"

void SetsUp() {
  TestMachine test(DataPartitions());
  simulator::SimulatedMachine& machine = test.machine;
  const std::uint64_t first = test.partitions[0].offset;
  const std::uint64_t second = test.partitions[1].offset;
  // As on a system that sees the disk for the first time.
  Check(test.LettersAt(first) == "C" && test.LettersAt(second) == "D", "letters by themselves");

  machine.SetLetter(kDiskNumber, first, 'R');
  machine.RemoveLetter('D');
  Check(test.LettersAt(first) == "R" && test.LettersAt(second).empty(), "letters as wanted");

  // An optical drive: a volume on no disk, which takes the first free letter.
  simulator::Volume optical;
  optical.path = R"(\\?\Volume{0d0d0d0d-0000-0000-0000-000000000000})";
  machine.AddVolume(optical);
  Check(machine.LettersOf(*machine.FindVolumeByLetter('C')) == "C", "the drive has a letter");
  Check(machine.FindVolumeByLetter('C')->path == optical.path, "which is the first free one");

  // A folder of the host is a drive without a volume.
  std::ofstream(test.logs / "note.txt") << "of the host";
  std::string text;
  Check(simulator::VolumeFiles(machine).Read("X:\\note.txt", text) == ERROR_SUCCESS &&
            text == "of the host",
        "a file of the host");
  Check(machine.HostPath("X:\\note.txt") == test.logs / "note.txt", "and where it is");

  // A disk that is plugged in again, under another number.
  simulator::RenumberDisk(machine, kDiskNumber, 4);
  Check(machine.FindDisk(4)->path() == R"(\\.\PhysicalDrive4)", "the new number");
  simulator::RenumberDisk(machine, 4, kDiskNumber);

  // What the system believes of a disk is one thing, what is on it another.
  simulator::Disk& disk = *machine.FindDisk(kDiskNumber);
  Check(disk.device().Zero(0, kMib), "the table is cleared");
  Check(machine.FindVolumeByLetter('R') != nullptr, "the system does not know it yet");
  machine.UpdateProperties(disk);
  Check(machine.FindVolumeByLetter('R') == nullptr, "now it does");
  velkora_host::DiskRecord record(kDiskNumber);
  Check(Application(kLogsFolder).Convert(record.disk()) == Screen::kNothingTouched,
        "a disk without a table is refused");
}
