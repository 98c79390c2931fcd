#include "windows/conformance/machine.h"

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "simulator/simulated_machine.h"
#include "support/machine_test.h"
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

constexpr std::uint64_t kImageSize = 16 << 20;

}  // namespace

struct Machine::State {
  State() {
    machine.MapFolder('X', temp.path());
    machine.SetCommand("echo", Echo);
    machine.SetCommand("exit", Exit);
    machine.SetCommand("tool", Exit);
    machine.MakeCurrent();
    AttachDiskWithTwoVolumes();
  }

  void AttachDiskWithTwoVolumes() {
    const std::filesystem::path image = images.path() / "disk.img";
    std::ofstream(image).close();
    std::filesystem::resize_file(image, kImageSize);
    simulator::Disk& disk = machine.AttachDisk(1, image);
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

bool Machine::IsWine() {
  return false;
}

}  // namespace conformance
