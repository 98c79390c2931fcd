#include "shrink/fat32_volume.h"

#include "shrink/checked_bytes.h"
#include "shrink/fat32_free_space.h"

namespace velkora {
namespace {

constexpr std::uint32_t kSectorBytes = 512;
constexpr std::uint64_t kFatCount = 2;
constexpr std::uint64_t kFatEntryBytes = 4;
constexpr std::uint32_t kFirstEndOfChain = 0x0FFFFFF8;
constexpr std::uint32_t kEndOfChain = 0x0FFFFFFF;

bool IsEndOfChain(std::uint32_t entry) {
  return entry >= kFirstEndOfChain && entry <= kEndOfChain;
}

}  // namespace

std::uint32_t FirstCluster(const Fat32DirectoryEntry& entry) {
  return std::uint32_t{entry.cluster_high} << 16 | entry.cluster_low;
}

void SetFirstCluster(std::span<std::byte> directory, std::uint64_t offset, std::uint64_t cluster) {
  auto entry = LoadAt<Fat32DirectoryEntry>(directory, offset);
  entry.cluster_high = static_cast<std::uint16_t>(cluster >> 16);
  entry.cluster_low = static_cast<std::uint16_t>(cluster);
  StoreAt(directory, offset, entry);
}

// The upper half of the FAT's size is not read: on a volume whose FAT has more than 65535 sectors
// all positions behind its start are wrong.
Fat32Geometry::Fat32Geometry(const Fat32BootSector& boot)
    : cluster_bytes(boot.sectors_per_cluster * kSectorBytes),
      fat_bytes(boot.fat_sectors_low * kSectorBytes),
      first_fat(std::uint64_t{boot.reserved_sectors} * kSectorBytes),
      second_fat(first_fat + fat_bytes),
      data_start(first_fat + kFatCount * fat_bytes) {}

std::uint64_t Fat32Geometry::PositionOf(std::uint64_t cluster) const {
  return (cluster - kFirstFatCluster) * cluster_bytes + data_start;
}

std::uint32_t FatTable::Entry(std::uint64_t index) const {
  CheckRange(bytes_.size() / kFatEntryBytes, index, 1);
  return LoadAt<std::uint32_t>(bytes_, index * kFatEntryBytes);
}

void FatTable::SetEntry(std::uint64_t index, std::uint64_t value) {
  CheckRange(bytes_.size() / kFatEntryBytes, index, 1);
  StoreAt<std::uint32_t>(bytes_, index * kFatEntryBytes, static_cast<std::uint32_t>(value));
}

void FatTable::Free(std::uint64_t first, std::uint32_t count) {
  for (std::uint64_t i = 0; i < count; ++i) SetEntry(first + i, 0);
}

void FatTable::Chain(std::uint64_t first, std::uint32_t count, std::uint64_t next) {
  for (std::uint64_t i = 0; i + 1 < count; ++i) SetEntry(first + i, first + i + 1);
  CheckRange(count, 0, 1);
  SetEntry(first + count - 1, next == 0 ? kEndOfChain : next);
}

std::vector<std::uint32_t> FatTable::Follow(std::uint32_t first, std::size_t limit) const {
  std::vector<std::uint32_t> clusters = {first};
  while (clusters.size() < limit) {
    const std::uint32_t next = Entry(clusters.back());
    if (IsEndOfChain(next)) break;
    clusters.push_back(next);
  }
  return clusters;
}

}  // namespace velkora
