#include "simulator/open_path.h"

#include <charconv>
#include <optional>

#include "simulator/disk_device.h"
#include "simulator/host_file_device.h"
#include "simulator/simulated_machine.h"
#include "simulator/text.h"
#include "simulator/volume_device.h"

namespace simulator {
namespace {

constexpr std::string_view kDevicePrefix = "\\\\.\\";
constexpr std::string_view kVerbatimPrefix = "\\\\?\\";
constexpr std::string_view kDiskName = "PhysicalDrive";
constexpr std::string_view kVolumeName = "Volume{";

// Believed: a volume path with something behind it names a folder or file of that volume, and
// there is none that could be opened so.
constexpr DWORD kErrorInsideVolume = ERROR_PATH_NOT_FOUND;

std::optional<std::uint32_t> DiskNumberOf(std::string_view name) {
  if (!StartsWithIgnoringCase(name, kDiskName)) return std::nullopt;
  name.remove_prefix(kDiskName.size());
  std::uint32_t number = 0;
  const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), number);
  if (error != std::errc() || end != name.data() + name.size()) return std::nullopt;
  return number;
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
  if (const auto number = DiskNumberOf(name)) {
    Disk* disk = machine.FindDisk(*number);
    if (disk == nullptr) return ERROR_FILE_NOT_FOUND;
    object = std::make_unique<DiskDevice>(machine, *disk, access);
    return ERROR_SUCCESS;
  }
  if (IsDriveName(name)) {
    return OpenVolume(machine, machine.FindVolumeByLetter(name[0]), access, object);
  }
  if (!StartsWithIgnoringCase(name, kVolumeName)) return ERROR_FILE_NOT_FOUND;
  const std::string path = std::string(kVerbatimPrefix) + std::string(name);
  const std::size_t separator = path.find('\\', kVerbatimPrefix.size());
  Volume* volume = machine.FindVolumeByPath(std::string_view(path).substr(0, separator));
  if (volume != nullptr && separator != std::string::npos) return kErrorInsideVolume;
  return OpenVolume(machine, volume, access, object);
}

// `\\?\C:\folder\file` is an ordinary path too.
bool IsVerbatimFile(std::string_view name) {
  return name.size() > 2 && name[1] == ':' && name[2] == '\\';
}

}  // namespace

DWORD OpenPath(SimulatedMachine& machine, const OpenRequest& request,
               std::unique_ptr<HandleObject>& object, bool& existed) {
  std::string_view path = request.path;
  const bool verbatim = path.starts_with(kVerbatimPrefix);
  if (path.starts_with(kDevicePrefix) || verbatim) {
    path.remove_prefix(kDevicePrefix.size());
    if (!verbatim || !IsVerbatimFile(path)) {
      existed = true;
      if (request.disposition != OPEN_EXISTING) return ERROR_INVALID_PARAMETER;
      return OpenDevice(machine, path, request.access, object);
    }
  }
  if (path.empty()) return ERROR_PATH_NOT_FOUND;
  const auto host_path = machine.HostPath(path);
  if (!host_path) return ERROR_PATH_NOT_FOUND;
  return OpenHostFile(*host_path, request.access, request.disposition, object, existed);
}

}  // namespace simulator
