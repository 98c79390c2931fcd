#include "support/gpt_disk_test.h"

#include "platform/win32.h"

namespace testing_support {

GptDiskTest::GptDiskTest() : disk_(NewDisk(1, kDiskSize)), record_(DiskType::kGpt, 1, kDiskSize) {
  converter_.disk_info = &record_.disk();
  converter_.callback = &RecordEvent;
}

void GptDiskTest::SetUpDisk(const std::vector<GptEntry>& entries, bool with_record) {
  WriteGpt(disk_, entries);
  for (const GptEntry& entry : entries) {
    if (entry.unique == 0) continue;
    WriteNtfsBootSector(disk_, entry.first_sector, entry.last_sector - entry.first_sector + 1);
  }
  machine_.UpdateProperties(disk_);
  for (const GptEntry& entry : entries) {
    const simulator::Volume* volume = machine_.FindVolumeAt(1, entry.first_sector * 512);
    if (!with_record || volume == nullptr) continue;
    SetText(record_.Add(entry.first_sector * 512).volume_id, volume->path);
  }
  converter_.disk_handle =
      win32::CreateFileA(record_.disk().id, GENERIC_READ | GENERIC_WRITE,
                         FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
  machine_.calls().Clear();
}

std::vector<GptEntry> GptDiskTest::SpacedEntries(std::size_t count) {
  constexpr std::uint64_t kMiB = 2048;  // in sectors
  std::vector<GptEntry> entries;
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint64_t first = kMiB + i * 17 * kMiB;
    entries.push_back(
        {kBasicDataGuid, first, first + 16 * kMiB - 1, static_cast<std::uint8_t>(i + 1)});
  }
  return entries;
}

velkora::GptPartitionList GptDiskTest::Rows(const std::vector<GptEntry>& entries) {
  velkora::GptPartitionList rows;
  for (const GptEntry& entry : entries) rows.push_back(MakeGptRow(entry));
  return rows;
}

std::vector<std::string> GptDiskTest::DeviceSteps() {
  std::vector<std::string> steps;
  for (const simulator::Call& call : machine_.calls().calls()) {
    if (call.name == "DeviceIoControl" || call.name == "command") steps.push_back(call.detail);
  }
  return steps;
}

std::string GptDiskTest::LastLine() const {
  return log_.empty() ? "" : AllLines().back();
}

}  // namespace testing_support
