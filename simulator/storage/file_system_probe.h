// Tells what file system starts at a place on a disk, by its boot sector or superblock.
#pragma once

#include <cstdint>
#include <string_view>

#include "simulator/storage/block_device.h"

namespace simulator {

enum class FileSystem { kNone, kNtfs, kFat12, kFat16, kFat32, kExfat, kRefs, kExt2, kExt3, kExt4 };

struct FileSystemInfo {
  FileSystem kind = FileSystem::kNone;
  std::uint32_t cluster_size = 0;   // bytes; 0 where the kind has none
  std::uint64_t total_sectors = 0;  // as the boot sector says, in its own sectors; 0 if unknown
};

// Looks at the first sectors behind `offset` (bytes). A range that leaves the disk has no file
// system. Damaged or absent structures give kNone, never an error.
FileSystemInfo ProbeFileSystem(BlockDevice& device, std::uint64_t offset);

// True for the kinds that Windows itself mounts: NTFS, the FAT family, exFAT and ReFS.
bool IsMountedByWindows(FileSystem kind);

// "NTFS", "FAT32", "ext4"…; "none" for kNone.
std::string_view FileSystemName(FileSystem kind);

}  // namespace simulator
