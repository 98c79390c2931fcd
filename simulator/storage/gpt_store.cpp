#include "simulator/storage/gpt_store.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "simulator/storage/gpt_table.h"
#include "simulator/storage/sector_io.h"

namespace simulator {
namespace {

constexpr std::uint32_t kMinGptEntries = 128;

// The protective entry as the kernel writes it: to the end of what 32 bits can count, whatever the
// size of the disk.
constexpr MbrEntry kProtectiveEntry = {0,  {0x00, 0x02, 0x00}, kTypeProtective, {0xFF, 0xFF, 0xFF},
                                       1u, 0xFFFFFFFFu};

GUID ToGuid(const DiskGuid& on_disk) {
  GUID guid{};
  guid.Data1 = on_disk.data1;
  guid.Data2 = on_disk.data2;
  guid.Data3 = on_disk.data3;
  std::copy(on_disk.data4.begin(), on_disk.data4.end(), guid.Data4);
  return guid;
}

DiskGuid FromGuid(const GUID& guid) {
  DiskGuid on_disk{};
  on_disk.data1 = static_cast<std::uint32_t>(guid.Data1);
  on_disk.data2 = guid.Data2;
  on_disk.data3 = guid.Data3;
  std::copy(std::begin(guid.Data4), std::end(guid.Data4), on_disk.data4.begin());
  return on_disk;
}

bool IsZero(const GUID& guid) {
  const GUID zero{};
  return std::memcmp(&guid, &zero, sizeof guid) == 0;
}

PARTITION_INFORMATION_EX DecodeRow(const GptEntry& entry, std::uint32_t sector_size) {
  auto row = PARTITION_INFORMATION_EX();
  const std::uint64_t first = entry.first_sector;
  const std::uint64_t sectors = entry.last_sector - first + 1;
  row.PartitionStyle = PARTITION_STYLE_GPT;
  row.StartingOffset.QuadPart = static_cast<LONGLONG>(first * sector_size);
  row.PartitionLength.QuadPart = static_cast<LONGLONG>(sectors * sector_size);
  row.Gpt.PartitionType = ToGuid(entry.type);
  row.Gpt.PartitionId = ToGuid(entry.id);
  row.Gpt.Attributes = entry.attributes;
  for (std::size_t i = 0; i < kGptNameLength; ++i) {
    row.Gpt.Name[i] = static_cast<WCHAR>(std::uint16_t{entry.name[i]});
  }
  return row;
}

// Offset and length are taken as unsigned: a negative one is far outside every disk.
GptEntry EncodeRow(const PARTITION_INFORMATION_EX& row, std::uint32_t sector_size) {
  const auto start = static_cast<std::uint64_t>(row.StartingOffset.QuadPart);
  const auto length = static_cast<std::uint64_t>(row.PartitionLength.QuadPart);
  GptEntry entry{};
  entry.type = FromGuid(row.Gpt.PartitionType);
  entry.id = FromGuid(row.Gpt.PartitionId);
  entry.first_sector = start / sector_size;
  entry.last_sector = (start + length - 1) / sector_size;
  entry.attributes = static_cast<std::uint64_t>(row.Gpt.Attributes);
  for (std::size_t i = 0; i < kGptNameLength; ++i) {
    entry.name[i] = static_cast<std::uint16_t>(row.Gpt.Name[i]);
  }
  return entry;
}

// Believed: Windows refuses rows that overlap, and rows that are not wholly in the usable range.
bool AreAcceptable(std::vector<GptEntry> entries, const GptPlaces& places) {
  std::sort(entries.begin(), entries.end(),
            [](const GptEntry& a, const GptEntry& b) { return a.first_sector < b.first_sector; });
  std::uint64_t first_free = places.first_usable;
  for (const GptEntry& entry : entries) {
    if (entry.first_sector < first_free || entry.last_sector < entry.first_sector ||
        entry.last_sector > places.last_usable) {
      return false;
    }
    first_free = entry.last_sector + 1;
  }
  return true;
}

// At least 128 entries, and no sector of the array only partly used.
std::uint64_t RoundEntryCount(std::uint32_t wanted, std::uint32_t sector_size) {
  const std::uint64_t per_sector = sector_size / sizeof(GptEntry);
  const std::uint64_t count = std::max(wanted, kMinGptEntries);
  return (count + per_sector - 1) / per_sector * per_sector;
}

DWORD WriteProtectiveRecord(BlockDevice& device) {
  std::vector<std::byte> sector(device.sector_size());
  const DWORD error = ReadSectors(device, 0, sector);
  if (error != ERROR_SUCCESS) return error;
  const auto old = Load<BootRecord>(sector);
  BootRecord record{};
  if (old.boot_signature == kBootSignature) record.disk_signature = old.disk_signature;
  record.entries[0] = kProtectiveEntry;
  record.boot_signature = kBootSignature;
  std::fill(sector.begin(), sector.end(), std::byte{0});
  Store(record, sector);
  return WriteSectors(device, 0, sector);
}

}  // namespace

bool IsProtective(const BootRecord& record) {
  return record.boot_signature == kBootSignature && record.entries[0].type == kTypeProtective &&
         std::all_of(record.entries.begin() + 1, record.entries.end(),
                     [](const MbrEntry& entry) { return entry.type == kTypeUnused; });
}

DWORD ReadGptLayout(BlockDevice& device, DiskLayout& layout) {
  GptTable table;
  if (!FindGptTable(device, table)) return ERROR_DISK_CORRUPT;
  const std::uint64_t sector_size = device.sector_size();
  const std::uint64_t first = table.header.first_usable_sector;
  const std::uint64_t sectors = table.header.last_usable_sector - first + 1;
  layout = {};
  for (const GptEntry& entry : table.entries) {
    const PARTITION_INFORMATION_EX row = DecodeRow(entry, device.sector_size());
    if (IsZero(row.Gpt.PartitionType)) continue;
    layout.rows.push_back(row);
    layout.rows.back().PartitionNumber = static_cast<DWORD>(layout.rows.size());
  }
  layout.header.PartitionStyle = PARTITION_STYLE_GPT;
  layout.header.PartitionCount = static_cast<DWORD>(layout.rows.size());
  layout.header.Gpt.DiskId = ToGuid(table.header.disk_id);
  layout.header.Gpt.StartingUsableOffset.QuadPart = static_cast<LONGLONG>(first * sector_size);
  layout.header.Gpt.UsableLength.QuadPart = static_cast<LONGLONG>(sectors * sector_size);
  layout.header.Gpt.MaxPartitionCount = table.header.entry_count;
  return ERROR_SUCCESS;
}

DWORD CreateGpt(BlockDevice& device, const CREATE_DISK_GPT& request) {
  const std::uint64_t entries = RoundEntryCount(request.MaxPartitionCount, device.sector_size());
  if (entries > kMaxGptEntries) return ERROR_INVALID_PARAMETER;
  const auto entry_count = static_cast<std::uint32_t>(entries);
  if (!HasRoomForGpt(device, entry_count)) return ERROR_INVALID_PARAMETER;
  const DWORD error = WriteProtectiveRecord(device);
  if (error != ERROR_SUCCESS) return error;
  return WriteGptTables(device, FromGuid(request.DiskId), entry_count, {});
}

DWORD WriteGptLayout(BlockDevice& device, DiskLayout& layout) {
  GptTable present;
  if (!FindGptTable(device, present)) return ERROR_DISK_CORRUPT;
  const std::uint32_t entry_count = present.header.entry_count;
  if (layout.rows.size() > entry_count || !HasRoomForGpt(device, entry_count)) {
    return ERROR_INVALID_PARAMETER;
  }
  std::vector<GptEntry> entries;
  for (const PARTITION_INFORMATION_EX& row : layout.rows) {
    if (!IsZero(row.Gpt.PartitionType)) entries.push_back(EncodeRow(row, device.sector_size()));
  }
  if (!AreAcceptable(entries, PlaceGpt(device, entry_count))) return ERROR_INVALID_PARAMETER;
  const DWORD error = WriteGptTables(device, present.header.disk_id, entry_count, entries);
  if (error != ERROR_SUCCESS) return error;
  DWORD next = 1;
  for (PARTITION_INFORMATION_EX& row : layout.rows) {
    row.PartitionNumber = IsZero(row.Gpt.PartitionType) ? 0 : next++;
  }
  return ERROR_SUCCESS;
}

}  // namespace simulator
