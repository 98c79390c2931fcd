// One copy of a GPT: a header and the entry array that it names.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "platform/win32_types.h"
#include "simulator/storage/block_device.h"
#include "simulator/storage/on_disk.h"

namespace simulator {

// The most entries that a table may have. An array this long takes 8 MiB; a header that claims more
// is taken for a damaged one.
inline constexpr std::uint32_t kMaxGptEntries = 65536;

struct GptTable {
  GptHeader header{};
  std::vector<GptEntry> entries;
};

// Where the parts of a table with `entry_count` entries of 128 bytes lie, in sectors.
struct GptPlaces {
  std::uint64_t array_sectors;
  std::uint64_t first_usable;
  std::uint64_t last_usable;
  std::uint64_t backup_array;
  std::uint64_t backup_header;
};

// Precondition: HasRoomForGpt.
GptPlaces PlaceGpt(const BlockDevice& device, std::uint32_t entry_count);

// Whether both copies fit on the disk and leave at least one usable sector.
bool HasRoomForGpt(const BlockDevice& device, std::uint32_t entry_count);

// Finds the primary table or, when that is bad, the backup in the last sector. A good table has the
// right signature, place, sizes and checksums. False when neither is good.
bool FindGptTable(BlockDevice& device, GptTable& table);

// Writes both copies: primary array, primary header, backup array, backup header. Slots behind
// `entries` are zero. Returns a Windows error. Precondition: HasRoomForGpt, and `entries` has at
// most `entry_count` elements.
[[nodiscard]] DWORD WriteGptTables(BlockDevice& device, const DiskGuid& disk_id,
                                   std::uint32_t entry_count, std::span<const GptEntry> entries);

}  // namespace simulator
