#include "conformance/machine.h"

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "simulator/simulated_machine.h"
#include "simulator/volume.h"
#include "support/machine_fixture.h"
#include "support/temp_folder.h"

namespace conformance {
namespace {

using simulator::CommandResult;
using simulator::SimulatedMachine;

CommandResult Echo(SimulatedMachine&, const std::vector<std::string>& arguments) {
  std::string output;
  for (const std::string& argument : arguments) output += (output.empty() ? "" : " ") + argument;
  return {0, output + "\r\n"};
}

// Ends with its last argument as the status.
CommandResult Exit(SimulatedMachine&, const std::vector<std::string>& arguments) {
  return {static_cast<DWORD>(std::stoul(arguments.back())), ""};
}

constexpr std::uint64_t kMiB = 1 << 20;
constexpr std::uint32_t kSpareDisk = 2;

}  // namespace

struct Machine::State {
  State() {
    machine.MapFolder('X', temp.path());
    machine.SetCommand("echo", Echo);
    machine.SetCommand("exit", Exit);
    machine.SetCommand("tool", Exit);
    machine.MakeCurrent();
    AttachDiskWithTwoVolumes();
    machine.AttachDisk(kSpareDisk, NewImage("spare.img", 256 * kMiB));
  }

  std::filesystem::path NewImage(const std::string& name, std::uint64_t size) const {
    const std::filesystem::path image = images.path() / name;
    std::ofstream(image).close();
    std::filesystem::resize_file(image, size);
    return image;
  }

  void AttachDiskWithTwoVolumes() {
    simulator::Disk& disk = machine.AttachDisk(1, NewImage("disk.img", 16 * kMiB));
    testing_support::WriteMbr(disk, {{.type = 7, .first_sector = 2048, .sector_count = 2048},
                                     {.type = 7, .first_sector = 8192, .sector_count = 4096}});
    machine.UpdateProperties(disk);
  }

  testing_support::TempFolder temp;
  testing_support::TempFolder images;
  std::string folder = "X:";
  SimulatedMachine machine;
};

Machine::Machine() : state_(std::make_unique<State>()) {}
Machine::~Machine() = default;

const std::string& Machine::folder() const {
  return state_->folder;
}

void Machine::MakeFolder(const std::string& name) const {
  std::filesystem::create_directory(state_->temp.path() / name);
}

char Machine::current_drive() const {
  return state_->machine.current_drive();
}

std::int64_t Machine::Now() const {
  return state_->machine.time();
}

// A program that is named by its path has to be there.
std::string Machine::ProgramWithBlank() const {
  MakeFolder("with blank");
  std::ofstream(state_->temp.path() / "with blank" / "tool.exe").close();
  return "X:\\with blank\\tool.exe";
}

std::uint32_t Machine::spare_disk() const {
  return kSpareDisk;
}

void Machine::PutFile(const std::string& volume_root, const std::string& name,
                      std::size_t size) const {
  const auto* volume =
      state_->machine.FindVolumeByPath(volume_root.substr(0, volume_root.size() - 1));
  if (volume == nullptr) throw std::invalid_argument(volume_root);
  state_->machine.AddFile(kSpareDisk, volume->extents.front().offset, name, std::string(size, 'v'));
}

// The machine looks at the boot sector of NTFS alone. The volume's last sector is a copy of it,
// which the file system does not count as its own.
void Machine::FormatAsNtfs(std::uint64_t offset) const {
  simulator::Volume* volume = state_->machine.FindVolumeAt(kSpareDisk, offset);
  simulator::Disk* disk = state_->machine.FindDisk(kSpareDisk);
  if (volume == nullptr || disk == nullptr) throw std::invalid_argument("no volume to format");
  testing_support::WriteNtfsBootSector(*disk, offset / 512,
                                       volume->extents.front().length / 512 - 1);
  state_->machine.Mount(*volume);
}

bool Machine::IsWine() {
  return false;
}

}  // namespace conformance
