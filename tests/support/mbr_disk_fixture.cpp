#include "support/mbr_disk_fixture.h"

#include <cstring>
#include <ostream>

#include "convert/mbr_to_gpt.h"
#include "convert/partition_reader.h"
#include "convert/partition_types.h"
#include "simulator/disk.h"

namespace testing_support {

void MbrDiskTest::SetUpDisk(const std::vector<MbrEntry>& primaries,
                            const std::vector<MbrEntry>& logicals, bool with_record) {
  WriteMbr(disk_, primaries, logicals);
  std::vector<MbrEntry> entries = primaries;
  entries.insert(entries.end(), logicals.begin(), logicals.end());
  std::vector<std::uint64_t> offsets;
  for (const MbrEntry& entry : entries) {
    if (entry.type == 5 || entry.type == 15) continue;
    offsets.push_back(entry.first_sector * 512);
    if (offsets.back() >= disk_.device().size()) continue;
    WriteNtfsBootSector(disk_, entry.first_sector, entry.sector_count);
  }
  ShowDisk(offsets, with_record);
}

std::vector<MbrEntry> MbrDiskTest::SpacedEntries(std::size_t count) {
  std::vector<MbrEntry> entries;
  for (std::size_t i = 0; i < count; ++i) entries.push_back(Between(1 + 17 * i, 17 + 17 * i));
  return entries;
}

MbrEntry MbrDiskTest::Between(std::uint64_t first_mib, std::uint64_t end_mib) {
  return {7, first_mib * kMiB, (end_mib - first_mib) * kMiB};
}

std::vector<velkora::GptPartitionRow> MbrDiskTest::GptRowsOnDisk(std::size_t count) {
  std::vector<velkora::GptPartitionRow> rows(count);
  const std::vector<std::byte> bytes = ReadBytes(disk_, 1024, count * sizeof rows[0]);
  std::memcpy(rows.data(), bytes.data(), bytes.size());
  return rows;
}

std::vector<std::string> MbrDiskTest::Names(std::size_t count) {
  std::vector<std::string> names;
  for (const velkora::GptPartitionRow& row : GptRowsOnDisk(count)) {
    std::string name;
    for (std::size_t i = 0; i < sizeof row.name && row.name[i] != 0; i += 2) {
      name.push_back(static_cast<char>(row.name[i]));
    }
    names.push_back(name);
  }
  return names;
}

void PrintTo(const RowPlace& place, std::ostream* out) {
  *out << place.first_sector << "+" << place.sector_count;
}

std::vector<RowPlace> PlacesOf(const velkora::MbrPartitionList& rows) {
  std::vector<RowPlace> places;
  for (const velkora::MbrPartitionRow& row : rows) {
    places.push_back({row.first_sector, row.sector_count});
  }
  return places;
}

std::vector<RowPlace> PlacesOf(const std::vector<velkora::GptPartitionRow>& rows) {
  std::vector<RowPlace> places;
  for (const velkora::GptPartitionRow& row : rows) {
    const bool unused = row.last_sector == 0;
    places.push_back({row.first_sector, unused ? 0 : row.last_sector - row.first_sector + 1});
  }
  return places;
}

velkora::MbrPartitionList MbrRowsOf(const std::vector<MbrEntry>& entries) {
  velkora::MbrPartitionList rows;
  for (const MbrEntry& entry : entries) {
    velkora::MbrPartitionRow row{};
    row.type = entry.type;
    row.first_sector = static_cast<std::uint32_t>(entry.first_sector);
    row.sector_count = static_cast<std::uint32_t>(entry.sector_count);
    rows.push_back(row);
  }
  return rows;
}

}  // namespace testing_support
