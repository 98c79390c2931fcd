// Selects the metadata of a disk that a failed conversion needs back: the table's own sectors and,
// of each partition asked for, what its file system keeps of itself.
//
// Sectors have 512 bytes here, whatever the disk reports, and no checksum is looked at. What was
// selected before a failure stays in `blocks`. Every failure is logged at level 3 with the last
// error and ends the parse, except within an MFT record (see ntfs_metadata.h); nothing is tried
// again and no partition is passed over.
//
// Public sources: the UEFI specification for the GPT, the customary layout of the master boot
// record.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "backup/block_map.h"
#include "platform/win32_types.h"

namespace velkora {

// Byte offsets of the partitions whose file systems are wanted. One that no partition starts at
// does nothing.
using PartitionOffsets = std::vector<std::uint64_t>;

// Selects what `disk` (positioned at 0) holds, by the style that sector 0 tells; returns 0 or a
// code of return_codes.h. "[%s] %s read mbr failed. ret=%d, error=%d" and -10 for a sector 0 that
// cannot be read; otherwise what the parsers below say.
std::int32_t Parse(HANDLE disk, const PartitionOffsets& offsets, BlockMap& blocks);

// Sector 0 and up to 128 linked boot records, each a block of 512 bytes, and the file systems of
// the partitions that are reached. "[%s] %s read offs 0x%x error:%d", -10.
std::int32_t ParseMBR(HANDLE disk, const PartitionOffsets& offsets, BlockMap& blocks);

// Header and array at both ends of the disk, the secondary ones with the primary's bytes, and the
// file systems of the partitions in front of the first empty entry. "[%s] %s: read header error
// %d", "[%s] %s: read error %d", -12.
std::int32_t ParseGPT(HANDLE disk, const PartitionOffsets& offsets, BlockMap& blocks);

// A disk of no style has one block: its sector 0. Returns 0.
std::int32_t ParseRawDisk(std::span<const std::byte, 512> sector, BlockMap& blocks);

// What the file system that starts at `offset` keeps of itself; of one that is not known to keep
// anything, the first 2048 bytes. "[%s] %s read offs 0x%x error:%d", -13.
std::int32_t ParseFileSystem(HANDLE disk, std::uint64_t offset, BlockMap& blocks);

}  // namespace velkora
