// Makes an empty FAT32 volume on a range of a disk.
#pragma once

#include <cstdint>

#include "platform/win32_types.h"
#include "simulator/storage/block_device.h"

namespace simulator {

struct Fat32Geometry {
  std::uint64_t offset;          // bytes from the start of the disk
  std::uint64_t length;          // bytes
  std::uint32_t hidden_sectors;  // sectors in front of the volume, as the boot sector notes them
  std::uint32_t serial_number;
};

// Writes boot sector, FSInfo, their backups, both FATs and an empty root directory; the cluster
// size is the customary one for the length; what lies in the rest of the range stays. A length that
// is no multiple of the sector size is rounded down. Returns a Windows error:
// ERROR_INVALID_PARAMETER when the length gives less than FAT32's 65525 clusters or more than it
// can count (nothing is written then), ERROR_SECTOR_NOT_FOUND when the range leaves the disk, and
// ERROR_WRITE_FAULT when the host refuses a write.
// Public source: Microsoft's FAT32 File System Specification.
[[nodiscard]] DWORD FormatFat32(BlockDevice& device, const Fat32Geometry& geometry);

}  // namespace simulator
