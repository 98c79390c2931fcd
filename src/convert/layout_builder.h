// Builds the buffers that create a disk's new style and set its new table, from a sorted list of
// rows. Touches no disk.
//
// Public source of the structures: Microsoft's documentation of winioctl.h.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "convert/partition_row.h"
#include "disk/drive_layout.h"
#include "platform/win32_types.h"

namespace velkora {

// What IOCTL_DISK_CREATE_DISK takes. `signature` is the low 32 bits of the time in seconds.
CREATE_DISK MakeMbrCreateDisk(std::uint32_t signature);
CREATE_DISK MakeGptCreateDisk(const GUID& disk_id, std::size_t row_count);

// `disk_size` in bytes; `signature` as in MakeMbrCreateDisk. Rows are sorted by first sector. Up to
// three stay primary; the rest become logical partitions of one extended partition that runs to the
// end of the disk. Nothing when a stop was asked for while logical partitions were built (no log
// line). An empty list is not handed in.
std::optional<LayoutBuffer> BuildMbrLayout(const GptPartitionList& rows, std::uint64_t disk_size,
                                           std::uint32_t signature);

// One entry for each row. `efi_position` is the place of the EFI row, from 1, or 0 for none.
// Nothing when no GUID could be drawn ("CoCreateGuid error: %d", level 3).
std::optional<LayoutBuffer> BuildGptLayout(const MbrPartitionList& rows, std::uint32_t efi_position,
                                           const GUID& disk_id);

// One entry each. All draw a fresh partition id; a failure is logged ("CoCreateGuid Error: %d",
// level 3) and the entry stands. Sectors count from the start of the disk; `last_sector` is
// inclusive.
PARTITION_INFORMATION_EX MakeMbrPartitionEntry(const GptPartitionRow& row, std::uint32_t index);
PARTITION_INFORMATION_EX MakeExtendedMbrEntry(std::uint64_t first_sector, std::uint64_t last_sector,
                                              std::uint8_t type);
PARTITION_INFORMATION_EX MakeEmptyMbrEntry(std::uint64_t sector);

// Prints a finished buffer, level 1: a head line, the disk, a line for each row, an end line.
void LogDiskLayout(const LayoutBuffer& layout);

}  // namespace velkora
