#include "simulator/commands/chkdsk.h"

#include <algorithm>
#include <string_view>

#include "simulator/disk.h"
#include "simulator/host_ntfs.h"
#include "simulator/system.h"
#include "simulator/text.h"
#include "simulator/volume.h"
#include "simulator/volume_files.h"
#include "simulator/volume_path.h"

namespace simulator {
namespace {

constexpr DWORD kClean = 0;
constexpr DWORD kFixed = 1;
constexpr DWORD kNotChecked = 3;

CommandResult NotChecked(std::string_view reason) {
  return {kNotChecked, std::string(reason) + "\r\n"};
}

bool IsRepairSwitch(std::string_view word) {
  return EqualsIgnoringCase(word, "/x") || EqualsIgnoringCase(word, "/f");
}

Volume* FindVolume(System& system, std::string_view name) {
  if (name.size() == 2 && name[1] == ':') return system.FindVolumeByLetter(name[0]);
  if (name.ends_with('\\')) name.remove_suffix(1);
  return system.FindVolumeByPath(name);
}

void Dismount(Volume& volume) {
  volume.mounted = false;
  volume.dismounted = true;
  ++volume.dismount_count;
}

CommandResult ResultOf(NtfsOutcome outcome) {
  switch (outcome) {
    case NtfsOutcome::kClean:
      return {kClean, "The volume has no damage.\r\n"};
    case NtfsOutcome::kDone:
      return {kFixed, "The volume has been repaired.\r\n"};
    case NtfsOutcome::kNoTool:
      return NotChecked("The host has no ntfsfix and ntfsresize.");
    default:
      return NotChecked("The volume cannot be repaired.");
  }
}

}  // namespace

CommandResult RunChkdsk(System& system, const std::vector<std::string>& arguments) {
  if (arguments.size() < 2 ||
      !std::all_of(arguments.begin() + 1, arguments.end(), IsRepairSwitch)) {
    return NotChecked("Usage: chkdsk <volume> /x");
  }
  Volume* volume = FindVolume(system, arguments.front());
  if (volume == nullptr) return NotChecked("There is no such volume.");
  if (MountForUse(system, *volume) != ERROR_SUCCESS) {
    return NotChecked("The volume is not accessible.");
  }
  if (volume->file_system != FileSystem::kNtfs) return NotChecked("The volume is not NTFS.");
  const VolumeExtent extent = volume->extents.front();
  Disk* disk = system.FindDisk(extent.disk_number);
  if (disk == nullptr) return NotChecked("The volume lies on no disk.");
  Dismount(*volume);
  CommandResult result = ResultOf(RepairNtfs(disk->device(), extent.offset, extent.length));
  system.Mount(*volume);
  return result;
}

}  // namespace simulator
