#include "convert/partition_reader.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <new>
#include <set>
#include <span>

#include "frame/global_context.h"
#include "logging/log.h"
#include "platform/win32.h"
#include "tools/little_endian.h"

namespace velkora {
namespace {

using SectorBuffer = std::array<std::byte, kSectorBytes>;

constexpr std::uint64_t kGptHeaderSector = 1;
constexpr std::size_t kEntryStartOffset = 72;  // in the header: sector of the entry array, 8 bytes
constexpr std::size_t kEntriesPerSector = kSectorBytes / sizeof(GptPartitionRow);
// The last value of the entry counter, so that one entry behind a full array of 128 is looked at.
constexpr unsigned kLastEntry = 128;

constexpr std::size_t kMbrRowsOffset = 446;
constexpr std::size_t kMbrRowCount = 4;
constexpr std::uint8_t kTypeUnused = 0;
constexpr std::uint8_t kTypeExtended = 5;
constexpr std::uint8_t kTypeExtendedLba = 15;

bool IsContainer(std::uint8_t type) {
  return type == kTypeExtended || type == kTypeExtendedLba;
}

MbrPartitionRow LoadMbrRow(std::span<const std::byte, kSectorBytes> sector, std::size_t index) {
  return LoadField<MbrPartitionRow>(sector, kMbrRowsOffset + index * sizeof(MbrPartitionRow));
}

bool IsAllZero(const MbrPartitionRow& row) {
  static constexpr MbrPartitionRow kZero = {};
  return std::memcmp(&row, &kZero, sizeof row) == 0;
}

bool IsAllZero(const std::array<std::uint8_t, 16>& guid) {
  return std::all_of(guid.begin(), guid.end(), [](std::uint8_t byte) { return byte == 0; });
}

// `offset` is a multiple of 512, so the lower half of a good position is never the failure value.
bool SeekTo(HANDLE disk, std::uint64_t offset) {
  LARGE_INTEGER distance{};
  distance.QuadPart = static_cast<LONGLONG>(offset);
  const DWORD low = win32::SetFilePointer(disk, static_cast<LONG>(distance.u.LowPart),
                                          &distance.u.HighPart, FILE_BEGIN);
  if (low != INVALID_SET_FILE_POINTER) return true;
  LogEx(kLogModule, kLogError, "SetFilePointer Error: %d", static_cast<int>(win32::GetLastError()));
  return false;
}

bool ReadSectorHere(HANDLE disk, SectorBuffer& sector) {
  DWORD done = 0;
  sector.fill(std::byte{0});
  if (win32::ReadFile(disk, sector.data(), kSectorBytes, &done, nullptr)) return true;
  LogEx(kLogModule, kLogError, "Read Error: %d", static_cast<int>(win32::GetLastError()));
  return false;
}

bool ReadSectorAt(HANDLE disk, std::uint64_t sector_number, SectorBuffer& sector) {
  return SeekTo(disk, sector_number << kSectorShift) && ReadSectorHere(disk, sector);
}

// Appends the logical partitions of the extended partition whose first boot record is at `base`.
bool ReadLogicalChain(HANDLE disk, std::uint32_t base, MbrPartitionList& rows) {
  std::set<std::uint32_t> linked_records;
  std::uint32_t current = base;
  for (;;) {
    SectorBuffer sector;
    if (!ReadSectorAt(disk, current, sector)) return false;
    MbrPartitionRow logical = LoadMbrRow(sector, 0);
    if (IsAllZero(logical)) return true;
    const MbrPartitionRow link = LoadMbrRow(sector, 1);
    const bool is_link = IsContainer(link.type);
    // Neither a link nor the end of the chain: the same record is read again, without end and
    // without a look at the stop flag.
    if (!is_link && link.type != kTypeUnused) continue;
    // Readers of the log know the two cases by these texts.
    LogEx(kLogModule, kLogProgress, is_link ? "test code 1" : "test code 2");
    logical.first_sector += current;
    rows.push_back(logical);
    if (!is_link) return true;
    // A chain that comes back to a record grows the list until memory is used up. That end is taken
    // at once.
    if (!linked_records.insert(current).second) throw std::bad_alloc();
    current = base + link.first_sector;
  }
}

}  // namespace

bool ReadGptPartitions(HANDLE disk, GptPartitionList& rows) {
  SectorBuffer sector;
  if (!ReadSectorAt(disk, kGptHeaderSector, sector)) return false;
  std::uint64_t offset = LoadField<std::uint64_t>(sector, kEntryStartOffset) << kSectorShift;
  if (!SeekTo(disk, offset) || !ReadSectorHere(disk, sector)) return false;
  std::size_t position = 0;
  for (unsigned entry = 0; entry <= kLastEntry; ++entry) {
    if (StopRequested()) return false;
    if (position == kEntriesPerSector) {
      offset += kSectorBytes;
      // A failed seek is logged and the read goes ahead where the last one ended, which is the
      // place that was sought.
      SeekTo(disk, offset);
      if (!ReadSectorHere(disk, sector)) return false;
      position = 0;
    }
    const auto row = LoadField<GptPartitionRow>(sector, position * sizeof(GptPartitionRow));
    if (IsAllZero(row.unique_guid)) return true;
    rows.push_back(row);
    ++position;
  }
  return true;
}

bool ReadMbrPartitions(HANDLE disk, MbrPartitionList& rows) {
  SectorBuffer sector;
  if (!ReadSectorAt(disk, 0, sector)) return false;
  for (std::size_t i = 0; i < kMbrRowCount; ++i) {
    if (StopRequested()) return false;
    const MbrPartitionRow row = LoadMbrRow(sector, i);
    if (IsContainer(row.type)) {
      if (!ReadLogicalChain(disk, row.first_sector, rows)) return false;
    } else if (row.sector_count != 0) {
      // A sector count makes the row one of which some byte is not zero.
      rows.push_back(row);
    }
  }
  return true;
}

}  // namespace velkora
