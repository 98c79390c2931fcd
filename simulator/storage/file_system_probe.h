// Tells what file system starts at a place on a disk, by its boot sector or superblock.
#pragma once

#include <cstdint>

#include "simulator/storage/block_device.h"
#include "simulator/storage/file_system.h"

namespace simulator {

struct FileSystemInfo {
  FileSystem kind = FileSystem::kNone;
  std::uint32_t cluster_size = 0;   // bytes; 0 where the kind has none
  std::uint64_t total_sectors = 0;  // as the boot sector says, in its own sectors; 0 if unknown
};

// Looks at the first sectors behind `offset` (bytes). A range that leaves the disk has no file
// system. Damaged or absent structures give kNone, never an error.
FileSystemInfo ProbeFileSystem(BlockDevice& device, std::uint64_t offset);

}  // namespace simulator
