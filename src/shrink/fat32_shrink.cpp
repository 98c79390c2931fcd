#include "shrink/fat32_shrink.h"

#include <array>
#include <cstddef>
#include <vector>

#include "disk/device_handle.h"
#include "disk/disk_control.h"
#include "disk/drive_layout.h"
#include "disk/raw_transfer.h"
#include "logging/log.h"
#include "platform/win32.h"
#include "shrink/checked_bytes.h"
#include "shrink/fat32_directories.h"
#include "shrink/fat32_files.h"
#include "shrink/fat32_free_space.h"
#include "shrink/fat32_volume.h"
#include "shrink/shortened_layout.h"
#include "tools/diskpart.h"

namespace velkora {
namespace {

constexpr std::uint32_t kBootSectorBytes = sizeof(Fat32BootSector);

bool Fail(const char* message) {
  LogEx(kLogModule, kLogError, "%s", message);
  return false;
}

// With the last error of the step that failed.
bool FailWithError(const char* message) {
  LogEx(kLogModule, kLogError, "%s error_code: %d", message,
        static_cast<int>(win32::GetLastError()));
  return false;
}

bool SetTotalSectors(HANDLE volume, std::uint64_t sectors) {
  std::array<std::byte, kBootSectorBytes> sector{};
  LARGE_INTEGER position{};
  if (!ReadData(&volume, &position, sector.data(), kBootSectorBytes, nullptr)) {
    return FailWithError("Read Data Failed!");
  }
  // More than 32 bits, which no FAT32 volume can have, are cut.
  StoreAt(sector, offsetof(Fat32BootSector, total_sectors), static_cast<std::uint32_t>(sectors));
  position.QuadPart = 0;
  if (!WriteData(&volume, &position, sector.data(), kBootSectorBytes, nullptr)) {
    return FailWithError("Write Data Failed!");
  }
  return true;
}

// Boot sector first: when the layout cannot be set, the volume claims fewer sectors than its
// partition holds, and never more.
bool ShortenVolumeAndPartition(HANDLE disk, HANDLE volume, std::uint32_t partition_number,
                               std::uint64_t size_mib) {
  LayoutBuffer layout(kShrinkLayoutRows);
  if (!GetLayout(disk, layout)) return FailWithError("Get Drive Layout Failed!");
  // 0 for a partition that the layout does not have: written as it is.
  const std::uint64_t sectors = ShortenPartition(layout, partition_number, size_mib);
  if (!SetTotalSectors(volume, sectors)) return false;
  if (!ControlDisk(disk, IOCTL_DISK_SET_DRIVE_LAYOUT_EX, layout.data(), layout.size())) {
    return FailWithError("Set Drive Layout Failed!");
  }
  return true;
}

bool ShrinkOpenVolume(HANDLE disk, HANDLE volume, const std::string& volume_path,
                      std::uint32_t partition_number, std::uint64_t size_mib,
                      std::uint64_t cluster_size) {
  if (!ControlDisk(disk, IOCTL_DISK_UPDATE_PROPERTIES, nullptr, 0)) {
    return FailWithError("DISK UPDATE Error!");
  }
  std::vector<ClusterRun> runs;
  std::uint64_t total_clusters = 0;
  if (!GetClusterLocation(volume, runs, total_clusters)) return Fail("Get Cluster Location Error!");
  if (runs.empty()) return false;  // nowhere to move to; there is no message for it
  const std::uint64_t boundary = BoundaryCluster(total_clusters, size_mib, cluster_size);

  // File data, through the file system.
  std::vector<DirectoryEntry> files;
  std::vector<DirectoryEntry> directories;
  if (!EnumFilePath(volume_path, files, directories)) return Fail("Enum File Path Error!");
  std::vector<FileDebris> file_debris;
  if (!GetFileDebris(files, boundary, file_debris)) return Fail("Get File Debris Error!");
  if (!MoveFileDebris(volume, runs, file_debris, boundary)) return Fail("Move File Debris Error!");

  // Directories, sector by sector. The moves have changed what is free.
  std::vector<ClusterRun> runs_left;
  if (!GetClusterLocation(volume, runs_left, total_clusters)) {
    return Fail("Get Cluster Location Error!");
  }
  std::vector<DirectoryDebris> directory_debris;
  if (!GetDirectoryDebris(directories, directory_debris)) {
    return Fail("Get Directory Debris Error!");
  }
  if (!ControlDisk(volume, FSCTL_DISMOUNT_VOLUME, nullptr, 0)) {
    return FailWithError("Volume Dismount Error!");
  }
  if (!MoveDirectoryDebris(volume, runs_left, directory_debris, boundary)) {
    return Fail("Move Directory Debris Error!");
  }

  // No look for data behind the boundary: what found no room is outside the volume from here on.
  return ShortenVolumeAndPartition(disk, volume, partition_number, size_mib);
}

}  // namespace

bool CompressFat32Partition(std::string disk_path, std::string volume_path,
                            std::uint32_t partition_number, std::uint64_t size_mib,
                            std::uint64_t cluster_size) {
  LogEx(kLogModule, kLogProgress, "Compress Fat32 Partition...");
  DISKPART_Rescan();  // the shrink goes on whatever comes of it
  HANDLE disk = GetDeviceHandleById(disk_path.c_str());
  HANDLE volume = GetDeviceHandleById(volume_path.c_str());
  const bool shrunk =
      disk != INVALID_HANDLE_VALUE && volume != INVALID_HANDLE_VALUE &&
      ShrinkOpenVolume(disk, volume, volume_path, partition_number, size_mib, cluster_size);
  if (shrunk) LogEx(kLogModule, kLogProgress, "Compress Fat32 Partition End!");
  CloseDeviceHandle(volume);
  CloseDeviceHandle(disk);
  return shrunk;
}

}  // namespace velkora
