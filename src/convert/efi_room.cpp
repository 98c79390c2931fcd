#include <cstddef>

#include "convert/mbr_to_gpt.h"
#include "convert/partition_reader.h"
#include "convert/partition_types.h"
#include "logging/log.h"
#include "tools/diskpart.h"

namespace velkora {
namespace {

constexpr std::uint64_t kSecondaryTableSectors = 33;
constexpr std::uint64_t kTailRoomMib = 1;
constexpr std::uint64_t kFirstEfiPosition = 0x100000;  // bytes: 1 MiB
constexpr std::uint64_t kEfiBytes = 314572800;         // 300 MiB
constexpr std::uint32_t kEfiSectors = 614400;
constexpr std::uint64_t kLeastBytesToShrink = 0x40000000;  // 1 GiB
constexpr std::uint64_t kEfiRoomMib = 302;                 // 2 MiB more than is then used
// Any type but 0xFF, which would make the row a hidden partition.
constexpr std::uint8_t kEfiRowType = 0xEF;

std::uint64_t StartBytes(const MbrPartitionRow& row) {
  return std::uint64_t{row.first_sector} << kSectorShift;
}

std::uint64_t EndSector(const MbrPartitionRow& row) {
  return std::uint64_t{row.first_sector} + row.sector_count;
}

std::uint64_t EndBytes(const MbrPartitionRow& row) {
  return EndSector(row) << kSectorShift;
}

bool ShrinkRow(Velkora& converter, const MbrPartitionRow& row, std::uint64_t size_mib) {
  if (converter.CompressPart(StartBytes(row), size_mib)) return true;
  LogEx(kLogModule, kLogError, "CompressPart fail!");
  return false;
}

// A failed rescan leaves the list whole. It is cleared before the read, so that a failed read
// leaves the rows read so far, maybe none.
bool ReadSortedAgain(const Velkora& converter, MbrPartitionList& rows) {
  if (!DISKPART_Rescan()) return false;
  rows.clear();
  if (!ReadMbrPartitions(converter.disk_handle, rows)) {
    LogEx(kLogModule, kLogError, "Get partitions fail!");
    return false;
  }
  SortByFirstSector(rows);
  return true;
}

struct EfiPlace {
  std::uint64_t offset = 0;    // bytes from the start of the disk
  std::uint32_t position = 0;  // place in the sorted list, from 1; 0 while there is none
};

// The first gap of more than 300 MiB between two rows, or in front of the first.
EfiPlace FindGap(const MbrPartitionList& rows) {
  std::uint64_t candidate = kFirstEfiPosition;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    if (StartBytes(rows[i]) > candidate + kEfiBytes) {
      return {candidate, static_cast<std::uint32_t>(i + 1)};
    }
    candidate = EndBytes(rows[i]);
  }
  return {};
}

EfiPlace FindTail(const MbrPartitionList& rows, std::uint64_t disk_size) {
  const MbrPartitionRow& last = rows.at(rows.size() - 1);
  // A 32-bit sum: the end of a row past sector 2^32 comes out near the start of the disk.
  const std::uint32_t end_sector = last.first_sector + last.sector_count;
  const std::uint64_t end = std::uint64_t{end_sector} << kSectorShift;
  if (end + kEfiBytes >= disk_size) return {};
  return {end, static_cast<std::uint32_t>(rows.size() + 1)};
}

// Shrinks the last row that is long enough. The EFI partition takes the end of what it gave.
bool MakeEfiRoom(Velkora& converter, const MbrPartitionList& rows, EfiPlace& place) {
  for (std::size_t i = rows.size(); i-- > 0;) {
    const std::uint64_t bytes = std::uint64_t{rows[i].sector_count} << kSectorShift;
    if (bytes <= kLeastBytesToShrink) continue;
    if (!ShrinkRow(converter, rows[i], kEfiRoomMib)) return false;
    place = {EndBytes(rows[i]) - kEfiBytes, static_cast<std::uint32_t>(i + 2)};
    return true;
  }
  LogEx(kLogModule, kLogError, "Need compress for efi but not");
  return false;
}

MbrPartitionRow MakeEfiRow(std::uint64_t offset) {
  MbrPartitionRow row{};
  row.type = kEfiRowType;
  row.first_sector = static_cast<std::uint32_t>(offset >> kSectorShift);
  row.sector_count = kEfiSectors;
  return row;
}

}  // namespace

bool EnsureGptTailRoom(Velkora& converter, MbrPartitionList& rows) {
  if (rows.empty()) return true;
  const std::uint64_t disk_sectors = converter.disk_info->size / kSectorBytes;
  if (EndSector(rows.back()) + kSecondaryTableSectors <= disk_sectors) return true;
  return ShrinkRow(converter, rows.back(), kTailRoomMib) && ReadSortedAgain(converter, rows);
}

bool EnsureEfiRoom(Velkora& converter, MbrPartitionList& rows, std::uint32_t* efi_position) {
  if (converter.disk_info->is_system == 0) return true;
  EfiPlace place = FindGap(rows);
  if (place.position == 0) place = FindTail(rows, converter.disk_info->size);
  if (place.position == 0 && !MakeEfiRoom(converter, rows, place)) return false;
  *efi_position = place.position;
  if (!ReadSortedAgain(converter, rows)) return false;
  rows.push_back(MakeEfiRow(place.offset));
  SortByFirstSector(rows);
  return true;
}

}  // namespace velkora
