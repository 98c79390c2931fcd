#include "convert/gpt_to_mbr.h"

#include "boot/boot_sector.h"
#include "boot/boot_store.h"
#include "convert/layout_builder.h"
#include "convert/partition_reader.h"
#include "convert/partition_types.h"
#include "convert/protected_conversion.h"
#include "convert/volume_numbers.h"
#include "disk/disk_control.h"
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

constexpr std::uint64_t kLargestMbrDisk = 0x20000000000;  // bytes: 2 TiB
constexpr std::size_t kFirstCheckedRow = 2;  // rows before it stay primary and need no room
constexpr std::uint64_t kRoomMib = 5;

void LogControlError(const char* code) {
  LogEx(kLogModule, kLogError, "DeviceIoControl with %s error %d", code,
        static_cast<int>(win32::GetLastError()));
}

// Makes the system look at the table anew. A failure is logged and fails nothing.
void UpdateDiskProperties(const Velkora& converter) {
  if (!ControlDisk(converter.disk_handle, IOCTL_DISK_UPDATE_PROPERTIES, nullptr, 0)) {
    LogControlError("IOCTL_DISK_UPDATE_PROPERTIES");
  }
}

bool CreateMbrDisk(const Velkora& converter, std::uint32_t signature) {
  LogEx(kLogModule, kLogProgress, "Create mbr disk");
  CREATE_DISK request = MakeMbrCreateDisk(signature);
  if (!ControlDisk(converter.disk_handle, IOCTL_DISK_CREATE_DISK, &request, sizeof request)) {
    LogControlError("IOCTL_DISK_CREATE_DISK");
    return false;
  }
  UpdateDiskProperties(converter);
  DISKPART_Rescan();  // a failure is in the log and fails nothing
  return true;
}

bool WriteMbrTable(const Velkora& converter, const GptPartitionList& rows,
                   std::uint32_t signature) {
  DiskInfo& disk = *converter.disk_info;
  // The lowered size stays in the caller's record, whatever comes of the conversion.
  if (disk.size > kLargestMbrDisk) disk.size = kLargestMbrDisk;
  std::optional<LayoutBuffer> layout = BuildMbrLayout(rows, disk.size, signature);
  if (!layout || StopRequested()) return false;
  SendPercent(converter, 60);
  SendStatus(converter, VelkoraStatus::kWriting);
  LogEx(kLogModule, kLogProgress, "Set mbr partition table");
  LogDiskLayout(*layout);
  if (!ControlDisk(converter.disk_handle, IOCTL_DISK_SET_DRIVE_LAYOUT_EX, layout->data(),
                   layout->size())) {
    LogControlError("IOCTL_DISK_SET_DRIVE_LAYOUT_EX");
    return false;
  }
  UpdateDiskProperties(converter);
  return !StopRequested();
}

// Joins the caller's record to the new table: partition numbers, then letters.
void RestoreVolumes(Velkora& converter, const GptPartitionList& rows) {
  converter.partition_offsets = GptPartitionOffsets(rows);
  UpdateVolumePartNumbers(converter.partition_offsets, *converter.disk_info);
  DISKPART_Rescan();
  if (!RestoreVolumeInfosAfterConvert(converter)) {
    LogEx(kLogModule, kLogError, "RestoreVolumeInfos Error: %d",
          static_cast<int>(win32::GetLastError()));
  }
}

// Makes the system volume boot by the MBR.
bool RepairBiosBoot(const Velkora& converter) {
  SendPercent(converter, 80);
  SendStatus(converter, VelkoraStatus::kRepairingBoot);
  LogEx(kLogModule, kLogProgress, "Repair boot");
  DISKPART_Rescan();
  const VolumeInfo* volume = FindSystemVolume(converter);
  if (volume == nullptr) {
    LogEx(kLogModule, kLogError, "system volume not found!");
    return false;
  }
  const std::string letter = FieldText(volume->letter).substr(0, 1);
  // A volume without a letter is not repaired, yet made active.
  if (!letter.empty() && !(RecoverMbr(letter) && RecoverBcd(letter, letter, /*uefi=*/false,
                                                            /*plain=*/false))) {
    return false;
  }
  return DISKPART_Active(converter.disk_info->index, volume->part_number);
}

}  // namespace

bool ConvertGptToMbr(Velkora& converter) {
  GptPartitionList rows;
  bool read = false;
  win32::Catching([&] { read = ReadGptPartitions(converter.disk_handle, rows); });
  if (!read) {
    LogEx(kLogModule, kLogError, "Get partitions fail!");
    return false;
  }
  FilterGptPartitions(rows);
  converter.partition_offsets = GptPartitionOffsets(rows);
  const std::int32_t error = BackUpDisk(converter);
  if (error != 0) {
    SendStatus(converter, VelkoraStatus::kBackupFailed);
    SendPercent(converter, 100);
    LogBackupError(error);
    return false;
  }
  return GuardedGPT2MBR(converter, rows);
}

bool GPT2MBR(Velkora& converter, const GptPartitionList& list) {
  GptPartitionList rows = list;
  LogEx(kLogModule, kLogProgress, "GPT2MBR start");
  SendPercent(converter, 0);
  SendStatus(converter, VelkoraStatus::kChecking);
  LogEx(kLogModule, kLogProgress, "Check and compress partition");
  if (!EnsureLogicalGaps(converter, rows)) return false;
  SortByFirstSector(rows);

  SendPercent(converter, 20);
  SendStatus(converter, VelkoraStatus::kClearing);
  if (!DISKPART_Clean(converter.disk_info->index)) return false;

  SendPercent(converter, 40);
  SendStatus(converter, VelkoraStatus::kCreating);
  const auto signature = static_cast<std::uint32_t>(win32::time(nullptr));
  if (!CreateMbrDisk(converter, signature)) return false;

  // Without partitions there is no table to write, no letter to restore and nothing to boot from.
  if (!rows.empty()) {
    if (!WriteMbrTable(converter, rows, signature)) return false;
    RestoreVolumes(converter, rows);
    if (converter.disk_info->is_system != 0 && !RepairBiosBoot(converter)) return false;
  }

  SendPercent(converter, 100);
  SendStatus(converter, VelkoraStatus::kFinished);
  LogEx(kLogModule, kLogProgress, "GPT2MBR end");
  return true;
}

bool EnsureLogicalGaps(Velkora& converter, GptPartitionList& rows) {
  if (rows.size() <= kFirstCheckedRow + 1) return true;
  bool shrunk = false;
  // In table order, not yet sorted: rows that are neighbours in the table are compared, and where
  // the two orders differ a shrink may be asked for that the disk does not need.
  for (std::size_t i = kFirstCheckedRow;; ++i) {
    // The last pass has no row behind it and only looks at the flag.
    if (StopRequested()) return false;
    if (i + 1 == rows.size()) break;
    if (rows[i + 1].first_sector >= rows[i].last_sector + kBootRecordRoom) continue;
    if (!converter.CompressPart(rows[i].first_sector << kSectorShift, kRoomMib)) {
      LogEx(kLogModule, kLogError, "CompressPart fail!");
      return false;
    }
    shrunk = true;
  }
  if (!shrunk) return true;

  // The gaps are not measured again on the new list: what a shrink gives is taken to be enough.
  if (!DISKPART_Rescan()) return false;
  rows.clear();
  if (!ReadGptPartitions(converter.disk_handle, rows)) {
    LogEx(kLogModule, kLogError, "Get partitions Error!");
    return false;
  }
  FilterGptPartitions(rows);
  return true;
}

VolumeInfo* FindSystemVolume(const Velkora& converter) {
  const DiskInfo& disk = *converter.disk_info;
  for (std::uint8_t i = 0; i < disk.volume_count; ++i) {
    if (StopRequested()) return nullptr;
    VolumeInfo& volume = VolumeAt(disk, i);
    if (volume.is_system != 0) return &volume;
  }
  return nullptr;
}

}  // namespace velkora
