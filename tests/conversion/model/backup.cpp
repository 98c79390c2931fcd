// The backup in front of a conversion: what it reads of each volume must lie on the disk.
#include <algorithm>

#include "conversion/model/run.h"

namespace model {
namespace {

constexpr std::uint64_t kVolumeStart = 4;  // sectors
constexpr std::uint64_t kMftEnd = 64;      // 32 sectors from the fourth cluster of 4 KiB on

bool StartsAt(const std::vector<Row>& rows, std::uint64_t first) {
  return std::any_of(rows.begin(), rows.end(),
                     [first](const Row& row) { return row.first == first; });
}

bool IsReadable(const Case& disk, std::uint64_t first) {
  const auto& ntfs = disk.ntfs_starts;
  const bool is_ntfs = std::find(ntfs.begin(), ntfs.end(), first) != ntfs.end();
  return first + (is_ntfs ? kMftEnd : kVolumeStart) <= disk.sectors;
}

// Nothing behind the link of a record is looked at.
bool AreReadable(const Case& disk, const BootRecord& record, const std::vector<Row>& rows) {
  for (const MbrEntry& entry : record.entries) {
    if (IsContainer(entry)) return true;
    const std::uint64_t first = record.sector + entry.first;
    if (entry.type != 0 && StartsAt(rows, first) && !IsReadable(disk, first)) return false;
  }
  return true;
}

bool CanBackUpMbr(const Case& disk) {
  const std::vector<Row> rows = ReadMbr(disk.table);
  return std::all_of(disk.table.records.begin(), disk.table.records.end(),
                     [&](const BootRecord& record) { return AreReadable(disk, record, rows); });
}

// Nothing behind an entry without a type is looked at.
bool CanBackUpGpt(const Case& disk) {
  const std::vector<Row> rows = ReadKeptGpt(disk.table);
  for (const GptEntry& entry : disk.table.entries) {
    if (entry.type == Guid{}) return true;
    if (StartsAt(rows, entry.first) && !IsReadable(disk, entry.first)) return false;
  }
  return true;
}

}  // namespace

bool CanBackUp(const Case& disk) {
  return disk.table.style == Style::kGpt ? CanBackUpGpt(disk) : CanBackUpMbr(disk);
}

}  // namespace model
