// The partition table's part in a shrink: a disk's layout is read, one partition in it made
// shorter, and the whole set again.
#pragma once

#include <cstddef>
#include <cstdint>

#include "disk/drive_layout.h"
#include "platform/win32_types.h"

namespace velkora {

// What a layout has room for on its way through a shrink. A disk with more rows cannot be shrunk.
inline constexpr std::size_t kShrinkLayoutRows = 129;

// Reads the layout of the open disk. False, with the reason in the last error, when the system
// refuses or the layout does not fit.
bool GetLayout(HANDLE disk, LayoutBuffer& layout);

// Takes `size_mib` MiB off the length of each partition with this number, and marks it to be
// written; where it starts stays, and so does every other row. More than the partition has wraps
// below zero; nothing checks it. Returns the new length in sectors of 512 bytes, of the last one if
// there are several, or 0 if there is none. Writes nothing to the disk.
std::uint64_t ShortenPartition(LayoutBuffer& layout, std::uint32_t partition_number,
                               std::uint64_t size_mib);

}  // namespace velkora
