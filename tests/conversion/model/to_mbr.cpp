// GPT to MBR: three primaries at most, the others logical, with boot records between them.
#include <algorithm>
#include <limits>

#include "conversion/model/run.h"

namespace model {
namespace {

constexpr std::uint8_t kDataType = 7;
constexpr std::uint8_t kContainerType = 15;
constexpr std::uint8_t kLinkType = 5;
constexpr std::uint64_t kLargestMbrDisk = std::uint64_t{1} << 32;  // in sectors
constexpr std::size_t kPrimaries = 3;

// The rows as they stand in the table; the gaps in front of what will be logical.
bool EnsureGaps(Run& run, std::vector<Row>& rows) {
  bool shrunk = false;
  if (rows.size() <= kPrimaries) return true;
  for (std::size_t i = kPrimaries - 1; i + 1 < rows.size(); ++i) {
    const std::uint64_t last = rows[i].end() - 1;
    if (rows[i + 1].first >= last + kMiB) continue;
    if (!run.Shrink(rows[i].first, 5)) return false;
    shrunk = true;
  }
  if (shrunk) rows = ReadKeptGpt(run.disk.table);
  return true;
}

// Puts an entry together as the system would; false for what 32 bits do not hold. Lengths reach it
// in bytes, so they wrap at 2^55 sectors.
bool SetEntry(MbrEntry& entry, std::uint8_t type, std::uint64_t relative, std::uint64_t count) {
  constexpr std::uint64_t kLargest = std::numeric_limits<std::uint32_t>::max();
  count = count * kSector / kSector;
  if (relative > kLargest || count > kLargest) return false;
  entry = {0, type, static_cast<std::uint32_t>(relative), static_cast<std::uint32_t>(count)};
  return true;
}

// Each boot record lies right behind the partition in front; containers and links run to the end.
bool BuildChain(const std::vector<Row>& rows, std::uint64_t disk_end, Table& table) {
  const std::uint64_t base = rows[kPrimaries - 1].end();
  MbrEntry& container = table.records.front().entries[kPrimaries];
  bool fits = SetEntry(container, kContainerType, base, disk_end - base);
  for (std::size_t i = kPrimaries; i < rows.size(); ++i) {
    BootRecord record{rows[i - 1].end(), {}};
    fits &= SetEntry(record.entries[0], kDataType, rows[i].first - record.sector, rows[i].count);
    const std::uint64_t next = rows[i].end();
    if (i + 1 < rows.size()) {
      fits &= SetEntry(record.entries[1], kLinkType, next - base, disk_end - next);
    }
    table.records.push_back(record);
  }
  return fits;
}

bool BuildTable(const std::vector<Row>& rows, std::uint64_t disk_end, Table& table) {
  bool fits = true;
  for (std::size_t i = 0; i < std::min(rows.size(), kPrimaries); ++i) {
    fits &= SetEntry(table.records[0].entries[i], kDataType, rows[i].first, rows[i].count);
  }
  if (rows.size() > kPrimaries) fits &= BuildChain(rows, disk_end, table);
  return fits;
}

// The system volume's partition becomes active, which only a primary one can.
bool RepairBoot(Run& run, std::size_t partitions) {
  const auto& volumes = run.disk.volumes;
  const auto system = std::find_if(volumes.begin(), volumes.end(),
                                   [](const Volume& volume) { return volume.system; });
  if (system == volumes.end()) return false;
  if (system->number == 0 || system->number > std::min(partitions, kPrimaries)) return false;
  run.disk.table.records[0].entries[system->number - 1].flag = 0x80;
  return true;
}

}  // namespace

Outcome ConvertToMbr(const Case& before) {
  Run run(before);
  std::vector<Row> rows = ReadKeptGpt(run.disk.table);
  run.Report(0, 1);
  if (!EnsureGaps(run, rows)) return run.End(false);
  SortByFirst(rows);
  run.Report(20, 2);
  run.Report(40, 3);
  const Table empty{Style::kMbr, {BootRecord{}}, {}};
  run.disk.table = empty;
  if (rows.empty()) return run.End(true);
  const std::uint64_t disk_end = std::min(run.disk.sectors, kLargestMbrDisk);
  run.outcome.record_size = disk_end * kSector;
  run.Report(60, 4);
  Table table = empty;
  if (!BuildTable(rows, disk_end, table)) return run.End(false);
  run.disk.table = table;
  run.NumberVolumes(rows);
  if (!run.disk.system_disk) return run.End(true);
  run.Report(80, 6);
  return run.End(RepairBoot(run, rows.size()));
}

}  // namespace model
