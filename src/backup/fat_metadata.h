// What FAT16 and FAT32 volumes keep in front of their data, and the root directory of FAT32.
//
// The volume's own sector size is used here. Nothing tests that a place lies inside the volume or
// the disk: a field of nonsense gives short, empty or unreadable blocks.
//
// Public source: Microsoft's FAT32 File System Specification.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "backup/block_map.h"
#include "platform/win32_types.h"

namespace velkora {

// Both take the volume's start on the disk in bytes and at least its boot sector, and return 0 or,
// with the last error logged at level 3, their code.

// One block: boot sector, reserved sectors, FATs and the fixed root directory.
// "[%s] %s: read error %d", -14.
std::int32_t ParseFat16Volume(HANDLE disk, std::uint64_t offset,
                              std::span<const std::byte> boot_sector, BlockMap& blocks);

// A block for everything in front of the data area and one for each cluster of the root directory.
// "[%s] %s: read error %d" and "[%s] %s: read root error %d", -15. Raises an access violation when
// the FAT is said to be longer than the area that holds it, and throws std::bad_alloc for a root
// directory that never ends.
std::int32_t ParseFat32Volume(HANDLE disk, std::uint64_t offset,
                              std::span<const std::byte> boot_sector, BlockMap& blocks);

}  // namespace velkora
