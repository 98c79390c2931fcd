#include "test_machine.h"

#include <system_error>

TempFolder::TempFolder() {
  std::string name = (std::filesystem::temp_directory_path() / "disk-application-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder");
  path_ = name;
}

TempFolder::~TempFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

TestMachine::TestMachine(const std::vector<TestPartition>& made)
    : partitions(made), image(folder / "disk.img"), logs(folder / "logs") {
  MakeDisk(image, partitions);
  std::filesystem::create_directory(logs);
  machine.MapFolder('X', logs);
  machine.AttachDisk(kDiskNumber, image);
  machine.MakeCurrent();
}

void TestMachine::RunFromDisk() {
  const std::uint64_t windows = partitions.at(1).offset;
  machine.SetSystemDisk(kDiskNumber);
  machine.SetLetter(kDiskNumber, windows, 'C');
  machine.AddFile(kDiskNumber, windows, "\\Windows\\System32\\winload.exe", "loader");
}

std::string TestMachine::LettersAt(std::uint64_t offset) {
  const simulator::Volume* volume = machine.FindVolumeAt(kDiskNumber, offset);
  return volume == nullptr ? "no volume" : machine.LettersOf(*volume);
}
