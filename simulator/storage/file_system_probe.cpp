#include "simulator/storage/file_system_probe.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <span>

#include "simulator/storage/on_disk.h"

namespace simulator {
namespace {

using Bytes = std::span<const std::byte>;

constexpr std::size_t kBootSectorBytes = 512;
constexpr std::uint64_t kSuperblockOffset = 1024;
constexpr std::size_t kSuperblockBytes = 1024;
constexpr std::size_t kOemNameOffset = 3;

// A number at a constant place, below the length of the structure that was read.
template <typename T>
T At(Bytes bytes, std::size_t offset) {
  return Load<Little<T>>(bytes.subspan(offset));
}

bool HasText(Bytes bytes, std::size_t offset, std::string_view text) {
  const Bytes part = bytes.subspan(offset, text.size());
  return std::equal(part.begin(), part.end(), text.begin(), text.end(),
                    [](std::byte b, char c) { return std::to_integer<char>(b) == c; });
}

bool HasBootSignature(Bytes boot) {
  return At<std::uint16_t>(boot, 510) == kBootSignature;
}

bool IsSectorSize(std::uint32_t bytes) {
  return std::has_single_bit(bytes) && bytes >= 512 && bytes <= 4096;
}

bool IsPowerOfTwoUpTo(std::uint32_t value, std::uint32_t limit) {
  return std::has_single_bit(value) && value <= limit;
}

FileSystemInfo ProbeNtfs(Bytes boot) {
  if (!HasText(boot, kOemNameOffset, "NTFS    ") || !HasBootSignature(boot)) return {};
  const std::uint32_t sector = At<std::uint16_t>(boot, 11);
  std::uint32_t per_cluster = At<std::uint8_t>(boot, 13);
  // Large clusters are noted as the negative of a power of two.
  if (per_cluster > 0xF0) per_cluster = 1u << (0x100 - per_cluster);
  if (!IsSectorSize(sector) || !IsPowerOfTwoUpTo(per_cluster, 4096)) return {};
  return {FileSystem::kNtfs, sector * per_cluster, At<std::uint64_t>(boot, 40)};
}

FileSystemInfo ProbeExfat(Bytes boot) {
  if (!HasText(boot, kOemNameOffset, "EXFAT   ") || !HasBootSignature(boot)) return {};
  const std::uint32_t sector_shift = At<std::uint8_t>(boot, 108);
  const std::uint32_t cluster_shift = At<std::uint8_t>(boot, 109);
  if (sector_shift < 9 || sector_shift > 12 || sector_shift + cluster_shift > 25) return {};
  return {FileSystem::kExfat, 1u << (sector_shift + cluster_shift), At<std::uint64_t>(boot, 72)};
}

FileSystemInfo ProbeRefs(Bytes boot) {
  constexpr std::uint32_t kMaxSectorsPerCluster = 128;
  if (!HasText(boot, kOemNameOffset, "ReFS") || !HasText(boot, 16, "FSRS")) return {};
  const auto sector = At<std::uint32_t>(boot, 32);
  const auto per_cluster = At<std::uint32_t>(boot, 36);
  if (!IsSectorSize(sector) || !IsPowerOfTwoUpTo(per_cluster, kMaxSectorsPerCluster)) return {};
  return {FileSystem::kRefs, sector * per_cluster, At<std::uint64_t>(boot, 24)};
}

// The FAT driver goes by the parameters alone; it asks neither for a name nor for 55AA.
bool HasFatParameters(Bytes boot) {
  const auto jump = At<std::uint8_t>(boot, 0);
  const auto media = At<std::uint8_t>(boot, 21);
  return (jump == 0xE9 || jump == 0xEB || jump == 0x49) &&
         IsSectorSize(At<std::uint16_t>(boot, 11)) &&
         IsPowerOfTwoUpTo(At<std::uint8_t>(boot, 13), 128) && At<std::uint16_t>(boot, 14) != 0 &&
         At<std::uint8_t>(boot, 16) != 0 && (media == 0xF0 || media >= 0xF8);
}

FileSystemInfo ProbeFat(Bytes boot) {
  constexpr std::uint64_t kMinFat16Clusters = 4085;
  constexpr std::uint64_t kDirectoryEntryBytes = 32;
  if (!HasFatParameters(boot)) return {};
  const std::uint32_t sector = At<std::uint16_t>(boot, 11);
  const std::uint32_t per_cluster = At<std::uint8_t>(boot, 13);
  const std::uint64_t root_entries = At<std::uint16_t>(boot, 17);
  const std::uint32_t short_fat = At<std::uint16_t>(boot, 22);
  const std::uint32_t short_total = At<std::uint16_t>(boot, 19);
  const std::uint64_t fat = short_fat != 0 ? short_fat : At<std::uint32_t>(boot, 36);
  const std::uint64_t total = short_total != 0 ? short_total : At<std::uint32_t>(boot, 32);
  const std::uint64_t root_sectors = (root_entries * kDirectoryEntryBytes + sector - 1) / sector;
  const std::uint64_t metadata =
      At<std::uint16_t>(boot, 14) + At<std::uint8_t>(boot, 16) * fat + root_sectors;
  if (fat == 0 || total <= metadata) return {};
  const FileSystemInfo info = {FileSystem::kFat32, sector * per_cluster, total};
  if (short_fat == 0) return root_entries == 0 ? info : FileSystemInfo{};
  if (root_entries == 0) return {};
  const bool is_fat12 = (total - metadata) / per_cluster < kMinFat16Clusters;
  return {is_fat12 ? FileSystem::kFat12 : FileSystem::kFat16, info.cluster_size, total};
}

FileSystemInfo ProbeExt(Bytes superblock) {
  constexpr std::uint16_t kMagic = 0xEF53;
  constexpr std::uint32_t kMaxBlockShift = 6;  // blocks of 64 KiB
  constexpr std::uint32_t kHasJournal = 0x4;
  // Features up to ext3: entry types, recovery, journal device, meta groups; and read-only ones:
  // sparse superblocks, large files, tree directories. Any other makes it ext4.
  constexpr std::uint32_t kOldIncompatible = 0x1E;
  constexpr std::uint32_t kOldReadOnly = 0x7;
  const auto block_shift = At<std::uint32_t>(superblock, 24);
  if (At<std::uint16_t>(superblock, 56) != kMagic || block_shift > kMaxBlockShift) return {};
  const auto compatible = At<std::uint32_t>(superblock, 92);
  const auto incompatible = At<std::uint32_t>(superblock, 96);
  const auto read_only = At<std::uint32_t>(superblock, 100);
  FileSystem kind = FileSystem::kExt2;
  if ((incompatible & ~kOldIncompatible) != 0 || (read_only & ~kOldReadOnly) != 0) {
    kind = FileSystem::kExt4;
  } else if ((compatible & kHasJournal) != 0) {
    kind = FileSystem::kExt3;
  }
  return {kind, std::uint32_t{1024} << block_shift, 0};
}

}  // namespace

FileSystemInfo ProbeFileSystem(BlockDevice& device, std::uint64_t offset) {
  std::array<std::byte, kBootSectorBytes> boot{};
  if (!device.Read(offset, boot)) return {};
  for (const auto probe : {ProbeNtfs, ProbeExfat, ProbeRefs, ProbeFat}) {
    const FileSystemInfo info = probe(boot);
    if (info.kind != FileSystem::kNone) return info;
  }
  // Last: a format by Windows may leave the superblock of an older ext volume in place.
  std::array<std::byte, kSuperblockBytes> superblock{};
  if (!device.Read(offset + kSuperblockOffset, superblock)) return {};
  return ProbeExt(superblock);
}

}  // namespace simulator
