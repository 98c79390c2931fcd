#include "backup/file_system_detection.h"

#include <cstring>
#include <string_view>

#include "tools/little_endian.h"

namespace velkora {
namespace {

constexpr std::size_t kSignatureOffset = 510;
constexpr std::uint16_t kSignature = 0xAA55;
constexpr std::size_t kFirstRowOffset = 446;
constexpr std::size_t kFirstTypeOffset = kFirstRowOffset + 4;
constexpr std::uint8_t kActiveBit = 0x80;
constexpr std::uint8_t kProtectiveType = 0xEE;

struct Mark {
  std::size_t offset;
  std::string_view text;
  VolumeFileSystem kind;
};

// In the order in which they are tried.
constexpr Mark kMarks[] = {
    {3, "NTFS", VolumeFileSystem::kNtfs},    {3, "EXFAT", VolumeFileSystem::kExfat},
    {3, "ReFS", VolumeFileSystem::kRefs},    {32, "NXSB", VolumeFileSystem::kApfs},
    {54, "FAT12", VolumeFileSystem::kFat12}, {54, "FAT16", VolumeFileSystem::kFat16},
    {82, "FAT32", VolumeFileSystem::kFat32}, {1024, "H+", VolumeFileSystem::kHfs},
    {1024, "HX", VolumeFileSystem::kHfs},    {1080, "\x53\xEF", VolumeFileSystem::kExt2},
};

constexpr std::size_t kExtCompatOffset = 1116;
constexpr std::size_t kExtIncompatOffset = 1120;
constexpr std::uint32_t kExt3LargestCompat = 63;
constexpr std::uint32_t kExt3LargestIncompat = 31;
constexpr std::uint32_t kCompatHasJournal = 1U << 2;
constexpr std::uint32_t kIncompatRecover = 1U << 2;
constexpr std::uint32_t kIncompatJournalDevice = 1U << 3;

VolumeFileSystem ExtKind(std::span<const std::byte> start) {
  const auto compat = LoadField<std::uint32_t>(start, kExtCompatOffset);
  const auto incompat = LoadField<std::uint32_t>(start, kExtIncompatOffset);
  if (incompat > kExt3LargestIncompat || compat > kExt3LargestCompat)
    return VolumeFileSystem::kExt4;
  const bool journal = (compat & kCompatHasJournal) != 0 ||
                       (incompat & (kIncompatRecover | kIncompatJournalDevice)) != 0;
  return journal ? VolumeFileSystem::kExt3 : VolumeFileSystem::kExt2;
}

}  // namespace

DiskStyle DetectDiskStyle(std::span<const std::byte, 512> sector) {
  const auto boot_flag = LoadField<std::uint8_t>(sector, kFirstRowOffset);
  if (LoadField<std::uint16_t>(sector, kSignatureOffset) != kSignature ||
      (boot_flag & ~kActiveBit) != 0) {
    return DiskStyle::kNeither;
  }
  const auto type = LoadField<std::uint8_t>(sector, kFirstTypeOffset);
  return type == kProtectiveType ? DiskStyle::kGpt : DiskStyle::kMbr;
}

VolumeFileSystem DetectFileSystem(std::span<const std::byte, kVolumeStartBytes> start) {
  for (const Mark& mark : kMarks) {
    if (std::memcmp(start.data() + mark.offset, mark.text.data(), mark.text.size()) != 0) continue;
    return mark.kind == VolumeFileSystem::kExt2 ? ExtKind(start) : mark.kind;
  }
  return VolumeFileSystem::kUnknown;
}

}  // namespace velkora
