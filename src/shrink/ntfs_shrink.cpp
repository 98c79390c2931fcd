#include "shrink/ntfs_shrink.h"

#include <array>
#include <cstring>

#include "disk/device_handle.h"
#include "disk/drive_layout.h"
#include "disk/raw_transfer.h"
#include "logging/log.h"
#include "platform/win32.h"

namespace velkora {
namespace {

constexpr std::uint32_t kBootSectorBytes = 512;
constexpr std::size_t kTotalSectorsOffset = 40;  // 8 bytes, little-endian
constexpr unsigned kMibShift = 20;
constexpr unsigned kSectorShift = 9;
// A disk with more rows than this cannot be shrunk: the layout does not fit the buffer.
constexpr std::size_t kLayoutRows = 129;

// Logs the last error of the step that failed.
bool Fail(const char* step) {
  LogEx(kLogModule, kLogError, "%s: %d", step, static_cast<int>(win32::GetLastError()));
  return false;
}

bool Dismount(HANDLE volume) {
  DWORD returned = 0;
  if (win32::DeviceIoControl(volume, FSCTL_DISMOUNT_VOLUME, nullptr, 0, nullptr, 0, &returned,
                             nullptr)) {
    return true;
  }
  return Fail("FSCTL_DISMOUNT_VOLUME Error");
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

bool ShortenPartition(HANDLE disk, std::uint32_t partition_number, std::uint64_t size_mib) {
  LayoutBuffer layout(kLayoutRows);
  DWORD returned = 0;
  if (!win32::DeviceIoControl(disk, IOCTL_DISK_GET_DRIVE_LAYOUT_EX, nullptr, 0, layout.data(),
                              layout.size(), &returned, nullptr)) {
    return Fail("IOCTL_DISK_GET_DRIVE_LAYOUT_EX Error");
  }
  for (DWORD i = 0; i < layout.header().PartitionCount; ++i) {
    PARTITION_INFORMATION_EX row = layout.row(i);
    if (row.PartitionNumber != partition_number) continue;
    row.PartitionLength.QuadPart = static_cast<LONGLONG>(
        static_cast<std::uint64_t>(row.PartitionLength.QuadPart) - (size_mib << kMibShift));
    row.RewritePartition = TRUE;
    layout.SetRow(i, row);
  }
  // The whole buffer goes back, whatever the number of rows in it.
  if (!win32::DeviceIoControl(disk, IOCTL_DISK_SET_DRIVE_LAYOUT_EX, layout.data(), layout.size(),
                              nullptr, 0, &returned, nullptr)) {
    return Fail("IOCTL_DISK_SET_DRIVE_LAYOUT_EX Error");
  }
  return true;
}

bool ShrinkOpenVolume(HANDLE disk, HANDLE volume, std::uint64_t size_mib) {
  if (!Dismount(volume)) return false;
  if (!ShortenBootSector(volume, size_mib)) return false;
  std::uint32_t partition_number = 0;
  if (!GetDeviceIndexByHandle(volume, &partition_number, /*want_device=*/false)) {
    return Fail("GetDeviceIndexByHandle error");
  }
  return ShortenPartition(disk, partition_number, size_mib);
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
