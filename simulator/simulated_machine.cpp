#include "simulator/simulated_machine.h"

#include <stdexcept>
#include <utility>
#include <vector>

#include "simulator/system.h"
#include "simulator/volume.h"
#include "simulator/volume_files.h"
#include "simulator/volume_path.h"

namespace simulator {

SimulatedMachine::SimulatedMachine()
    : system_(std::make_unique<System>(*this)), crash_sender(system_->crash_sender()) {}

SimulatedMachine::~SimulatedMachine() = default;

void SimulatedMachine::MakeCurrent() {
  system_->MakeCurrent();
}

// ---- Setting up --------------------------------------------------------------------------------

Switches& SimulatedMachine::switches() {
  return system_->switches();
}

Disk& SimulatedMachine::AttachDisk(std::uint32_t number, const std::filesystem::path& image,
                                   std::uint32_t sector_size, Access access) {
  return system_->AttachDisk(number, image, sector_size, access);
}

Disk& SimulatedMachine::AttachDisk(std::uint32_t number, const std::filesystem::path& image,
                                   ImageOverlay& overlay, std::uint32_t sector_size) {
  return system_->AttachDisk(number, image, overlay, sector_size);
}

void SimulatedMachine::MapFolder(char letter, const std::filesystem::path& folder) {
  system_->MapFolder(letter, folder);
}

void SimulatedMachine::AddVolume(const Volume& volume) {
  Volume added = volume;
  if (added.identity.empty()) added.identity = added.path;
  system_->Arrive(std::move(added));
}

void SimulatedMachine::SetLetter(std::uint32_t disk, std::uint64_t offset, char letter) {
  system_->SetLetter(disk, offset, letter);
}

void SimulatedMachine::RemoveLetter(char letter) {
  system_->RemoveLetter(letter);
}

void SimulatedMachine::AddFile(std::uint32_t disk, std::uint64_t offset, std::string_view path,
                               std::string_view content) {
  Volume* volume = FindVolumeAt(disk, offset);
  if (volume == nullptr || MountForUse(*system_, *volume) != ERROR_SUCCESS) {
    throw std::invalid_argument("no volume with a file system of Windows starts there");
  }
  const DWORD error = WriteVolumeFile(*system_, *volume, path, content);
  if (error == ERROR_SUCCESS) return;
  throw std::runtime_error("cannot write " + std::string(path) + ": error " +
                           std::to_string(error));
}

void SimulatedMachine::SetSystemDisk(std::uint32_t number) {
  system_->SetSystemDisk(number);
}

std::uint32_t SimulatedMachine::system_disk() const {
  return system_->system_disk();
}

void SimulatedMachine::SetCommand(std::string_view name, Command command) {
  system_->SetTool(name, [this, command = std::move(command)](
                             System&, const std::vector<std::string>& arguments) {
    return command(*this, arguments);
  });
}

void SimulatedMachine::SetTime(std::int64_t seconds) {
  system_->SetTime(seconds);
}

void SimulatedMachine::SetGuidSeed(std::uint64_t seed) {
  system_->SetGuidSeed(seed);
}

// ---- Looking at it -----------------------------------------------------------------------------

CallLog& SimulatedMachine::calls() {
  return system_->calls();
}

Clock& SimulatedMachine::clock() {
  return system_->clock();
}

HandleTable& SimulatedMachine::handles() {
  return system_->handles();
}

MountManager& SimulatedMachine::mount_manager() {
  return system_->mount_manager();
}

char SimulatedMachine::current_drive() const {
  return system_->current_drive();
}

std::int64_t SimulatedMachine::time() const {
  return system_->time();
}

Disk* SimulatedMachine::FindDisk(std::uint32_t number) {
  return system_->FindDisk(number);
}

std::list<Disk>& SimulatedMachine::disks() {
  return system_->disks();
}

std::list<Volume>& SimulatedMachine::volumes() {
  return system_->volumes();
}

Volume* SimulatedMachine::FindVolumeAt(std::uint32_t disk, std::uint64_t offset) {
  return system_->FindVolumeAt(disk, offset);
}

Volume* SimulatedMachine::FindVolumeByPath(std::string_view path) {
  return system_->FindVolumeByPath(path);
}

Volume* SimulatedMachine::FindVolumeByLetter(char letter) {
  return system_->FindVolumeByLetter(letter);
}

std::string SimulatedMachine::LettersOf(const Volume& volume) const {
  return system_->LettersOf(volume);
}

MemoryFiles& SimulatedMachine::memory_files(std::uint32_t disk, std::uint64_t offset) {
  return system_->memory_files(disk, offset);
}

std::optional<std::filesystem::path> SimulatedMachine::HostPath(
    std::string_view windows_path) const {
  return system_->HostPath(windows_path);
}

// ---- Doing what the system does ----------------------------------------------------------------

DWORD SimulatedMachine::CreateDisk(Disk& disk, const CREATE_DISK& request) {
  return system_->CreateDisk(disk, request);
}

DWORD SimulatedMachine::SetLayout(Disk& disk, DiskLayout& layout) {
  return system_->SetLayout(disk, layout);
}

void SimulatedMachine::UpdateProperties(Disk& disk) {
  system_->UpdateProperties(disk);
}

void SimulatedMachine::Rescan() {
  system_->Rescan();
}

void SimulatedMachine::Mount(Volume& volume) {
  system_->Mount(volume);
}

GUID SimulatedMachine::NextGuid() {
  return system_->NextGuid();
}

}  // namespace simulator
