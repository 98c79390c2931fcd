// MBR to GPT: one flat list, with a new EFI system partition on a system disk.
#include <algorithm>
#include <optional>

#include "conversion/model/run.h"

namespace model {
namespace {

constexpr std::uint64_t kBackupSectors = 33;
constexpr std::uint64_t kEfiSectors = 300 * kMiB;
constexpr std::uint64_t kLongEnoughToShrink = 1024 * kMiB;
constexpr std::uint8_t kHiddenType = 0xFF;

// Where the EFI system partition comes to lie, and its place in the list, from 1.
struct EfiPlace {
  std::uint64_t first = 0;
  std::size_t number = 0;
};

void ReadSorted(const Run& run, std::vector<Row>& rows) {
  rows = ReadMbr(run.disk.table);
  SortByFirst(rows);
}

bool EnsureTailRoom(Run& run, std::vector<Row>& rows) {
  if (rows.empty() || rows.back().end() + kBackupSectors <= run.disk.sectors) return true;
  if (!run.Shrink(rows.back().first, 1)) return false;
  ReadSorted(run, rows);
  return true;
}

std::optional<EfiPlace> FindGap(const std::vector<Row>& rows, std::uint64_t disk_sectors) {
  std::uint64_t candidate = kMiB;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    if (rows[i].first > candidate + kEfiSectors) return EfiPlace{candidate, i + 1};
    candidate = rows[i].end();
  }
  // The end of the last partition counts in 32 bits.
  const std::uint64_t end = rows.back().end() & 0xFFFFFFFF;
  if (end + kEfiSectors < disk_sectors) return EfiPlace{end, rows.size() + 1};
  return std::nullopt;
}

std::optional<EfiPlace> ShrinkForEfi(Run& run, const std::vector<Row>& rows) {
  for (std::size_t i = rows.size(); i-- > 0;) {
    if (rows[i].count <= kLongEnoughToShrink) continue;
    if (!run.Shrink(rows[i].first, 302)) return std::nullopt;
    return EfiPlace{rows[i].end() - kEfiSectors, i + 2};
  }
  return std::nullopt;
}

std::optional<EfiPlace> EnsureEfiRoom(Run& run, std::vector<Row>& rows) {
  auto place = FindGap(rows, run.disk.sectors);
  if (!place) place = ShrinkForEfi(run, rows);
  if (!place) return std::nullopt;
  ReadSorted(run, rows);
  rows.push_back({place->first & 0xFFFFFFFF, kEfiSectors, 0});
  SortByFirst(rows);
  return place;
}

Table BuildTable(const std::vector<Row>& rows, std::size_t efi_number) {
  Table table{Style::kGpt, {}, {}};
  for (std::size_t i = 0; i < rows.size(); ++i) {
    GptEntry entry{kBasicData, true, rows[i].first, rows[i].end() - 1, 0, "Basic Data Partition"};
    if (i + 1 == efi_number) entry.type = kEfiSystem;
    if (rows[i].type == kHiddenType) {
      entry.type = kHidden;
      entry.attributes = 0xC000000000000000;
      entry.name = "Hidden Partition";
    }
    table.entries.push_back(entry);
  }
  return table;
}

bool HasSystemLetter(const std::vector<Volume>& volumes) {
  return std::any_of(volumes.begin(), volumes.end(),
                     [](const Volume& volume) { return volume.system && volume.has_letter; });
}

}  // namespace

Outcome ConvertToGpt(const Case& before) {
  Run run(before);
  std::vector<Row> rows;
  ReadSorted(run, rows);
  run.Report(0, 1);
  const bool has_tail_room = EnsureTailRoom(run, rows);
  EfiPlace efi;
  if (run.disk.system_disk) {
    const auto place = has_tail_room ? EnsureEfiRoom(run, rows) : std::nullopt;
    if (!place) return run.End(false);
    efi = *place;
  }
  run.Report(20, 2);
  run.Report(40, 3);
  run.disk.table = {Style::kGpt, {}, {}};
  if (rows.empty()) return run.End(true);
  run.Report(60, 4);
  if (!AreGptPlaces(rows, run.disk.sectors)) return run.End(false);
  run.disk.table = BuildTable(rows, efi.number);
  run.NumberVolumes(rows);
  if (!run.disk.system_disk) return run.End(true);
  run.Report(80, 6);
  return run.End(HasSystemLetter(run.disk.volumes));
}

}  // namespace model
