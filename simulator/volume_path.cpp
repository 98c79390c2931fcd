#include "simulator/volume_path.h"

#include <algorithm>

#include "simulator/storage/fat32_clusters.h"
#include "simulator/system.h"
#include "simulator/volume.h"

namespace simulator {
namespace {

constexpr std::string_view kVerbatimPrefix = "\\\\?\\";

bool BeginsWithDrive(std::string_view path) {
  return path.size() >= 2 && path[1] == ':';
}

}  // namespace

std::string_view WithoutVerbatimPrefix(std::string_view path) {
  if (!path.starts_with(kVerbatimPrefix)) return path;
  const std::string_view rest = path.substr(kVerbatimPrefix.size());
  return BeginsWithDrive(rest) ? rest : path;
}

DWORD FindVolumePath(System& system, std::string_view path, VolumePath& found) {
  path = WithoutVerbatimPrefix(path);
  std::size_t end = 2;
  if (BeginsWithDrive(path)) {
    found.volume = system.FindVolumeByLetter(path[0]);
  } else {
    end = std::min(path.size(), path.find('\\', kVerbatimPrefix.size()));
    found.volume = system.FindVolumeByPath(path.substr(0, end));
  }
  if (found.volume == nullptr) return ERROR_PATH_NOT_FOUND;
  found.inner = path.substr(end);
  return MountForUse(system, *found.volume);
}

DWORD MountForUse(System& system, Volume& volume) {
  if (volume.extents.size() != 1) return ERROR_NOT_READY;
  if (volume.locked) return ERROR_ACCESS_DENIED;
  if (!volume.mounted) system.Mount(volume);
  return volume.mounted ? ERROR_SUCCESS : kErrorUnrecognizedVolume;
}

}  // namespace simulator
