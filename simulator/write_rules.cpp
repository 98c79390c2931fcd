#include "simulator/write_rules.h"

#include <array>
#include <cstddef>

namespace simulator {
namespace {

// NTFS keeps its boot code in the first 16 sectors of 512 bytes. Believed to hold for exFAT and
// ReFS as well.
constexpr std::uint64_t kBootCodeLength = std::uint64_t{16} * 512;

constexpr std::size_t kBytesPerSectorOffset = 11;  // in a FAT boot sector
constexpr std::size_t kReservedSectorsOffset = 14;
constexpr std::size_t kFatFieldsLength = 16;

bool IsFat(FileSystem kind) {
  return kind == FileSystem::kFat12 || kind == FileSystem::kFat16 || kind == FileSystem::kFat32;
}

bool Overlaps(const VolumeExtent& extent, std::uint64_t offset, std::uint64_t length) {
  // No sum here: a table may claim any start and length.
  if (offset >= extent.offset) return offset - extent.offset < extent.length;
  return extent.offset - offset < length;
}

std::uint64_t FatReservedArea(BlockDevice& device, std::uint64_t offset) {
  std::array<std::byte, kFatFieldsLength> fields{};
  if (!device.Read(offset, fields)) return 0;
  const auto word = [&fields](std::size_t at) {
    return std::to_integer<std::uint64_t>(fields[at]) |
           std::to_integer<std::uint64_t>(fields[at + 1]) << 8;
  };
  return word(kBytesPerSectorOffset) * word(kReservedSectorsOffset);
}

}  // namespace

bool DiskWriteAllowed(const std::list<Volume>& volumes, std::uint32_t disk_number,
                      std::uint64_t offset, std::uint64_t length) {
  for (const Volume& volume : volumes) {
    if (!volume.mounted || volume.locked) continue;
    for (const VolumeExtent& extent : volume.extents) {
      if (extent.disk_number == disk_number && Overlaps(extent, offset, length)) return false;
    }
  }
  return true;
}

bool VolumeWriteAllowed(const Volume& volume, std::uint64_t offset, std::uint64_t length) {
  if (!volume.mounted || volume.locked) return true;
  if (offset + length <= volume.boot_area) return true;
  return !IsFat(volume.file_system) && offset >= volume.file_system_space;
}

std::uint64_t BootAreaLength(BlockDevice& device, std::uint64_t offset, FileSystem kind) {
  return IsFat(kind) ? FatReservedArea(device, offset) : kBootCodeLength;
}

}  // namespace simulator
