#include "simulator/system.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "simulator/commands/shell_line.h"
#include "simulator/commands/standard_commands.h"
#include "simulator/disk.h"
#include "simulator/host_files.h"
#include "simulator/partition_volume.h"
#include "simulator/storage/fat32_files.h"
#include "simulator/storage/file_system_probe.h"
#include "simulator/text.h"
#include "simulator/volume.h"
#include "simulator/write_rules.h"

namespace simulator {
namespace {

System* current_system = nullptr;

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

System::System(MachineSettings& settings) : settings_(settings) {
  RegisterStandardCommands(*this);
}

System::~System() {
  if (current_system == this) current_system = nullptr;
  // An open volume looks at its volume when it is closed.
  handles_.CloseAll();
}

void System::MakeCurrent() {
  current_system = this;
}

System& System::Current() {
  if (current_system == nullptr) throw NoCurrentMachine();
  return *current_system;
}

void System::RequireFreeNumber(std::uint32_t number) {
  if (FindDisk(number) == nullptr) return;
  throw std::invalid_argument("disk " + std::to_string(number) + " is attached already");
}

Disk& System::AttachDisk(std::uint32_t number, const std::filesystem::path& image,
                         std::uint32_t sector_size, Access access) {
  RequireFreeNumber(number);
  Disk& disk = disks_.emplace_back(number, image, sector_size, access);
  Enumerate(disk);
  return disk;
}

Disk& System::AttachDisk(std::uint32_t number, const std::filesystem::path& image,
                         ImageOverlay& overlay, std::uint32_t sector_size) {
  RequireFreeNumber(number);
  Disk& disk = disks_.emplace_back(number, image, sector_size, overlay);
  Enumerate(disk);
  return disk;
}

void System::MapFolder(char letter, const std::filesystem::path& folder) {
  if (mount_manager_.mapped_folders().empty()) current_drive_ = ToUpperAscii(letter);
  mount_manager_.MapFolder(letter, folder);
}

void System::SetLetter(std::uint32_t disk, std::uint64_t offset, char letter) {
  const Volume* volume = FindVolumeAt(disk, offset);
  if (volume == nullptr) throw std::invalid_argument("no volume starts there");
  for (const char old : mount_manager_.LettersOf(volume->identity)) mount_manager_.Remove(old);
  mount_manager_.Remove(letter);
  if (mount_manager_.Assign(letter, *volume) != ERROR_SUCCESS) {
    throw std::invalid_argument("the letter stands for a folder");
  }
}

void System::RemoveLetter(char letter) {
  mount_manager_.Remove(letter);
}

void System::SetTool(std::string_view name, Tool tool) {
  tools_[ToolName(name)] = std::move(tool);
}

const Tool* System::FindTool(std::string_view name) const {
  // A path into a mapped folder leads to a tool only where such a file stands.
  const bool is_path = name.find_first_of("\\/") != std::string_view::npos;
  const auto host_path = is_path ? HostPath(name) : std::nullopt;
  std::error_code unreadable;
  if (host_path && !std::filesystem::is_regular_file(*host_path, unreadable)) return nullptr;
  const auto found = tools_.find(ToolName(name));
  return found == tools_.end() ? nullptr : &found->second;
}

Disk* System::FindDisk(std::uint32_t number) {
  for (Disk& disk : disks_) {
    if (disk.number() == number) return &disk;
  }
  return nullptr;
}

Volume* System::FindVolumeAt(std::uint32_t disk, std::uint64_t offset) {
  for (Volume& volume : volumes_) {
    if (volume.extents.empty()) continue;
    const VolumeExtent& first = volume.extents.front();
    if (first.disk_number == disk && first.offset == offset) return &volume;
  }
  return nullptr;
}

Volume* System::FindVolumeByPath(std::string_view path) {
  for (Volume& volume : volumes_) {
    if (EqualsIgnoringCase(volume.path, path)) return &volume;
  }
  return nullptr;
}

Volume* System::FindVolumeByLetter(char letter) {
  const auto identity = mount_manager_.HolderOf(letter);
  if (!identity) return nullptr;
  for (Volume& volume : volumes_) {
    if (volume.identity == *identity) return &volume;
  }
  return nullptr;
}

Volume* System::FindVolumeByArrival(std::uint64_t arrival) {
  for (Volume& volume : volumes_) {
    if (volume.arrival == arrival) return &volume;
  }
  return nullptr;
}

std::string System::LettersOf(const Volume& volume) const {
  const std::vector<char> letters = mount_manager_.LettersOf(volume.identity);
  return {letters.begin(), letters.end()};
}

DWORD System::CreateDisk(Disk& disk, const CREATE_DISK& request) {
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

DWORD System::AddReservedPartition(Disk& disk) {
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

DWORD System::SetLayout(Disk& disk, DiskLayout& layout) {
  const DWORD error = WriteLayout(disk.device(), layout, switches_.store);
  if (error != ERROR_SUCCESS) return error;
  disk.mount_delay = settings_.mount_delay_runs;
  UpdateProperties(disk);
  return ERROR_SUCCESS;
}

void System::UpdateProperties(Disk& disk) {
  const DWORD before = BelievedStyle(disk);
  disk.Forget();
  if (BelievedStyle(disk) != before) RemoveVolumes(disk, {});
  Enumerate(disk);
}

void System::Rescan() {
  for (Disk& disk : disks_) UpdateProperties(disk);
}

void System::Mount(Volume& volume) {
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

std::optional<std::filesystem::path> System::HostPath(std::string_view windows_path) const {
  return simulator::HostPath(mount_manager_.mapped_folders(), current_drive_, windows_path);
}

void System::Enumerate(Disk& disk) {
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

void System::RemoveVolumes(const Disk& disk, const std::vector<VolumeExtent>& kept) {
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
void System::Rename(Volume& volume, const Volume& as_now) {
  mount_manager_.Leave(volume);
  volume.path = as_now.path;
  volume.identity = as_now.identity;
  volume.automatic_letter = as_now.automatic_letter;
  mount_manager_.Arrive(volume, switches_.automount);
}

void System::Arrive(Volume volume) {
  volume.arrival = ++arrivals_;
  Volume& arrived = volumes_.emplace_back(std::move(volume));
  Mount(arrived);
  mount_manager_.Arrive(arrived, switches_.automount);
}

}  // namespace simulator
