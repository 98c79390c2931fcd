#include "convert/mbr_to_gpt.h"

#include "boot/boot_recovery.h"
#include "boot/boot_store.h"
#include "convert/layout_builder.h"
#include "convert/partition_reader.h"
#include "convert/partition_types.h"
#include "convert/protected_conversion.h"
#include "convert/volume_numbers.h"
#include "disk/disk_control.h"
#include "disk/drive_letters.h"
#include "disk/letter_restore.h"
#include "frame/disk_records.h"
#include "frame/global_context.h"
#include "frame/progress.h"
#include "logging/log.h"
#include "platform/guard.h"
#include "platform/win32.h"
#include "tools/diskpart.h"

namespace velkora {
namespace {

void LogFailure(const char* step) {
  LogEx(kLogModule, kLogError, "%s: %d", step, static_cast<int>(win32::GetLastError()));
}

// Makes the system look at the table anew. A failure is logged and fails nothing.
void UpdateDiskProperties(const Velkora& converter) {
  if (!ControlDisk(converter.disk_handle, IOCTL_DISK_UPDATE_PROPERTIES, nullptr, 0)) {
    LogFailure("IOCTL_DISK_UPDATE_PROPERTIES Error");
  }
}

bool CreateGptDisk(const Velkora& converter, std::size_t row_count, GUID& disk_id) {
  LogEx(kLogModule, kLogProgress, "Create gpt disk");
  if (win32::CoCreateGuid(&disk_id) != S_OK) {
    LogFailure("CoCreateGuid Error");
    return false;
  }
  CREATE_DISK request = MakeGptCreateDisk(disk_id, row_count);
  if (!ControlDisk(converter.disk_handle, IOCTL_DISK_CREATE_DISK, &request, sizeof request)) {
    LogFailure("Set New Disk Error");
    return false;
  }
  UpdateDiskProperties(converter);
  DISKPART_Rescan();
  return true;
}

bool WriteGptTable(const Velkora& converter, const MbrPartitionList& rows,
                   std::uint32_t efi_position, const GUID& disk_id) {
  std::optional<LayoutBuffer> layout = BuildGptLayout(rows, efi_position, disk_id);
  if (!layout || StopRequested()) return false;
  SendPercent(converter, 60);
  SendStatus(converter, VelkoraStatus::kWriting);
  LogEx(kLogModule, kLogProgress, "Set gpt partition table");
  LogDiskLayout(*layout);
  if (!ControlDisk(converter.disk_handle, IOCTL_DISK_SET_DRIVE_LAYOUT_EX, layout->data(),
                   layout->size())) {
    LogFailure("IOCTL_DISK_SET_DRIVE_LAYOUT_EX Error");
    return false;
  }
  UpdateDiskProperties(converter);
  return true;
}

// Joins the caller's record to the new table: partition numbers, then letters.
void RestoreVolumes(Velkora& converter, const MbrPartitionList& rows) {
  converter.partition_offsets = MbrPartitionOffsets(rows);
  UpdateVolumePartNumbers(converter.partition_offsets, *converter.disk_info);
  DISKPART_Rescan();
  if (!RestoreVolumeInfosAfterConvert(converter)) LogFailure("RestoreVolumeInfos error");
}

// Makes the new EFI system partition usable and gives it a boot store.
bool RepairUefiBoot(const Velkora& converter, std::uint32_t efi_position) {
  const std::uint32_t disk = converter.disk_info->index;
  SendPercent(converter, 80);
  SendStatus(converter, VelkoraStatus::kRepairingBoot);
  LogEx(kLogModule, kLogProgress, "Repair boot");
  DISKPART_Rescan();
  if (!DISKPART_Format(disk, efi_position, "fat32", /*quick=*/true)) return false;
  const std::string efi_letter = GetFirstUnUsedLetter();
  // No mask of letters comes to this: the trial mask is full only with C to Z in use and A and B
  // free, and those two are what is given then.
  if (efi_letter.empty()) {
    LogEx(kLogModule, kLogError, "GetFirstUnUsedLetter fail!");
    return false;
  }
  if (!DISKPART_Assign(disk, efi_position, efi_letter)) return false;
  DISKPART_Rescan();
  std::string system_letter;
  if (!GetSystemVolumeLetter(converter, system_letter)) return false;
  return RecoverBcd(system_letter, efi_letter, /*uefi=*/true, /*plain=*/false) &&
         BcdEnableRecovery(efi_letter);
}

}  // namespace

bool ConvertMbrToGpt(Velkora& converter) {
  MbrPartitionList rows;
  bool read = false;
  win32::Catching([&] { read = ReadMbrPartitions(converter.disk_handle, rows); });
  if (!read) {
    LogEx(kLogModule, kLogError, "Get partitions fail!");
    return false;
  }
  converter.partition_offsets = MbrPartitionOffsets(rows);
  const std::int32_t error = BackUpDisk(converter);
  if (error != 0) {
    // Unlike the other direction, the callback is told nothing.
    LogBackupError(error);
    return false;
  }
  return GuardedMBR2GPT(converter, rows);
}

bool MBR2GPT(Velkora& converter, const MbrPartitionList& list) {
  MbrPartitionList rows = list;
  LogEx(kLogModule, kLogProgress, "MBR2GPT start");
  SendPercent(converter, 0);
  SendStatus(converter, VelkoraStatus::kChecking);
  SortByFirstSector(rows);
  LogEx(kLogModule, kLogProgress, "Check and compress partition");
  std::uint32_t efi_position = 0;
  // On a data disk a failure here is forgotten, and the platform decides on the table. The list may
  // be cut or empty by then: a failed read or a stop behind the shrink leaves the rows read so far,
  // and the run ends in success with a GPT of those.
  if (!EnsureGptTailRoom(converter, rows) && converter.disk_info->is_system != 0) return false;
  if (!EnsureEfiRoom(converter, rows, &efi_position)) return false;

  SendPercent(converter, 20);
  SendStatus(converter, VelkoraStatus::kClearing);
  if (!DISKPART_Clean(converter.disk_info->index)) return false;

  SendPercent(converter, 40);
  SendStatus(converter, VelkoraStatus::kCreating);
  GUID disk_id{};
  if (!CreateGptDisk(converter, rows.size(), disk_id)) return false;

  // Without partitions there is no table to write, no letter to restore and nothing to boot from.
  if (!rows.empty()) {
    if (!WriteGptTable(converter, rows, efi_position, disk_id)) return false;
    RestoreVolumes(converter, rows);
    if (converter.disk_info->is_system != 0 && !RepairUefiBoot(converter, efi_position)) {
      return false;
    }
  }

  SendPercent(converter, 100);
  SendStatus(converter, VelkoraStatus::kFinished);
  LogEx(kLogModule, kLogProgress, "MBR2GPT end");
  return true;
}

bool GetSystemVolumeLetter(const Velkora& converter, std::string& letter) {
  const DiskInfo& disk = *converter.disk_info;
  for (std::uint8_t i = 0; i < disk.volume_count; ++i) {
    const VolumeInfo& volume = VolumeAt(disk, i);
    if (volume.is_system == 0 || volume.letter[0] == '\0') continue;
    letter.assign(1, volume.letter[0]);
    return true;
  }
  return false;
}

}  // namespace velkora
