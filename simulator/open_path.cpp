#include "simulator/open_path.h"

#include <algorithm>
#include <charconv>
#include <optional>

#include "simulator/disk_device.h"
#include "simulator/host_file_device.h"
#include "simulator/simulated_machine.h"
#include "simulator/text.h"
#include "simulator/volume_device.h"
#include "simulator/volume_file_device.h"
#include "simulator/volume_path.h"

namespace simulator {
namespace {

constexpr std::string_view kDevicePrefix = "\\\\.\\";
constexpr std::string_view kVerbatimPrefix = "\\\\?\\";
constexpr std::string_view kDiskName = "PhysicalDrive";
constexpr std::string_view kVolumeName = "Volume{";

std::optional<std::uint32_t> DiskNumberOf(std::string_view name) {
  if (!StartsWithIgnoringCase(name, kDiskName)) return std::nullopt;
  name.remove_prefix(kDiskName.size());
  std::uint32_t number = 0;
  const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), number);
  if (error != std::errc() || end != name.data() + name.size()) return std::nullopt;
  return number;
}

// Null for a name that no disk has, neither as its number nor as its interface.
Disk* FindDiskByName(SimulatedMachine& machine, std::string_view name) {
  if (const auto number = DiskNumberOf(name)) return machine.FindDisk(*number);
  for (Disk& disk : machine.disks()) {
    std::string_view path = disk.identity.interface_path;
    path.remove_prefix(std::min(kVerbatimPrefix.size(), path.size()));
    if (!path.empty() && EqualsIgnoringCase(path, name)) return &disk;
  }
  return nullptr;
}

// Opening a volume by name is what makes Windows look at its file system.
DWORD OpenVolume(SimulatedMachine& machine, Volume* volume, DWORD access,
                 std::unique_ptr<HandleObject>& object) {
  if (volume == nullptr) return ERROR_FILE_NOT_FOUND;
  if (volume->locked) return ERROR_ACCESS_DENIED;
  if (!volume->mounted) machine.Mount(*volume);
  object = std::make_unique<VolumeDevice>(machine, *volume, access);
  return ERROR_SUCCESS;
}

bool IsDriveName(std::string_view name) {
  return name.size() == 2 && name[1] == ':';
}

// `name` is a path behind its prefix.
DWORD OpenDevice(SimulatedMachine& machine, std::string_view name, DWORD access,
                 std::unique_ptr<HandleObject>& object) {
  if (Disk* disk = FindDiskByName(machine, name)) {
    object = std::make_unique<DiskDevice>(machine, *disk, access);
    return ERROR_SUCCESS;
  }
  if (IsDriveName(name)) {
    return OpenVolume(machine, machine.FindVolumeByLetter(name[0]), access, object);
  }
  if (!StartsWithIgnoringCase(name, kVolumeName)) return ERROR_FILE_NOT_FOUND;
  const std::string path = std::string(kVerbatimPrefix) + std::string(name);
  return OpenVolume(machine, machine.FindVolumeByPath(path), access, object);
}

// A file or folder on a volume: `\\?\C:\folder\file`, `\\?\Volume{...}\folder\file`.
bool IsVerbatimFile(std::string_view name) {
  return name.find('\\') != std::string_view::npos &&
         (StartsWithIgnoringCase(name, kVolumeName) || IsDriveName(name.substr(0, 2)));
}

DWORD OpenByPath(SimulatedMachine& machine, const OpenRequest& request,
                 std::unique_ptr<HandleObject>& object, bool& existed) {
  if (request.path.empty()) return ERROR_PATH_NOT_FOUND;
  const auto host_path = machine.HostPath(WithoutVerbatimPrefix(request.path));
  if (host_path) {
    return OpenHostFile(*host_path, request.access, request.disposition, object, existed);
  }
  VolumePath place;
  const DWORD error = FindVolumePath(machine, request.path, place);
  if (error != ERROR_SUCCESS) return error;
  return OpenVolumeFile(machine, place, request, object, existed);
}

}  // namespace

DWORD OpenPath(SimulatedMachine& machine, const OpenRequest& request,
               std::unique_ptr<HandleObject>& object, bool& existed) {
  std::string_view path = request.path;
  const bool verbatim = path.starts_with(kVerbatimPrefix);
  if (!verbatim && !path.starts_with(kDevicePrefix)) {
    return OpenByPath(machine, request, object, existed);
  }
  path.remove_prefix(kDevicePrefix.size());
  if (verbatim && IsVerbatimFile(path)) return OpenByPath(machine, request, object, existed);
  existed = true;
  if (request.disposition != OPEN_EXISTING) return ERROR_INVALID_PARAMETER;
  return OpenDevice(machine, path, request.access, object);
}

}  // namespace simulator
