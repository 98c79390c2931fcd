#include "backup/disk_parser.h"

#include <algorithm>
#include <array>

#include "backup/fat_metadata.h"
#include "backup/file_system_detection.h"
#include "backup/ntfs_metadata.h"
#include "backup/raw_disk.h"
#include "backup/return_codes.h"
#include "logging/log.h"
#include "platform/win32.h"
#include "tools/little_endian.h"

namespace velkora {
namespace {

constexpr std::uint64_t kSectorBytes = 512;
// A handle without buffering wants its buffers where a sector could begin.
constexpr std::size_t kBufferAlignment = 512;
using Sector = std::array<std::byte, kSectorBytes>;

constexpr std::size_t kRowsOffset = 446;
constexpr std::size_t kRowBytes = 16;
constexpr std::size_t kRowCount = 4;
constexpr std::size_t kRowTypeOffset = 4;
constexpr std::size_t kRowStartOffset = 8;
constexpr std::uint8_t kTypeUnused = 0x00;
constexpr std::uint8_t kTypeExtended = 0x05;
constexpr std::uint8_t kTypeExtendedLba = 0x0F;
constexpr unsigned kMostLinkedRecords = 128;

constexpr std::uint64_t kGptHeaderOffset = 512;
constexpr std::uint64_t kGptArrayOffset = 1024;
constexpr std::size_t kAlternateLbaOffset = 32;
constexpr std::size_t kEntryBytes = 128;
constexpr std::size_t kEntryCount = 128;
constexpr std::size_t kEntryTypeBytes = 16;
constexpr std::size_t kEntryStartOffset = 32;
constexpr std::size_t kArrayBytes = kEntryBytes * kEntryCount;

int LastError() {
  return static_cast<int>(win32::GetLastError());
}

bool IsWanted(const PartitionOffsets& offsets, std::uint64_t start) {
  return std::ranges::find(offsets, start) != offsets.end();
}

void LogUnreadable(const char* function, std::uint64_t offset) {
  LogEx(kLogModule, kLogError, "[%s] %s read offs 0x%x error:%d", kBackupTag, function,
        static_cast<unsigned>(offset & 0xFFFFFFFF), LastError());
}

// The walk over sector 0 and the extended boot records.
struct ChainWalk {
  std::uint64_t current = 0;        // byte offset of the record in hand
  std::uint64_t extended_base = 0;  // of the first extended partition
  bool first_link = true;
  std::int32_t result = kBackupDone;

  void Follow(std::uint64_t link_offset) {
    if (first_link) {
      current += link_offset;
      extended_base = current;
      first_link = false;
    } else {
      current = extended_base + link_offset;
    }
  }

  // Takes the rows of a record in order. True when one of them links to a further record: the rows
  // behind it are not looked at, not even a primary partition's behind the extended one.
  bool TakeRows(HANDLE disk, const Sector& sector, const PartitionOffsets& offsets,
                BlockMap& blocks) {
    for (std::size_t i = 0; i < kRowCount; ++i) {
      const std::size_t row = kRowsOffset + i * kRowBytes;
      const auto type = LoadField<std::uint8_t>(sector, row + kRowTypeOffset);
      if (type == kTypeUnused) continue;
      const std::uint64_t offset =
          LoadField<std::uint32_t>(sector, row + kRowStartOffset) * kSectorBytes;
      if (type == kTypeExtended || type == kTypeExtendedLba) {
        Follow(offset);
        return true;
      }
      if (IsWanted(offsets, current + offset)) {
        result = ParseFileSystem(disk, current + offset, blocks);
      }
      if (result != kBackupDone) return false;
    }
    return false;
  }
};

// Saves the table at both ends. The secondary copies are not read: they are given the primary's
// bytes, so that a restored secondary header carries the primary's sector numbers and checksum. The
// secondary array is taken to lie in front of its header.
void SelectGptTables(const Sector& header, const std::array<std::byte, kArrayBytes>& array,
                     BlockMap& blocks) {
  SelectBytes(blocks, kGptArrayOffset, array);
  const std::uint64_t secondary =
      LoadField<std::uint64_t>(header, kAlternateLbaOffset) * kSectorBytes;
  SelectBytes(blocks, secondary - kArrayBytes, array);
  SelectBytes(blocks, secondary, header);
}

}  // namespace

std::int32_t Parse(HANDLE disk, const PartitionOffsets& offsets, BlockMap& blocks) {
  alignas(kBufferAlignment) Sector sector;
  const std::uint64_t done = ReadHere(disk, sector);
  if (done != sector.size()) {
    LogEx(kLogModule, kLogError, "[%s] %s read mbr failed. ret=%d, error=%d", kBackupTag, "Parse",
          static_cast<int>(done), LastError());
    return kBootRecordUnreadable;
  }
  switch (DetectDiskStyle(sector)) {
    case DiskStyle::kMbr:
      return ParseMBR(disk, offsets, blocks);
    case DiskStyle::kGpt:
      return ParseGPT(disk, offsets, blocks);
    default:
      return ParseRawDisk(sector, blocks);
  }
}

std::int32_t ParseMBR(HANDLE disk, const PartitionOffsets& offsets, BlockMap& blocks) {
  ChainWalk walk;
  // A longer chain is cut off silently; one that comes back to itself reads the same records up to
  // the limit.
  for (unsigned count = 0; count <= kMostLinkedRecords; ++count) {
    alignas(kBufferAlignment) Sector sector;
    if (!ReadAllAt(disk, walk.current, sector)) {
      LogUnreadable("ParseMBR", walk.current);
      return kBootRecordUnreadable;
    }
    SelectBytes(blocks, walk.current, sector);
    if (!walk.TakeRows(disk, sector, offsets, blocks)) break;
  }
  return walk.result;
}

std::int32_t ParseGPT(HANDLE disk, const PartitionOffsets& offsets, BlockMap& blocks) {
  alignas(kBufferAlignment) Sector header;
  if (!ReadAllAt(disk, kGptHeaderOffset, header)) {
    LogEx(kLogModule, kLogError, "[%s] %s: read header error %d", kBackupTag, "ParseGPT",
          LastError());
    return kGptUnreadable;
  }
  SelectBytes(blocks, kGptHeaderOffset, header);
  alignas(kBufferAlignment) std::array<std::byte, kArrayBytes> array;
  if (!ReadAllAt(disk, kGptArrayOffset, array)) {
    LogEx(kLogModule, kLogError, "[%s] %s: read error %d", kBackupTag, "ParseGPT", LastError());
    return kGptUnreadable;
  }
  SelectGptTables(header, array, blocks);
  std::int32_t result = kBackupDone;
  for (std::size_t i = 0; i < kEntryCount && result == kBackupDone; ++i) {
    const auto entry = std::span(array).subspan(i * kEntryBytes, kEntryBytes);
    const bool unused = std::ranges::all_of(entry.first(kEntryTypeBytes),
                                            [](std::byte byte) { return byte == std::byte{0}; });
    if (unused) break;
    const std::uint64_t start = LoadField<std::uint64_t>(entry, kEntryStartOffset) * kSectorBytes;
    if (IsWanted(offsets, start)) result = ParseFileSystem(disk, start, blocks);
  }
  return result;
}

std::int32_t ParseRawDisk(std::span<const std::byte, 512> sector, BlockMap& blocks) {
  SelectBytes(blocks, 0, sector);
  return kBackupDone;
}

std::int32_t ParseFileSystem(HANDLE disk, std::uint64_t offset, BlockMap& blocks) {
  alignas(kBufferAlignment) std::array<std::byte, kVolumeStartBytes> start;
  if (!ReadAllAt(disk, offset, start)) {
    LogUnreadable("ParseFileSystem", offset);
    return kVolumeStartUnreadable;
  }
  switch (DetectFileSystem(start)) {
    case VolumeFileSystem::kNtfs:
      return ParseNtfsVolume(disk, offset, start, blocks);
    case VolumeFileSystem::kFat16:
      return ParseFat16Volume(disk, offset, start, blocks);
    case VolumeFileSystem::kFat32:
      return ParseFat32Volume(disk, offset, start, blocks);
    default:
      SelectBytes(blocks, offset, start);
      return kBackupDone;
  }
}

}  // namespace velkora
