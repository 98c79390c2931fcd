#include "simulator/open_path.h"

#include <algorithm>
#include <charconv>
#include <optional>

#include "simulator/disk_device.h"
#include "simulator/host_file_device.h"
#include "simulator/system.h"
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
Disk* FindDiskByName(System& system, std::string_view name) {
  if (const auto number = DiskNumberOf(name)) return system.FindDisk(*number);
  for (Disk& disk : system.disks()) {
    std::string_view path = disk.identity.interface_path;
    path.remove_prefix(std::min(kVerbatimPrefix.size(), path.size()));
    if (!path.empty() && EqualsIgnoringCase(path, name)) return &disk;
  }
  return nullptr;
}

// Opening a volume by name is what makes Windows look at its file system.
DWORD OpenVolume(System& system, Volume* volume, DWORD access,
                 std::unique_ptr<HandleObject>& object) {
  if (volume == nullptr) return ERROR_FILE_NOT_FOUND;
  if (volume->locked) return ERROR_ACCESS_DENIED;
  if (!volume->mounted) system.Mount(*volume);
  object = std::make_unique<VolumeDevice>(system, *volume, access);
  return ERROR_SUCCESS;
}

bool IsDriveName(std::string_view name) {
  return name.size() == 2 && name[1] == ':';
}

// `name` is a path behind its prefix.
DWORD OpenDevice(System& system, std::string_view name, DWORD access,
                 std::unique_ptr<HandleObject>& object) {
  if (Disk* disk = FindDiskByName(system, name)) {
    object = std::make_unique<DiskDevice>(system, *disk, access);
    return ERROR_SUCCESS;
  }
  if (IsDriveName(name)) {
    return OpenVolume(system, system.FindVolumeByLetter(name[0]), access, object);
  }
  if (!StartsWithIgnoringCase(name, kVolumeName)) return ERROR_FILE_NOT_FOUND;
  const std::string path = std::string(kVerbatimPrefix) + std::string(name);
  return OpenVolume(system, system.FindVolumeByPath(path), access, object);
}

// A file or folder on a volume: `\\?\C:\folder\file`, `\\?\Volume{...}\folder\file`.
bool IsVerbatimFile(std::string_view name) {
  return name.find('\\') != std::string_view::npos &&
         (StartsWithIgnoringCase(name, kVolumeName) || IsDriveName(name.substr(0, 2)));
}

DWORD OpenByPath(System& system, const OpenRequest& request, std::unique_ptr<HandleObject>& object,
                 bool& existed) {
  if (request.path.empty()) return ERROR_PATH_NOT_FOUND;
  const auto host_path = system.HostPath(WithoutVerbatimPrefix(request.path));
  if (host_path) {
    return OpenHostFile(*host_path, request.access, request.disposition, object, existed);
  }
  VolumePath place;
  const DWORD error = FindVolumePath(system, request.path, place);
  if (error != ERROR_SUCCESS) return error;
  return OpenVolumeFile(system, place, request, object, existed);
}

}  // namespace

DWORD OpenPath(System& system, const OpenRequest& request, std::unique_ptr<HandleObject>& object,
               bool& existed) {
  std::string_view path = request.path;
  const bool verbatim = path.starts_with(kVerbatimPrefix);
  if (!verbatim && !path.starts_with(kDevicePrefix)) {
    return OpenByPath(system, request, object, existed);
  }
  path.remove_prefix(kDevicePrefix.size());
  if (verbatim && IsVerbatimFile(path)) return OpenByPath(system, request, object, existed);
  existed = true;
  if (request.disposition != OPEN_EXISTING) return ERROR_INVALID_PARAMETER;
  return OpenDevice(system, path, request.access, object);
}

}  // namespace simulator
