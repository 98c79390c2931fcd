#include "convert/protected_conversion.h"

#include "backup/backup.h"
#include "backup/restore.h"
#include "convert/gpt_to_mbr.h"
#include "convert/mbr_to_gpt.h"
#include "disk/letter_restore.h"
#include "frame/crash_reporting.h"
#include "frame/disk_records.h"
#include "frame/progress.h"
#include "logging/log.h"
#include "platform/guard.h"
#include "platform/win32.h"
#include "tools/diskpart.h"

namespace velkora {
namespace {

constexpr unsigned kRestoreAttempts = 3;

template <typename Conversion>
bool ConvertGuarded(Velkora& converter, const char* former_style, Conversion conversion) {
  bool converted = false;
  const bool came_to_its_end = win32::Guarded(
      [&] {
        converted = conversion();
        if (converted) {
          // The pointer is not cleared: the next run of this object releases it again, and fails.
          ReleaseBackupData(converter.backup_data);
        } else {
          RollbackConvert(converter, former_style);
        }
      },
      DumpOnceFilter);
  if (came_to_its_end) return converted;
  RollbackConvert(converter, former_style);
  return false;
}

// Nothing is done between two attempts. Only one that could not open the disk leaves the backup
// intact for the next.
bool WriteBackupBack(const Velkora& converter) {
  for (unsigned attempt = 1; attempt <= kRestoreAttempts; ++attempt) {
    const std::int32_t error = RestoreDiskPartitionFromStorage(converter.backup_data);
    if (error == 0) return true;
    LogEx(kLogModule, kLogError, "RestoreDiskPartitionFromStorage fail %u times, error: %d",
          attempt, static_cast<int>(error));
  }
  return false;
}

}  // namespace

std::int32_t BackUpDisk(Velkora& converter) {
  ReleaseBackupData(converter.backup_data);
  return BackupDiskPartitionToStorage(
      FieldText(converter.disk_info->id).c_str(), converter.partition_offsets.data(),
      static_cast<std::uint32_t>(converter.partition_offsets.size()), &converter.backup_data);
}

void LogBackupError(std::int32_t error) {
  LogEx(kLogModule, kLogError, "BackupDiskPartitionToStorage error %d", static_cast<int>(error));
}

bool GuardedGPT2MBR(Velkora& converter, const GptPartitionList& list) {
  return ConvertGuarded(converter, "gpt", [&] { return GPT2MBR(converter, list); });
}

bool GuardedMBR2GPT(Velkora& converter, const MbrPartitionList& list) {
  return ConvertGuarded(converter, "mbr", [&] { return MBR2GPT(converter, list); });
}

bool RollbackConvert(Velkora& converter, const char* style) {
  SendStatus(converter, VelkoraStatus::kRollbackBegins);
  LogEx(kLogModule, kLogProgress, "Restore Begin...");
  // Neither result is looked at: the blocks go onto whatever state the disk has then.
  DISKPART_Clean(converter.disk_info->index);
  DISKPART_Convert(converter.disk_info->index, style);
  const bool restored = WriteBackupBack(converter);
  DISKPART_Rescan();
  if (!RestoreVolumeInfosAfterConvert(converter)) {
    LogEx(kLogModule, kLogError, "RestoreVolumeInfos Error: %d",
          static_cast<int>(win32::GetLastError()));
  }
  if (restored) {
    LogEx(kLogModule, kLogProgress, "Restore Succeed!");
  } else {
    LogEx(kLogModule, kLogError, "Restore Fail!");
  }
  SendPercent(converter, 100);
  SendStatus(converter, restored ? VelkoraStatus::kRolledBack : VelkoraStatus::kRollbackFailed);
  return restored;
}

}  // namespace velkora
