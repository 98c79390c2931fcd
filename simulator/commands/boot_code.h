// Boot code as the system's tools write it.
#pragma once

#include <cstdint>

#include "simulator/storage/block_device.h"
#include "simulator/storage/file_system_probe.h"

namespace simulator {

// True for NTFS and the FAT family.
bool TakesBootCode(FileSystem kind);

// Puts boot code into the boot sector of the volume at `offset` (bytes), around the parameters of
// its file system; into both of a FAT32 volume. False for a kind that takes none, and when the disk
// refuses it.
[[nodiscard]] bool WriteVolumeBootCode(BlockDevice& device, std::uint64_t offset, FileSystem kind);

// Puts boot code into the disk's boot record; its bytes from 440 on stay.
[[nodiscard]] bool WriteMasterBootCode(BlockDevice& device);

}  // namespace simulator
