#include "backup/restore.h"

#include <algorithm>
#include <cerrno>
#include <string>
#include <vector>

#include "backup/backup_file.h"
#include "backup/entry_guard.h"
#include "backup/partition_extents.h"
#include "backup/raw_disk.h"
#include "disk/disk_control.h"
#include "platform/win32.h"

namespace velkora {
namespace {

constexpr char kWorker[] = "DoRestore";
constexpr char kRestore[] = "Restore";

int LastError() {
  return static_cast<int>(win32::GetLastError());
}

// Dismounts a volume. The handle keeps it dismounted and comes back open, and unusable where the
// volume could not be opened.
HANDLE Dismount(const std::string& volume_path) {
  HANDLE volume =
      win32::CreateFileA(volume_path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                         nullptr, OPEN_EXISTING, 0, nullptr);
  if (!ControlDisk(volume, FSCTL_DISMOUNT_VOLUME, nullptr, 0)) {
    LogEx(kLogModule, kLogProgress, "[%s] %s dismount volume %s failed. error=%d", kBackupTag,
          kRestore, volume_path.c_str(), LastError());
  }
  return volume;
}

// The first row that the block overlaps and that has a volume. One row is dealt with for a block,
// also where the block lies over two.
auto FindOverlapped(std::vector<PartitionExtent>& extents, std::uint64_t begin, std::uint64_t end) {
  return std::ranges::find_if(extents, [begin, end](const PartitionExtent& extent) {
    return end > extent.start && begin < extent.end && !extent.volume_path.empty();
  });
}

void WriteBlock(HANDLE disk, std::uint64_t offset, const std::vector<std::byte>& bytes) {
  const std::uint64_t done = WriteAt(disk, offset, bytes);
  if (done == bytes.size()) return;
  LogEx(kLogModule, kLogError, "[%s] %s offset 0x%x failed! write %llu bytes, ret=%llu, error=%d",
        kBackupTag, kRestore, static_cast<unsigned>(offset & 0xFFFFFFFF),
        static_cast<unsigned long long>(bytes.size()), static_cast<unsigned long long>(done),
        LastError());
}

std::int32_t Restore(HANDLE disk, const BlockMap& blocks) {
  std::vector<PartitionExtent> extents;
  const std::int32_t result = GetDiskPartition(disk, extents);
  if (result != kBackupDone) return result;
  std::vector<HANDLE> dismounted;
  for (const auto& [offset, bytes] : blocks) {
    const auto extent = FindOverlapped(extents, offset, offset + bytes.size());
    if (extent != extents.end()) {
      dismounted.push_back(Dismount(extent->volume_path));
      extents.erase(extent);
    }
    WriteBlock(disk, offset, bytes);
  }
  for (HANDLE volume : dismounted) win32::CloseHandle(volume);
  if (ControlDisk(disk, IOCTL_DISK_UPDATE_PROPERTIES, nullptr, 0)) return kBackupDone;
  LogEx(kLogModule, kLogError, "[%s] %s update error=%d", kBackupTag, kRestore, LastError());
  return kPropertiesNotUpdated;
}

std::int32_t DoRelease(BackupStorage* storage) {
  if (storage == nullptr) return kBackupDone;
  ReleaseBlocks(storage);
  FreeBackupStorage(storage);
  return kBackupDone;
}

std::int32_t DoRestore(BackupStorage* storage) {
  if (storage == nullptr) return kBackupDone;
  const std::uint32_t count = BlockCount(storage);
  LogEx(kLogModule, kLogProgress, "[%s] %s backup storage block count=%d", kBackupTag, kWorker,
        static_cast<int>(count));
  if (count == 0) {
    LogEx(kLogModule, kLogProgress, "[%s] %s backup storage block count zero", kBackupTag, kWorker);
    return kBackupDone;
  }
  BlockMap blocks;
  const std::string device_id = LoadBackupStorage(storage, blocks);
  HANDLE disk = OpenDisk(device_id.c_str(), kWorker);
  if (disk == INVALID_HANDLE_VALUE) return kDiskNotOpened;
  const std::int32_t result = Restore(disk, blocks);
  win32::CloseHandle(disk);
  DoRelease(storage);
  return result;
}

std::int32_t DoRestore(const char* path) {
  LogEx(kLogModule, kLogProgress, "[%s] %s path=%s", kBackupTag, kWorker, path);
  std::FILE* file = win32::fopen(path, "rb");
  if (file == nullptr) {
    LogEx(kLogModule, kLogProgress, "[%s] %s fopen %s failed. error = %d", kBackupTag, kWorker,
          path, errno);
    return kFileNotOpened;
  }
  BlockMap blocks;
  const std::string device_id = LoadBackupFile(file, blocks);
  win32::fclose(file);
  HANDLE disk = OpenDisk(device_id.c_str(), kWorker);
  if (disk == INVALID_HANDLE_VALUE) return kDiskNotOpened;
  const std::int32_t result = Restore(disk, blocks);
  win32::CloseHandle(disk);
  return result;
}

}  // namespace

std::int32_t RestoreDiskPartition(const char* path) {
  return GuardEntryPoint("RestoreDiskPartition", [&] { return DoRestore(path); });
}

std::int32_t RestoreDiskPartitionFromStorage(BackupStorage* storage) {
  return GuardEntryPoint("RestoreDiskPartitionFromStorage", [&] { return DoRestore(storage); });
}

std::int32_t ReleaseBackupData(BackupStorage* storage) {
  return GuardEntryPoint("ReleaseBackupData", [&] { return DoRelease(storage); });
}

}  // namespace velkora
