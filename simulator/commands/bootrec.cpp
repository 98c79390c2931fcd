#include "simulator/commands/bootrec.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "simulator/commands/bcd_store.h"
#include "simulator/commands/boot_code.h"
#include "simulator/disk.h"
#include "simulator/system.h"
#include "simulator/text.h"
#include "simulator/volume.h"
#include "simulator/volume_files.h"
#include "simulator/volume_path.h"

namespace simulator {
namespace {

constexpr GUID kEfiSystemType = {
    0xC12A7328, 0xF81F, 0x11D2, {0xBA, 0x4B, 0x00, 0xA0, 0xC9, 0x3E, 0xC9, 0x3B}};

CommandResult Failed(std::string_view reason) {
  return {1, std::string(reason) + "\r\n"};
}

bool StartsTheMachine(const PARTITION_INFORMATION_EX& row) {
  if (row.PartitionStyle == PARTITION_STYLE_MBR) return row.Mbr.BootIndicator != FALSE;
  return std::memcmp(&row.Gpt.PartitionType, &kEfiSystemType, sizeof(GUID)) == 0;
}

// The mounted volume that the machine starts from, and whether by UEFI. Null when there is none.
Volume* FindBootVolume(System& system, Disk& disk, bool& uefi) {
  DiskLayout layout;
  if (disk.Layout(layout) != ERROR_SUCCESS) return nullptr;
  uefi = layout.header.PartitionStyle == PARTITION_STYLE_GPT;
  const auto row = std::find_if(layout.rows.begin(), layout.rows.end(), StartsTheMachine);
  if (row == layout.rows.end()) return nullptr;
  Volume* volume =
      system.FindVolumeAt(disk.number(), static_cast<std::uint64_t>(row->StartingOffset.QuadPart));
  const bool usable = volume != nullptr && MountForUse(system, *volume) == ERROR_SUCCESS;
  return usable ? volume : nullptr;
}

// The letter of the first volume with a Windows folder; 0 when there is none.
char FindWindows(System& system) {
  for (const Volume& volume : system.volumes()) {
    for (const char letter : system.LettersOf(volume)) {
      if (VolumeFiles(system).Exists(letter + std::string(":\\Windows"))) return letter;
    }
  }
  return 0;
}

CommandResult FixMbr(Disk& disk) {
  if (!WriteMasterBootCode(disk.device())) return Failed("The boot record cannot be written.");
  return {0, "The disk has new master boot code.\r\n"};
}

CommandResult FixBoot(System& system, Disk& disk) {
  bool uefi = false;
  const Volume* volume = FindBootVolume(system, disk, uefi);
  if (volume == nullptr) return Failed("There is no partition to start from.");
  if (!WriteVolumeBootCode(disk.device(), volume->extents.front().offset, volume->file_system)) {
    return Failed("The boot sector cannot be written.");
  }
  return {0, "The volume has new boot code.\r\n"};
}

CommandResult RebuildStore(System& system, Disk& disk) {
  const char windows_letter = FindWindows(system);
  if (windows_letter == 0) return {0, "There is no Windows.\r\n"};
  bool uefi = false;
  const Volume* volume = FindBootVolume(system, disk, uefi);
  if (volume == nullptr) return Failed("There is no partition to start from.");
  const std::string letters = system.LettersOf(*volume);
  const BcdSettings settings{windows_letter, letters.empty() ? windows_letter : letters.front(),
                             uefi, GuidText(system.NextGuid())};
  const DWORD error =
      WriteVolumeFile(system, *volume, uefi ? "\\EFI\\Microsoft\\Boot\\BCD" : "\\Boot\\BCD",
                      BcdFileText(MakeBcdStore(settings)));
  if (error != ERROR_SUCCESS) return Failed("The store cannot be written.");
  return {0, "Windows has been added to the boot store.\r\n"};
}

}  // namespace

CommandResult RunBootrec(System& system, const std::vector<std::string>& arguments) {
  const std::string_view step = arguments.size() == 1 ? arguments.front() : std::string_view();
  Disk* disk = system.FindDisk(system.system_disk());
  if (disk == nullptr) return Failed("The machine has no system disk.");
  if (EqualsIgnoringCase(step, "/fixmbr")) return FixMbr(*disk);
  if (EqualsIgnoringCase(step, "/fixboot")) return FixBoot(system, *disk);
  if (EqualsIgnoringCase(step, "/rebuildbcd")) return RebuildStore(system, *disk);
  return Failed("Usage: bootrec /fixmbr | /fixboot | /rebuildbcd");
}

}  // namespace simulator
