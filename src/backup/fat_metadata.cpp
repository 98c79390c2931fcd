#include "backup/fat_metadata.h"

#include <new>
#include <vector>

#include "backup/raw_disk.h"
#include "backup/return_codes.h"
#include "logging/log.h"
#include "platform/guard.h"
#include "platform/win32.h"
#include "tools/little_endian.h"

namespace velkora {
namespace {

constexpr std::size_t kBytesPerSectorOffset = 11;
constexpr std::size_t kSectorsPerClusterOffset = 13;
constexpr std::size_t kReservedSectorsOffset = 14;
constexpr std::size_t kFatCountOffset = 16;
constexpr std::size_t kRootEntriesOffset = 17;
constexpr std::size_t kFat16SectorsOffset = 22;
constexpr std::size_t kFat32SectorsOffset = 36;
constexpr std::size_t kRootClusterOffset = 44;

constexpr std::uint64_t kDirectoryEntryBytes = 32;
constexpr std::uint64_t kFatEntryBytes = 4;
constexpr std::uint32_t kFirstDataCluster = 2;
constexpr std::uint32_t kEndOfChain = 0x0FFFFFFF;

// The fields of a FAT32 boot sector that lead to its root directory.
struct Fat32Layout {
  std::uint64_t data_offset;    // from the start of the volume: length of all that stands in front
  std::uint64_t fat_offset;     // of the first FAT
  std::uint64_t fat_bytes;      // of one FAT
  std::uint64_t cluster_bytes;  // of one cluster
  std::uint32_t root_cluster;
};

Fat32Layout LoadFat32Layout(std::span<const std::byte> boot_sector) {
  const std::uint64_t sector_bytes = LoadField<std::uint16_t>(boot_sector, kBytesPerSectorOffset);
  const std::uint32_t reserved = LoadField<std::uint16_t>(boot_sector, kReservedSectorsOffset);
  const std::uint32_t fat_count = LoadField<std::uint8_t>(boot_sector, kFatCountOffset);
  const auto fat_sectors = LoadField<std::uint32_t>(boot_sector, kFat32SectorsOffset);
  const auto root = LoadField<std::uint32_t>(boot_sector, kRootClusterOffset);
  // The sum of sectors has 32 bits and wraps.
  const std::uint32_t front_sectors = fat_count * fat_sectors + reserved;
  return {.data_offset = front_sectors * sector_bytes,
          .fat_offset = reserved * sector_bytes,
          .fat_bytes = fat_sectors * sector_bytes,
          .cluster_bytes =
              LoadField<std::uint8_t>(boot_sector, kSectorsPerClusterOffset) * sector_bytes,
          .root_cluster = root == 0 ? kFirstDataCluster : root};
}

// The root directory's chain in the first FAT, which lies in `front`. One end mark alone is known;
// any other ends the walk because it points behind the FAT. The top four bits are not taken off,
// and a free entry leads on to entry 0.
std::vector<std::uint32_t> RootChain(const Fat32Layout& volume, std::span<const std::byte> front) {
  std::vector<std::uint32_t> clusters;
  std::uint32_t cluster = volume.root_cluster;
  while (kFatEntryBytes * cluster + kFatEntryBytes <= volume.fat_bytes) {
    // A chain of more clusters than the FAT has entries comes back to itself and would fill the
    // memory. That end is taken here.
    if (clusters.size() == volume.fat_bytes / kFatEntryBytes) throw std::bad_alloc();
    clusters.push_back(cluster);
    const std::uint64_t entry = volume.fat_offset + kFatEntryBytes * cluster;
    if (entry + kFatEntryBytes > front.size()) win32::RaiseFault(EXCEPTION_ACCESS_VIOLATION);
    cluster = LoadField<std::uint32_t>(front, entry);
    if (cluster == kEndOfChain) break;
  }
  return clusters;
}

std::int32_t Fail(const char* function, const char* what, std::int32_t code) {
  LogEx(kLogModule, kLogError, "[%s] %s: %s %d", kBackupTag, function, what,
        static_cast<int>(win32::GetLastError()));
  return code;
}

}  // namespace

std::int32_t ParseFat16Volume(HANDLE disk, std::uint64_t offset,
                              std::span<const std::byte> boot_sector, BlockMap& blocks) {
  const std::uint64_t sector_bytes = LoadField<std::uint16_t>(boot_sector, kBytesPerSectorOffset);
  const std::uint64_t reserved = LoadField<std::uint16_t>(boot_sector, kReservedSectorsOffset);
  const std::uint64_t fat_count = LoadField<std::uint8_t>(boot_sector, kFatCountOffset);
  const std::uint64_t fat_sectors = LoadField<std::uint16_t>(boot_sector, kFat16SectorsOffset);
  const std::uint64_t root_entries = LoadField<std::uint16_t>(boot_sector, kRootEntriesOffset);
  const std::uint64_t length =
      (fat_sectors * fat_count + reserved) * sector_bytes + root_entries * kDirectoryEntryBytes;
  if (ReadAt(disk, offset, SelectBlock(blocks, offset, length)) == length) return kBackupDone;
  return Fail("ParseFat16Volume", "read error", kFat16Unreadable);
}

std::int32_t ParseFat32Volume(HANDLE disk, std::uint64_t offset,
                              std::span<const std::byte> boot_sector, BlockMap& blocks) {
  const Fat32Layout volume = LoadFat32Layout(boot_sector);
  std::vector<std::byte>& front = SelectBlock(blocks, offset, volume.data_offset);
  if (volume.data_offset == 0) return kBackupDone;
  if (ReadAt(disk, offset, front) != volume.data_offset) {
    return Fail("ParseFat32Volume", "read error", kFat32Unreadable);
  }
  for (const std::uint32_t cluster : RootChain(volume, front)) {
    // Cluster 0 and 1 wrap to the places in front of the data area.
    const std::uint64_t place =
        (std::uint64_t{cluster} - kFirstDataCluster) * volume.cluster_bytes + volume.data_offset +
        offset;
    if (!ReadAllAt(disk, place, SelectBlock(blocks, place, volume.cluster_bytes))) {
      return Fail("ParseFat32Volume", "read root error", kFat32Unreadable);
    }
  }
  return kBackupDone;
}

}  // namespace velkora
