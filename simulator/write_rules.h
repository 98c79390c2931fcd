// Which raw writes Windows lets through while file systems are mounted.
//
// Public source: Microsoft's documentation of WriteFile, on writing to volumes and disks.
#pragma once

#include <cstdint>
#include <list>

#include "simulator/storage/block_device.h"
#include "simulator/storage/file_system_probe.h"
#include "simulator/volume.h"

namespace simulator {

// A write through a disk handle: refused as a whole where it touches a volume with a mounted file
// system that nobody has locked.
bool DiskWriteAllowed(const std::list<Volume>& volumes, std::uint32_t disk_number,
                      std::uint64_t offset, std::uint64_t length);

// A write through a volume handle, `offset` from the start of the volume: only within the boot
// area, or behind the file system's space (FAT refuses that too), unless nothing is mounted or the
// volume is locked.
bool VolumeWriteAllowed(const Volume& volume, std::uint64_t offset, std::uint64_t length);

// The length in bytes of the boot area of a file system that starts at `offset` of the disk.
std::uint64_t BootAreaLength(BlockDevice& device, std::uint64_t offset, FileSystem kind);

}  // namespace simulator
