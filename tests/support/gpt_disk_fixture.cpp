#include "support/gpt_disk_fixture.h"

namespace testing_support {

void GptDiskTest::SetUpDisk(const std::vector<GptEntry>& entries, bool with_record) {
  WriteGpt(disk_, entries);
  std::vector<std::uint64_t> offsets;
  for (const GptEntry& entry : entries) {
    offsets.push_back(entry.first_sector * 512);
    if (entry.unique == 0) continue;
    WriteNtfsBootSector(disk_, entry.first_sector, entry.last_sector - entry.first_sector + 1);
  }
  ShowDisk(offsets, with_record);
}

std::vector<GptEntry> GptDiskTest::SpacedEntries(std::size_t count) {
  constexpr std::uint64_t kSectorsPerMiB = 2048;
  std::vector<GptEntry> entries;
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint64_t first = kSectorsPerMiB + i * 17 * kSectorsPerMiB;
    entries.push_back(
        {kBasicDataGuid, first, first + 16 * kSectorsPerMiB - 1, static_cast<std::uint8_t>(i + 1)});
  }
  return entries;
}

velkora::GptPartitionList GptDiskTest::Rows(const std::vector<GptEntry>& entries) {
  velkora::GptPartitionList rows;
  for (const GptEntry& entry : entries) rows.push_back(MakeGptRow(entry));
  return rows;
}

}  // namespace testing_support
