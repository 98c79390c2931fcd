#include "shrink/ntfs_shrink.h"

#include <array>
#include <cstring>

#include "disk/device_handle.h"
#include "disk/disk_control.h"
#include "disk/drive_layout.h"
#include "disk/raw_transfer.h"
#include "logging/log.h"
#include "platform/win32.h"
#include "shrink/shortened_layout.h"

namespace velkora {
namespace {

constexpr std::uint32_t kBootSectorBytes = 512;
constexpr std::size_t kTotalSectorsOffset = 40;  // 8 bytes, little-endian
constexpr unsigned kMibShift = 20;
constexpr unsigned kSectorShift = 9;

// Logs the last error of the step that failed.
bool Fail(const char* step) {
  LogEx(kLogModule, kLogError, "%s: %d", step, static_cast<int>(win32::GetLastError()));
  return false;
}

bool ShortenBootSector(HANDLE volume, std::uint64_t size_mib) {
  std::array<std::byte, kBootSectorBytes> sector{};
  LARGE_INTEGER position{};
  if (!ReadData(&volume, &position, sector.data(), kBootSectorBytes, nullptr)) {
    return Fail("read DBR error");
  }
  std::uint64_t total_sectors = 0;
  std::memcpy(&total_sectors, sector.data() + kTotalSectorsOffset, sizeof total_sectors);
  // More than the volume has wraps below zero; nothing checks it.
  total_sectors -= size_mib << kMibShift >> kSectorShift;
  std::memcpy(sector.data() + kTotalSectorsOffset, &total_sectors, sizeof total_sectors);
  position.QuadPart = 0;
  if (!WriteData(&volume, &position, sector.data(), kBootSectorBytes, nullptr)) {
    return Fail("write DBR error");
  }
  return true;
}

bool ShortenPartitionOnDisk(HANDLE disk, std::uint32_t partition_number, std::uint64_t size_mib) {
  LayoutBuffer layout(kShrinkLayoutRows);
  if (!GetLayout(disk, layout)) return Fail("IOCTL_DISK_GET_DRIVE_LAYOUT_EX Error");
  ShortenPartition(layout, partition_number, size_mib);
  // The whole buffer goes back, whatever the number of rows in it.
  if (!ControlDisk(disk, IOCTL_DISK_SET_DRIVE_LAYOUT_EX, layout.data(), layout.size())) {
    return Fail("IOCTL_DISK_SET_DRIVE_LAYOUT_EX Error");
  }
  return true;
}

bool ShrinkOpenVolume(HANDLE disk, HANDLE volume, std::uint64_t size_mib) {
  if (!ControlDisk(volume, FSCTL_DISMOUNT_VOLUME, nullptr, 0)) {
    return Fail("FSCTL_DISMOUNT_VOLUME Error");
  }
  if (!ShortenBootSector(volume, size_mib)) return false;
  std::uint32_t partition_number = 0;
  if (!GetDeviceIndexByHandle(volume, &partition_number, /*want_device=*/false)) {
    return Fail("GetDeviceIndexByHandle error");
  }
  return ShortenPartitionOnDisk(disk, partition_number, size_mib);
}

}  // namespace

bool CompressNtfsPartition(HANDLE disk_handle, std::string volume_path, std::uint64_t size_mib) {
  LogEx(kLogModule, kLogProgress, "Compress NTFS Partition...");
  HANDLE volume = GetDeviceHandleById(volume_path.c_str());
  if (volume == INVALID_HANDLE_VALUE) return false;
  const bool shrunk = ShrinkOpenVolume(disk_handle, volume, size_mib);
  CloseDeviceHandle(volume);
  if (shrunk) LogEx(kLogModule, kLogProgress, "Compress NTFS Partition End!");
  return shrunk;
}

}  // namespace velkora
