#include "simulator/simulated_machine.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "simulator/commands/shell_line.h"
#include "simulator/commands/standard_commands.h"
#include "simulator/host_files.h"
#include "simulator/partition_volume.h"
#include "simulator/storage/fat32_files.h"
#include "simulator/storage/file_system_probe.h"
#include "simulator/text.h"
#include "simulator/volume_files.h"
#include "simulator/volume_path.h"
#include "simulator/write_rules.h"

namespace simulator {
namespace {

SimulatedMachine* current_machine = nullptr;

// Where IOCTL_DISK_CREATE_DISK makes a reserved partition, it reaches from the first usable sector
// to 16 MiB.
constexpr LONGLONG kReservedPartitionEnd = LONGLONG{16} << 20;

// The style that the system believes in; RAW when it cannot read the table.
DWORD BelievedStyle(Disk& disk) {
  DiskLayout layout;
  if (disk.Layout(layout) != ERROR_SUCCESS) return PARTITION_STYLE_RAW;
  return layout.header.PartitionStyle;
}

// All of the space for a number of sectors that no disk has.
std::uint64_t SectorsToBytes(std::uint64_t sectors, std::uint32_t sector_size) {
  constexpr auto kEverything = std::numeric_limits<std::uint64_t>::max();
  return sectors > kEverything / sector_size ? kEverything : sectors * sector_size;
}

bool LiesOn(const Volume& volume, const Disk& disk) {
  return volume.extents.size() == 1 && volume.extents.front().disk_number == disk.number();
}

bool SamePlace(const VolumeExtent& left, const VolumeExtent& right) {
  return left.offset == right.offset && left.length == right.length;
}

}  // namespace

SimulatedMachine::SimulatedMachine() {
  RegisterStandardCommands(*this);
}

SimulatedMachine::~SimulatedMachine() {
  if (current_machine == this) current_machine = nullptr;
  // An open volume looks at its volume when it is closed.
  handles_ = HandleTable();
}

void SimulatedMachine::MakeCurrent() {
  current_machine = this;
}

SimulatedMachine& SimulatedMachine::Current() {
  if (current_machine == nullptr) throw std::logic_error("no simulated machine is current");
  return *current_machine;
}

void SimulatedMachine::RequireFreeNumber(std::uint32_t number) {
  if (FindDisk(number) == nullptr) return;
  throw std::invalid_argument("disk " + std::to_string(number) + " is attached already");
}

Disk& SimulatedMachine::AttachDisk(std::uint32_t number, const std::filesystem::path& image,
                                   std::uint32_t sector_size, Access access) {
  RequireFreeNumber(number);
  Disk& disk = disks_.emplace_back(number, image, sector_size, access);
  Enumerate(disk);
  return disk;
}

Disk& SimulatedMachine::AttachDisk(std::uint32_t number, const std::filesystem::path& image,
                                   ImageOverlay& overlay, std::uint32_t sector_size) {
  RequireFreeNumber(number);
  Disk& disk = disks_.emplace_back(number, image, sector_size, overlay);
  Enumerate(disk);
  return disk;
}

void SimulatedMachine::MapFolder(char letter, const std::filesystem::path& folder) {
  if (mount_manager_.mapped_folders().empty()) current_drive_ = ToUpperAscii(letter);
  mount_manager_.MapFolder(letter, folder);
}

void SimulatedMachine::AddVolume(const Volume& volume) {
  Volume added = volume;
  if (added.identity.empty()) added.identity = added.path;
  Arrive(std::move(added));
}

void SimulatedMachine::SetLetter(std::uint32_t disk, std::uint64_t offset, char letter) {
  const Volume* volume = FindVolumeAt(disk, offset);
  if (volume == nullptr) throw std::invalid_argument("no volume starts there");
  for (const char old : mount_manager_.LettersOf(volume->identity)) mount_manager_.Remove(old);
  mount_manager_.Remove(letter);
  if (mount_manager_.Assign(letter, *volume) != ERROR_SUCCESS) {
    throw std::invalid_argument("the letter stands for a folder");
  }
}

void SimulatedMachine::RemoveLetter(char letter) {
  mount_manager_.Remove(letter);
}

void SimulatedMachine::AddFile(std::uint32_t disk, std::uint64_t offset, std::string_view path,
                               std::string_view content) {
  Volume* volume = FindVolumeAt(disk, offset);
  if (volume == nullptr || MountForUse(*this, *volume) != ERROR_SUCCESS) {
    throw std::invalid_argument("no volume with a file system of Windows starts there");
  }
  const DWORD error = WriteVolumeFile(*this, *volume, path, content);
  if (error == ERROR_SUCCESS) return;
  throw std::runtime_error("cannot write " + std::string(path) + ": error " +
                           std::to_string(error));
}

void SimulatedMachine::SetCommand(std::string_view name, Command command) {
  commands_[ToolName(name)] = std::move(command);
}

const Command* SimulatedMachine::FindCommand(std::string_view name) const {
  // A path into a mapped folder leads to a tool only where such a file stands.
  const bool is_path = name.find_first_of("\\/") != std::string_view::npos;
  const auto host_path = is_path ? HostPath(name) : std::nullopt;
  std::error_code unreadable;
  if (host_path && !std::filesystem::is_regular_file(*host_path, unreadable)) return nullptr;
  const auto found = commands_.find(ToolName(name));
  return found == commands_.end() ? nullptr : &found->second;
}

Disk* SimulatedMachine::FindDisk(std::uint32_t number) {
  for (Disk& disk : disks_) {
    if (disk.number() == number) return &disk;
  }
  return nullptr;
}

Volume* SimulatedMachine::FindVolumeAt(std::uint32_t disk, std::uint64_t offset) {
  for (Volume& volume : volumes_) {
    if (volume.extents.empty()) continue;
    const VolumeExtent& first = volume.extents.front();
    if (first.disk_number == disk && first.offset == offset) return &volume;
  }
  return nullptr;
}

Volume* SimulatedMachine::FindVolumeByPath(std::string_view path) {
  for (Volume& volume : volumes_) {
    if (EqualsIgnoringCase(volume.path, path)) return &volume;
  }
  return nullptr;
}

Volume* SimulatedMachine::FindVolumeByLetter(char letter) {
  const auto identity = mount_manager_.HolderOf(letter);
  if (!identity) return nullptr;
  for (Volume& volume : volumes_) {
    if (volume.identity == *identity) return &volume;
  }
  return nullptr;
}

Volume* SimulatedMachine::FindVolumeByArrival(std::uint64_t arrival) {
  for (Volume& volume : volumes_) {
    if (volume.arrival == arrival) return &volume;
  }
  return nullptr;
}

std::string SimulatedMachine::LettersOf(const Volume& volume) const {
  const std::vector<char> letters = mount_manager_.LettersOf(volume.identity);
  return {letters.begin(), letters.end()};
}

DWORD SimulatedMachine::CreateDisk(Disk& disk, const CREATE_DISK& request) {
  DWORD error = simulator::CreateDisk(disk.device(), request);
  if (error != ERROR_SUCCESS) return error;
  if (request.PartitionStyle == PARTITION_STYLE_GPT &&
      switches_.create_disk_makes_reserved_partition) {
    error = AddReservedPartition(disk);
  }
  disk.Forget();
  RemoveVolumes(disk, {});
  Enumerate(disk);
  return error;
}

DWORD SimulatedMachine::AddReservedPartition(Disk& disk) {
  DiskLayout layout;
  const DWORD error = ReadLayout(disk.device(), layout);
  if (error != ERROR_SUCCESS) return error;
  PARTITION_INFORMATION_EX row{};
  row.PartitionStyle = PARTITION_STYLE_GPT;
  row.StartingOffset = layout.header.Gpt.StartingUsableOffset;
  row.PartitionLength.QuadPart = kReservedPartitionEnd - row.StartingOffset.QuadPart;
  row.RewritePartition = TRUE;
  row.Gpt.PartitionType = kReservedPartitionType;
  row.Gpt.PartitionId = NextGuid();
  constexpr std::string_view kName = "Microsoft reserved partition";
  std::copy(kName.begin(), kName.end(), row.Gpt.Name);
  layout.rows = {row};
  layout.header.PartitionCount = 1;
  return WriteLayout(disk.device(), layout, switches_.store);
}

DWORD SimulatedMachine::SetLayout(Disk& disk, DiskLayout& layout) {
  const DWORD error = WriteLayout(disk.device(), layout, switches_.store);
  if (error != ERROR_SUCCESS) return error;
  disk.mount_delay = mount_delay_runs;
  UpdateProperties(disk);
  return ERROR_SUCCESS;
}

void SimulatedMachine::UpdateProperties(Disk& disk) {
  const DWORD before = BelievedStyle(disk);
  disk.Forget();
  if (BelievedStyle(disk) != before) RemoveVolumes(disk, {});
  Enumerate(disk);
}

void SimulatedMachine::Rescan() {
  for (Disk& disk : disks_) UpdateProperties(disk);
}

void SimulatedMachine::Mount(Volume& volume) {
  volume.dismounted = false;
  volume.fat32.reset();
  Disk* disk = volume.extents.size() == 1 ? FindDisk(volume.extents.front().disk_number) : nullptr;
  if (disk != nullptr) {
    const std::uint64_t offset = volume.extents.front().offset;
    const FileSystemInfo info = ProbeFileSystem(disk->device(), offset);
    volume.file_system = info.kind;
    volume.boot_area = BootAreaLength(disk->device(), offset, info.kind);
    volume.file_system_space = SectorsToBytes(info.total_sectors, disk->device().sector_size());
    if (info.kind == FileSystem::kFat32) {
      const auto writing =
          switches_.fat32_writes_late ? Fat32Files::Writing::kLate : Fat32Files::Writing::kAtOnce;
      volume.fat32 = std::make_shared<Fat32Files>(disk->device(), offset, writing);
    }
  }
  volume.mounted = IsMountedByWindows(volume.file_system);
}

GUID SimulatedMachine::NextGuid() {
  const auto next = [this] {
    // splitmix64: the same row of GUIDs for the same seed, on every host.
    guid_state_ += 0x9E3779B97F4A7C15u;
    std::uint64_t mixed = guid_state_;
    mixed = (mixed ^ (mixed >> 30)) * 0xBF58476D1CE4E5B9u;
    mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EBu;
    return mixed ^ (mixed >> 31);
  };
  const std::uint64_t high = next();
  const std::uint64_t low = next();
  GUID guid{};
  guid.Data1 = static_cast<DWORD>(high & 0xFFFFFFFF);
  guid.Data2 = static_cast<WORD>(high >> 32);
  guid.Data3 = static_cast<WORD>(((high >> 48) & 0x0FFF) | 0x4000);  // version 4: random
  for (std::size_t i = 0; i < sizeof guid.Data4; ++i) {
    guid.Data4[i] = static_cast<BYTE>(low >> (8 * i));
  }
  guid.Data4[0] = static_cast<BYTE>((guid.Data4[0] & 0x3F) | 0x80);
  return guid;
}

std::optional<std::filesystem::path> SimulatedMachine::HostPath(
    std::string_view windows_path) const {
  return simulator::HostPath(mount_manager_.mapped_folders(), current_drive_, windows_path);
}

void SimulatedMachine::Enumerate(Disk& disk) {
  DiskLayout layout;
  if (!disk.online() || disk.Layout(layout) != ERROR_SUCCESS) layout = {};
  std::vector<Volume> present;
  std::vector<VolumeExtent> places;
  for (const PARTITION_INFORMATION_EX& row : layout.rows) {
    const auto volume = VolumeOfPartition(disk.number(), row);
    if (!volume) continue;
    present.push_back(*volume);
    places.push_back(volume->extents.front());
  }
  RemoveVolumes(disk, places);
  for (Volume& volume : present) {
    Volume* known = FindVolumeAt(disk.number(), volume.extents.front().offset);
    if (known != nullptr) {
      known->partition_number = volume.partition_number;
      if (known->identity != volume.identity) Rename(*known, volume);
    } else {
      Arrive(std::move(volume));
    }
  }
}

void SimulatedMachine::RemoveVolumes(const Disk& disk, const std::vector<VolumeExtent>& kept) {
  std::erase_if(volumes_, [&](const Volume& volume) {
    if (!LiesOn(volume, disk)) return false;
    const auto same = [&volume](const VolumeExtent& place) {
      return SamePlace(place, volume.extents.front());
    };
    if (std::any_of(kept.begin(), kept.end(), same)) return false;
    mount_manager_.Leave(volume);
    return true;
  });
}

// The same place under another identity: the letter stays behind with the old one.
void SimulatedMachine::Rename(Volume& volume, const Volume& as_now) {
  mount_manager_.Leave(volume);
  volume.path = as_now.path;
  volume.identity = as_now.identity;
  volume.automatic_letter = as_now.automatic_letter;
  mount_manager_.Arrive(volume, switches_.automount);
}

void SimulatedMachine::Arrive(Volume volume) {
  volume.arrival = ++arrivals_;
  Volume& arrived = volumes_.emplace_back(std::move(volume));
  Mount(arrived);
  mount_manager_.Arrive(arrived, switches_.automount);
}

}  // namespace simulator
