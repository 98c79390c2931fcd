#include "conversion/model/run.h"

#include <algorithm>

namespace model {
namespace {

constexpr int kStatus = 0;
constexpr int kPercent = 1;
constexpr int kShrinking = 5;
constexpr int kBackupFailed = 8;
constexpr int kRollingBack = 9;
constexpr int kRolledBack = 10;

const BootRecord* RecordAt(const Table& table, std::uint64_t sector) {
  const auto found = std::find_if(table.records.begin(), table.records.end(),
                                  [sector](const BootRecord& r) { return r.sector == sector; });
  return found == table.records.end() ? nullptr : &*found;
}

// A chain ends at a record without a first entry, or behind one without a link.
void ReadLogicals(const Table& table, std::uint64_t base, std::vector<Row>& rows) {
  for (const BootRecord* record = RecordAt(table, base); record != nullptr;) {
    const auto& [logical, link, third, fourth] = record->entries;
    if (logical == MbrEntry{}) return;
    rows.push_back({record->sector + logical.first, logical.count, logical.type});
    if (!IsContainer(link)) return;
    record = RecordAt(table, base + link.first);
  }
}

bool SystemNumbersEntry(const MbrEntry& entry) {
  return entry.type != 0 && !IsContainer(entry);
}

}  // namespace

const Guid kEfiSystem = {0x28, 0x73, 0x2A, 0xC1, 0x1F, 0xF8, 0xD2, 0x11,
                         0xBA, 0x4B, 0x00, 0xA0, 0xC9, 0x3E, 0xC9, 0x3B};
const Guid kMicrosoftReserved = {0x16, 0xE3, 0xC9, 0xE3, 0x5C, 0x0B, 0xB8, 0x4D,
                                 0x81, 0x7D, 0xF9, 0x2D, 0xF0, 0x02, 0x15, 0xAE};
const Guid kBasicData = {0xA2, 0xA0, 0xD0, 0xEB, 0xE5, 0xB9, 0x33, 0x44,
                         0x87, 0xC0, 0x68, 0xB6, 0xB7, 0x26, 0x99, 0xC7};
const Guid kHidden = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
                      0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};

bool IsContainer(const MbrEntry& entry) {
  return entry.type == 5 || entry.type == 15;
}

void SortByFirst(std::vector<Row>& rows) {
  std::sort(rows.begin(), rows.end(),
            [](const Row& left, const Row& right) { return left.first < right.first; });
}

std::vector<Row> ReadMbr(const Table& table) {
  std::vector<Row> rows;
  for (const MbrEntry& entry : table.records.front().entries) {
    if (IsContainer(entry)) {
      ReadLogicals(table, entry.first, rows);
    } else if (entry.count != 0) {
      rows.push_back({entry.first, entry.count, entry.type});
    }
  }
  return rows;
}

std::vector<Row> ReadKeptGpt(const Table& table) {
  std::vector<Row> rows;
  for (const GptEntry& entry : table.entries) {
    if (!entry.has_id) break;
    const bool dropped =
        entry.type == kEfiSystem || entry.type == kMicrosoftReserved || entry.type == kHidden;
    if (!dropped) rows.push_back({entry.first, entry.last - entry.first + 1, 0});
  }
  return rows;
}

std::vector<std::pair<std::uint64_t, unsigned>> SystemNumbers(const Table& table) {
  std::vector<std::pair<std::uint64_t, unsigned>> numbers;
  const auto add = [&numbers](std::uint64_t first) {
    numbers.emplace_back(first * kSector, static_cast<unsigned>(numbers.size() + 1));
  };
  for (const BootRecord& record : table.records) {
    for (const MbrEntry& entry : record.entries) {
      if (SystemNumbersEntry(entry)) add(record.sector + entry.first);
    }
  }
  for (const GptEntry& entry : table.entries) {
    if (entry.type != Guid{}) add(entry.first);
  }
  return numbers;
}

bool AreGptPlaces(std::vector<Row> rows, std::uint64_t sectors) {
  constexpr std::uint64_t kFirstUsable = 34;
  constexpr std::uint64_t kBackupSectors = 33;
  SortByFirst(rows);
  std::uint64_t free = kFirstUsable;
  for (const Row& row : rows) {
    if (row.first < free || row.count == 0) return false;
    free = row.end();
  }
  return free <= sectors - kBackupSectors;
}

Run::Run(const Case& given) : disk(given), before_(given.table) {
  outcome.record_size = disk.sectors * kSector;
}

void Run::Report(int percent, int status) {
  outcome.events.emplace_back(kPercent, percent);
  outcome.events.emplace_back(kStatus, status);
}

bool Run::Shrink(std::uint64_t first, std::uint64_t mib) {
  outcome.events.emplace_back(kStatus, kShrinking);
  const auto volume =
      std::find_if(disk.volumes.begin(), disk.volumes.end(),
                   [first](const Volume& v) { return v.offset == first * kSector; });
  if (volume == disk.volumes.end() || !volume->ntfs || !volume->reachable) return false;
  return disk.table.style == Style::kMbr ? ShrinkMbr(first, mib * kMiB)
                                         : ShrinkGpt(first, mib * kMiB);
}

// Exactly the whole length leaves an entry with no sectors; more would wrap, and the system refuses
// what 32 bits do not hold.
bool Run::ShrinkMbr(std::uint64_t first, std::uint64_t sectors) {
  for (BootRecord& record : disk.table.records) {
    for (MbrEntry& entry : record.entries) {
      if (!SystemNumbersEntry(entry) || record.sector + entry.first != first) continue;
      if (entry.count < sectors) return false;
      entry.count -= static_cast<std::uint32_t>(sectors);
    }
  }
  return true;
}

// The system refuses a partition that ends before it begins. It packs the entries that have a type.
bool Run::ShrinkGpt(std::uint64_t first, std::uint64_t sectors) {
  Table shrunk = disk.table;
  std::erase_if(shrunk.entries, [](const GptEntry& entry) { return entry.type == Guid{}; });
  for (GptEntry& entry : shrunk.entries) {
    if (entry.first != first) continue;
    if (entry.last - entry.first + 1 <= sectors) return false;
    entry.last -= sectors;
  }
  disk.table = shrunk;
  return true;
}

void Run::NumberVolumes(const std::vector<Row>& rows) {
  for (Volume& volume : disk.volumes) {
    for (std::size_t i = 0; i < rows.size(); ++i) {
      if (rows[i].first * kSector != volume.offset) continue;
      volume.number = static_cast<unsigned>(i + 1);
    }
  }
}

// The table comes back as it was, but for the protective record of a GPT on a disk that diskpart
// finds too small for one: nothing tells it from a disk without a table then.
void Run::RollBack() {
  constexpr std::uint64_t kSmallestGptDisk = 128 * kMiB;
  outcome.events.emplace_back(kStatus, kRollingBack);
  Report(100, kRolledBack);
  const bool is_lost = before_.style == Style::kGpt && disk.sectors < kSmallestGptDisk;
  disk.table = is_lost ? Table{} : before_;
}

Outcome Run::End(bool succeeded) {
  if (succeeded) {
    Report(100, 7);
  } else {
    RollBack();
  }
  outcome.result = succeeded ? 0 : 1;
  return Finish();
}

Outcome Run::Finish() {
  outcome.table = disk.table;
  for (const Volume& volume : disk.volumes) outcome.numbers.push_back(volume.number);
  return outcome;
}

// Nothing is touched. Only the way to MBR tells of it.
Outcome Run::Refuse() {
  if (disk.table.style == Style::kGpt) {
    outcome.events = {{kStatus, kBackupFailed}, {kPercent, 100}};
  }
  return Finish();
}

Outcome Convert(const Case& before) {
  if (!CanBackUp(before)) return Run(before).Refuse();
  return before.table.style == Style::kGpt ? ConvertToMbr(before) : ConvertToGpt(before);
}

}  // namespace model
