// One row of a partition table, exactly as it stands on the disk.
//
// Public sources: the UEFI specification for the GPT entry; the customary layout of the master boot
// record for the other.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <vector>

namespace velkora {

inline constexpr std::uint32_t kSectorBytes = 512;
inline constexpr unsigned kSectorShift = 9;

// Sectors in front of a logical partition, the first of which is its boot record.
inline constexpr std::uint64_t kBootRecordRoom = 2048;

// Byte 446 of a master or extended boot record holds four of these. In a list `first_sector` counts
// from the start of the disk, also for a logical partition, where the disk has it relative to the
// extended boot record. That is the only change made to a row.
#pragma pack(push, 1)
struct MbrPartitionRow {
  std::uint8_t boot_indicator;
  std::uint8_t first_chs[3];
  std::uint8_t type;
  std::uint8_t last_chs[3];
  std::uint32_t first_sector;
  std::uint32_t sector_count;
};

// An entry of the GPT's array, four to a sector.
struct GptPartitionRow {
  std::array<std::uint8_t, 16> type_guid;    // mixed byte order, as on the disk
  std::array<std::uint8_t, 16> unique_guid;  // all zero: the list ends here
  std::uint64_t first_sector;
  std::uint64_t last_sector;  // inclusive
  std::uint64_t attributes;
  std::uint8_t name[72];  // UTF-16
};
#pragma pack(pop)

static_assert(sizeof(MbrPartitionRow) == 16);
static_assert(offsetof(MbrPartitionRow, type) == 4);
static_assert(offsetof(MbrPartitionRow, first_sector) == 8);
static_assert(offsetof(MbrPartitionRow, sector_count) == 12);
static_assert(std::is_trivially_copyable_v<MbrPartitionRow>);
static_assert(sizeof(GptPartitionRow) == 128);
static_assert(offsetof(GptPartitionRow, unique_guid) == 16);
static_assert(offsetof(GptPartitionRow, first_sector) == 32);
static_assert(offsetof(GptPartitionRow, last_sector) == 40);
static_assert(offsetof(GptPartitionRow, name) == 56);
static_assert(std::is_trivially_copyable_v<GptPartitionRow>);

using MbrPartitionList = std::vector<MbrPartitionRow>;
using GptPartitionList = std::vector<GptPartitionRow>;

}  // namespace velkora
