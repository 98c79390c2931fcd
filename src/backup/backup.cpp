#include "backup/backup.h"

#include <cerrno>
#include <string>

#include "backup/backup_file.h"
#include "backup/disk_parser.h"
#include "backup/entry_guard.h"
#include "backup/raw_disk.h"
#include "platform/win32.h"

namespace velkora {
namespace {

constexpr char kWorker[] = "DoBackup";

std::string OffsetsText(const PartitionOffsets& offsets) {
  std::string text = "{";
  for (const std::uint64_t offset : offsets) {
    if (text.size() > 1) text += ',';
    text += std::to_string(offset);
  }
  return text + "}";
}

std::int32_t DoBackup(const char* device_id, const PartitionOffsets& offsets, const char* path) {
  LogEx(kLogModule, kLogProgress, "[%s] %s device_id=%s, offsets=%s, path=%s", kBackupTag, kWorker,
        device_id, OffsetsText(offsets).c_str(), path);
  HANDLE disk = OpenDisk(device_id, kWorker);
  if (disk == INVALID_HANDLE_VALUE) return kDiskNotOpened;
  std::FILE* file = win32::fopen(path, "wb");
  if (file == nullptr) {
    // The disk handle stays open.
    LogEx(kLogModule, kLogProgress, "[%s] %s fopen %s failed. error = %d", kBackupTag, kWorker,
          path, errno);
    return kFileNotOpened;
  }
  BlockMap blocks;
  const std::int32_t result = Parse(disk, offsets, blocks);
  win32::CloseHandle(disk);
  if (result == kBackupDone) WriteBackupFile(file, device_id, blocks);
  win32::fclose(file);
  return result;
}

std::int32_t DoBackup(const char* device_id, const std::uint64_t* offset_array, std::uint32_t count,
                      BackupStorage** storage) {
  const PartitionOffsets offsets(offset_array, offset_array + count);
  LogEx(kLogModule, kLogProgress, "[%s] %s device_id=%s, offsets=%s", kBackupTag, kWorker,
        device_id, OffsetsText(offsets).c_str());
  HANDLE disk = OpenDisk(device_id, kWorker);
  if (disk == INVALID_HANDLE_VALUE) return kDiskNotOpened;
  BlockMap blocks;
  const std::int32_t result = Parse(disk, offsets, blocks);
  win32::CloseHandle(disk);
  if (result == kBackupDone) FillBackupStorage(storage, device_id, blocks);
  return result;
}

}  // namespace

std::int32_t BackupDiskPartition(const char* device_id, const std::vector<std::uint64_t>& offsets,
                                 const char* path) {
  return GuardEntryPoint("BackupDiskPartition", [&] { return DoBackup(device_id, offsets, path); });
}

std::int32_t BackupDiskPartitionToStorage(const char* device_id, const std::uint64_t* offsets,
                                          std::uint32_t count, BackupStorage** storage) {
  return GuardEntryPoint("BackupDiskPartitionToStorage",
                         [&] { return DoBackup(device_id, offsets, count, storage); });
}

}  // namespace velkora
