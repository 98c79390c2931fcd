#include "host/volume_start.h"

#include <algorithm>
#include <array>
#include <bit>
#include <string_view>

namespace velkora_host {
namespace {

using Bytes = std::span<const std::byte, kVolumeStartBytes>;
using enum VolumeFileSystem;

// A little-endian number of `width` bytes.
std::uint64_t NumberAt(Bytes bytes, std::size_t offset, std::size_t width) {
  std::uint64_t number = 0;
  for (std::size_t i = width; i-- > 0;) {
    number = number << 8 | std::to_integer<std::uint64_t>(bytes[offset + i]);
  }
  return number;
}

bool HasText(Bytes bytes, std::size_t offset, std::string_view text) {
  return std::equal(text.begin(), text.end(), bytes.begin() + static_cast<std::ptrdiff_t>(offset),
                    [](char c, std::byte b) { return std::to_integer<char>(b) == c; });
}

bool IsPowerOfTwo(std::uint64_t number, std::uint64_t least, std::uint64_t most) {
  return std::has_single_bit(number) && number >= least && number <= most;
}

// A cluster of `sectors` sectors, if both sizes are possible.
VolumeStart Clusters(VolumeFileSystem kind, std::uint64_t sector, std::uint64_t sectors,
                     std::uint64_t most_sectors) {
  if (!IsPowerOfTwo(sector, 512, 4096) || !IsPowerOfTwo(sectors, 1, most_sectors)) return {};
  return {kind, static_cast<std::uint32_t>(sector * sectors)};
}

VolumeStart ReadNtfs(Bytes bytes) {
  if (!HasText(bytes, 3, "NTFS    ") || NumberAt(bytes, 510, 2) != 0xAA55) return {};
  std::uint64_t sectors = NumberAt(bytes, 13, 1);
  // From 256 sectors on, the negative of the power of two.
  if (sectors > 0xF0) sectors = std::uint64_t{1} << (0x100 - sectors);
  return Clusters(kNtfs, NumberAt(bytes, 11, 2), sectors, 4096);
}

VolumeStart ReadExfat(Bytes bytes) {
  if (!HasText(bytes, 3, "EXFAT   ") || NumberAt(bytes, 510, 2) != 0xAA55) return {};
  const std::uint64_t sector_shift = NumberAt(bytes, 108, 1);
  const std::uint64_t cluster_shift = NumberAt(bytes, 109, 1);
  if (sector_shift < 9 || sector_shift > 12 || sector_shift + cluster_shift > 25) return {};
  return {kExfat, std::uint32_t{1} << (sector_shift + cluster_shift)};
}

VolumeStart ReadRefs(Bytes bytes) {
  if (!HasText(bytes, 3, "ReFS") || !HasText(bytes, 16, "FSRS")) return {};
  return Clusters(kRefs, NumberAt(bytes, 32, 4), NumberAt(bytes, 36, 4), 128);
}

// What a FAT volume's boot sector has in common with none of another kind; Windows asks for no
// more.
bool LooksLikeFat(Bytes bytes) {
  constexpr std::array<std::uint64_t, 3> kJumps = {0xEB, 0xE9, 0x49};
  const std::uint64_t jump = NumberAt(bytes, 0, 1);
  const std::uint64_t media = NumberAt(bytes, 21, 1);
  return std::find(kJumps.begin(), kJumps.end(), jump) != kJumps.end() &&
         NumberAt(bytes, 14, 2) != 0 && NumberAt(bytes, 16, 1) != 0 &&
         (media == 0xF0 || media >= 0xF8);
}

// The first of two fields that is not zero.
std::uint64_t Either(std::uint64_t first, std::uint64_t second) {
  return first != 0 ? first : second;
}

VolumeStart ReadFat(Bytes bytes) {
  const std::uint64_t sector = NumberAt(bytes, 11, 2);
  const std::uint64_t cluster = NumberAt(bytes, 13, 1);
  const VolumeStart fat32 = Clusters(kFat32, sector, cluster, 128);
  if (!LooksLikeFat(bytes) || fat32.filesystem == kUnknown) return {};
  const std::uint64_t root_entries = NumberAt(bytes, 17, 2);
  const std::uint64_t short_fat = NumberAt(bytes, 22, 2);
  const std::uint64_t fat = Either(short_fat, NumberAt(bytes, 36, 4));
  const std::uint64_t total = Either(NumberAt(bytes, 19, 2), NumberAt(bytes, 32, 4));
  const std::uint64_t root = (root_entries * 32 + sector - 1) / sector;
  const std::uint64_t used = NumberAt(bytes, 14, 2) + NumberAt(bytes, 16, 1) * fat + root;
  if (fat == 0 || total <= used) return {};
  // FAT32 alone has no root directory of fixed size, and no short field for the size of a FAT.
  if ((short_fat == 0) != (root_entries == 0)) return {};
  if (short_fat == 0) return fat32;
  return {(total - used) / cluster < 4085 ? kFat12 : kFat16, fat32.cluster_size};
}

VolumeStart ReadExt(Bytes bytes) {
  constexpr std::size_t kSuperblock = 1024;
  constexpr std::uint64_t kHasJournal = 0x4;
  // What ext3 knows already; a feature beyond makes it ext4.
  constexpr std::uint64_t kOldIncompatible = 0x1E;
  constexpr std::uint64_t kOldReadOnly = 0x7;
  const std::uint64_t block_shift = NumberAt(bytes, kSuperblock + 24, 4);
  if (NumberAt(bytes, kSuperblock + 56, 2) != 0xEF53 || block_shift > 6) return {};
  const std::uint32_t block = std::uint32_t{1024} << block_shift;
  const bool is_new = (NumberAt(bytes, kSuperblock + 96, 4) & ~kOldIncompatible) != 0 ||
                      (NumberAt(bytes, kSuperblock + 100, 4) & ~kOldReadOnly) != 0;
  if (is_new) return {kExt4, block};
  return {(NumberAt(bytes, kSuperblock + 92, 4) & kHasJournal) != 0 ? kExt3 : kExt2, block};
}

}  // namespace

VolumeStart ReadVolumeStart(Bytes bytes) {
  // ext comes last: its superblock may be what is left of a volume that Windows has formatted.
  for (const auto read : {ReadNtfs, ReadExfat, ReadRefs, ReadFat, ReadExt}) {
    const VolumeStart start = read(bytes);
    if (start.filesystem != kUnknown) return start;
  }
  return {};
}

}  // namespace velkora_host
