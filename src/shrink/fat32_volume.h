// A FAT32 volume as it lies on the disk: boot sector, FAT, directory entries.
//
//   sector 0                          boot sector
//   reserved sectors                  first FAT
//   reserved + FAT sectors            second FAT
//   reserved + 2 * FAT sectors        cluster 2
//
// Sectors of 512 bytes and two FATs are taken for granted.
// Public source: Microsoft's FAT32 File System Specification.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace velkora {

// All numbers are little-endian.
#pragma pack(push, 1)
struct Fat32BootSector {
  std::array<std::uint8_t, 13> head;
  std::uint8_t sectors_per_cluster;
  std::uint16_t reserved_sectors;
  std::array<std::uint8_t, 16> geometry;
  std::uint32_t total_sectors;
  std::uint16_t fat_sectors_low;
  std::uint16_t fat_sectors_high;
  std::array<std::uint8_t, 472> rest;
};

struct Fat32DirectoryEntry {
  std::array<std::uint8_t, 8> name;
  std::array<std::uint8_t, 3> extension;
  std::uint8_t attributes;
  std::array<std::uint8_t, 8> times;
  std::uint16_t cluster_high;
  std::uint32_t written;
  std::uint16_t cluster_low;
  std::uint32_t size;
};
#pragma pack(pop)

static_assert(sizeof(Fat32BootSector) == 512);
static_assert(offsetof(Fat32BootSector, sectors_per_cluster) == 13);
static_assert(offsetof(Fat32BootSector, reserved_sectors) == 14);
static_assert(offsetof(Fat32BootSector, total_sectors) == 32);
static_assert(offsetof(Fat32BootSector, fat_sectors_low) == 36);
static_assert(sizeof(Fat32DirectoryEntry) == 32);
static_assert(offsetof(Fat32DirectoryEntry, attributes) == 11);
static_assert(offsetof(Fat32DirectoryEntry, cluster_high) == 20);
static_assert(offsetof(Fat32DirectoryEntry, cluster_low) == 26);

inline constexpr std::size_t kEntryBytes = sizeof(Fat32DirectoryEntry);
inline constexpr std::uint8_t kAttributeDirectory = 0x10;
inline constexpr std::uint8_t kAttributesLongName = 0x0F;

// In a directory's first cluster.
inline constexpr std::size_t kOwnEntryOffset = 0;               // "."
inline constexpr std::size_t kParentEntryOffset = kEntryBytes;  // ".."

std::uint32_t FirstCluster(const Fat32DirectoryEntry& entry);

// Writes the lower 32 bits of `cluster` into the entry that lies at `offset`. Raises an access
// violation where that leaves `directory`.
void SetFirstCluster(std::span<std::byte> directory, std::uint64_t offset, std::uint64_t cluster);

// Where things lie, in bytes from the start of the volume.
struct Fat32Geometry {
  explicit Fat32Geometry(const Fat32BootSector& boot);

  // Where a cluster lies. Positions wrap, as all arithmetic on values of the disk does.
  std::uint64_t PositionOf(std::uint64_t cluster) const;

  std::uint32_t cluster_bytes;
  std::uint32_t fat_bytes;  // of one FAT
  std::uint64_t first_fat;
  std::uint64_t second_fat;
  std::uint64_t data_start;  // cluster 2
};

// One FAT in memory. Entries are whole 32-bit values, the four upper bits included. An index behind
// the table raises an access violation.
class FatTable {
 public:
  // All entries zero.
  explicit FatTable(std::uint32_t bytes) : bytes_(bytes) {}

  std::uint32_t Entry(std::uint64_t index) const;
  void SetEntry(std::uint64_t index, std::uint64_t value);
  // Zeroes `count` entries from `first` on.
  void Free(std::uint64_t first, std::uint32_t count);
  // Chains `count` clusters from `first` on, the last one to `next` or, if that is 0, to nothing. A
  // count of 0 has no last one: access violation.
  void Chain(std::uint64_t first, std::uint32_t count, std::uint64_t next);

  // `first` and at most `limit` - 1 clusters that follow it.
  std::vector<std::uint32_t> Follow(std::uint32_t first, std::size_t limit) const;

  std::byte* data() { return bytes_.data(); }
  std::uint32_t size() const { return static_cast<std::uint32_t>(bytes_.size()); }

 private:
  std::vector<std::byte> bytes_;
};

}  // namespace velkora
