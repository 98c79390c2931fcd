#include "convert/layout_builder.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "convert/partition_types.h"
#include "frame/global_context.h"
#include "logging/log.h"
#include "platform/win32.h"

namespace velkora {
namespace {

// With four rows or more, the fourth place of the first table is the container.
constexpr std::size_t kPrimaryCount = 3;
constexpr std::size_t kRowsPerTable = 4;
constexpr std::uint8_t kTypeData = 7;
constexpr std::uint8_t kTypeHidden = 0xFF;
constexpr std::uint8_t kTypeLink = 5;
constexpr std::uint8_t kTypeContainer = 15;

LONGLONG SectorsToBytes(std::uint64_t sectors) {
  return static_cast<LONGLONG>(sectors << kSectorShift);
}

GUID DrawMbrPartitionId() {
  GUID id{};
  if (win32::CoCreateGuid(&id) != S_OK) {
    LogEx(kLogModule, kLogError, "CoCreateGuid Error: %d", static_cast<int>(win32::GetLastError()));
  }
  return id;
}

// Zero in every byte, also in those of the union that the entry's style does not use.
PARTITION_INFORMATION_EX MakeZeroEntry() {
  PARTITION_INFORMATION_EX entry;
  std::memset(&entry, 0, sizeof entry);
  return entry;
}

// HiddenSectors stays 0: the platform computes it.
PARTITION_INFORMATION_EX MakeMbrEntry(std::uint64_t first_sector, std::uint64_t sector_count) {
  PARTITION_INFORMATION_EX entry = MakeZeroEntry();
  entry.PartitionStyle = PARTITION_STYLE_MBR;
  entry.StartingOffset.QuadPart = SectorsToBytes(first_sector);
  entry.PartitionLength.QuadPart = SectorsToBytes(sector_count);
  entry.RewritePartition = TRUE;
  entry.Mbr.PartitionId = DrawMbrPartitionId();
  return entry;
}

// One group of four for each row from the fourth on. Each link runs to the end of the disk,
// whatever lies behind.
bool FillLogicalGroups(const GptPartitionList& rows, std::uint64_t last_sector,
                       LayoutBuffer& layout) {
  std::size_t next = kRowsPerTable;
  // Empty entries carry the place of the next logical partition's boot record; in the last group
  // there is none, and they keep the value of the group before.
  std::uint64_t boot_record = rows[kPrimaryCount].first_sector - kBootRecordRoom;
  for (std::size_t row = kPrimaryCount; row < rows.size(); ++row) {
    if (StopRequested()) return false;
    layout.SetRow(next++, MakeMbrPartitionEntry(rows[row], static_cast<std::uint32_t>(row)));
    if (row + 1 < rows.size()) {
      layout.SetRow(next++,
                    MakeExtendedMbrEntry(rows[row].last_sector + 1, last_sector, kTypeLink));
      boot_record = rows[row + 1].first_sector - kBootRecordRoom;
    } else {
      layout.SetRow(next++, MakeEmptyMbrEntry(boot_record));
    }
    layout.SetRow(next++, MakeEmptyMbrEntry(boot_record));
    layout.SetRow(next++, MakeEmptyMbrEntry(boot_record));
  }
  return true;
}

// 4n - 8 entries for more than three rows, kept to 16 bits.
std::size_t MbrEntryCount(std::size_t row_count) {
  if (row_count <= kPrimaryCount) return kRowsPerTable;
  return static_cast<std::uint16_t>(kRowsPerTable * row_count - 8);
}

constexpr GUID kEfiSystemType = {
    0xC12A7328, 0xF81F, 0x11D2, {0xBA, 0x4B, 0x00, 0xA0, 0xC9, 0x3E, 0xC9, 0x3B}};
constexpr GUID kBasicDataType = {
    0xEBD0A0A2, 0xB9E5, 0x4433, {0x87, 0xC0, 0x68, 0xB6, 0xB7, 0x26, 0x99, 0xC7}};
constexpr GUID kHiddenType = {
    0xFFFFFFFF, 0xFFFF, 0xFFFF, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}};
constexpr DWORD64 kHiddenAttributes = 0xC000000000000000;  // bits 62 (hidden) and 63 (no letter)

void SetName(PARTITION_INFORMATION_EX& entry, std::basic_string_view<WCHAR> name) {
  std::copy(name.begin(), name.end(), entry.Gpt.Name);
}

PARTITION_INFORMATION_EX MakeGptEntry(const MbrPartitionRow& row, std::uint32_t number,
                                      bool is_efi) {
  PARTITION_INFORMATION_EX entry = MakeZeroEntry();
  entry.PartitionStyle = PARTITION_STYLE_GPT;
  entry.StartingOffset.QuadPart = SectorsToBytes(row.first_sector);
  entry.PartitionLength.QuadPart = SectorsToBytes(row.sector_count);
  entry.PartitionNumber = number;
  entry.RewritePartition = TRUE;
  if (row.type == kTypeHidden) {
    entry.Gpt.PartitionType = kHiddenType;
    entry.Gpt.Attributes = kHiddenAttributes;
    SetName(entry, WIDE("Hidden Partition"));
  } else {
    entry.Gpt.PartitionType = is_efi ? kEfiSystemType : kBasicDataType;
    // The EFI system partition is named like the others on purpose.
    SetName(entry, WIDE("Basic Data Partition"));
  }
  return entry;
}

CREATE_DISK MakeZeroRequest() {
  CREATE_DISK request;
  std::memset(&request, 0, sizeof request);
  return request;
}

}  // namespace

CREATE_DISK MakeMbrCreateDisk(std::uint32_t signature) {
  CREATE_DISK request = MakeZeroRequest();
  request.PartitionStyle = PARTITION_STYLE_MBR;
  request.Mbr.Signature = signature;
  return request;
}

CREATE_DISK MakeGptCreateDisk(const GUID& disk_id, std::size_t row_count) {
  CREATE_DISK request = MakeZeroRequest();
  request.PartitionStyle = PARTITION_STYLE_GPT;
  request.Gpt.DiskId = disk_id;
  // The rows there are, where the layout that follows says 128: the platform takes at least 128.
  request.Gpt.MaxPartitionCount = static_cast<DWORD>(row_count);
  return request;
}

// Entries in order: the rows as they come with up to three, filled up with empty ones; else rows 0
// to 2, the container, then for each further row its group of four.
std::optional<LayoutBuffer> BuildMbrLayout(const GptPartitionList& rows, std::uint64_t disk_size,
                                           std::uint32_t signature) {
  const std::size_t entry_count = MbrEntryCount(rows.size());
  LayoutBuffer layout(entry_count);
  layout.header().PartitionStyle = PARTITION_STYLE_MBR;
  layout.header().PartitionCount = static_cast<DWORD>(entry_count);
  layout.header().Mbr.Signature = signature;
  const std::size_t primaries = std::min(rows.size(), kPrimaryCount);
  for (std::size_t i = 0; i < primaries; ++i) {
    layout.SetRow(i, MakeMbrPartitionEntry(rows[i], static_cast<std::uint32_t>(i)));
  }
  if (rows.size() <= kPrimaryCount) {
    for (std::size_t i = primaries; i < kRowsPerTable; ++i) {
      layout.SetRow(i, MakeEmptyMbrEntry(0));
    }
    return layout;
  }
  const std::uint64_t last_sector = disk_size / kSectorBytes - 1;
  layout.SetRow(kPrimaryCount, MakeExtendedMbrEntry(rows[kPrimaryCount - 1].last_sector + 1,
                                                    last_sector, kTypeContainer));
  if (!FillLogicalGroups(rows, last_sector, layout)) return std::nullopt;
  return layout;
}

std::optional<LayoutBuffer> BuildGptLayout(const MbrPartitionList& rows, std::uint32_t efi_position,
                                           const GUID& disk_id) {
  LayoutBuffer layout(rows.size());
  layout.header().PartitionStyle = PARTITION_STYLE_GPT;
  layout.header().PartitionCount = static_cast<DWORD>(rows.size());
  layout.header().Gpt.DiskId = disk_id;
  layout.header().Gpt.MaxPartitionCount = 128;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const auto number = static_cast<std::uint32_t>(i + 1);
    PARTITION_INFORMATION_EX entry = MakeGptEntry(rows[i], number, number == efi_position);
    if (win32::CoCreateGuid(&entry.Gpt.PartitionId) != S_OK) {
      LogEx(kLogModule, kLogError, "CoCreateGuid error: %d",
            static_cast<int>(win32::GetLastError()));
      return std::nullopt;
    }
    layout.SetRow(i, entry);
  }
  return layout;
}

PARTITION_INFORMATION_EX MakeMbrPartitionEntry(const GptPartitionRow& row, std::uint32_t index) {
  PARTITION_INFORMATION_EX entry =
      MakeMbrEntry(row.first_sector, row.last_sector - row.first_sector + 1);
  entry.PartitionNumber = index + 1;
  entry.Mbr.PartitionType = IsDroppedOnTheWayToMbr(row) ? kTypeHidden : kTypeData;
  entry.Mbr.RecognizedPartition = TRUE;
  return entry;
}

PARTITION_INFORMATION_EX MakeExtendedMbrEntry(std::uint64_t first_sector, std::uint64_t last_sector,
                                              std::uint8_t type) {
  PARTITION_INFORMATION_EX entry = MakeMbrEntry(first_sector, last_sector - first_sector + 1);
  entry.Mbr.PartitionType = type;
  return entry;
}

PARTITION_INFORMATION_EX MakeEmptyMbrEntry(std::uint64_t sector) {
  return MakeMbrEntry(sector, 0);
}

void LogDiskLayout(const LayoutBuffer& layout) {
  const DRIVE_LAYOUT_INFORMATION_EX& header = layout.header();
  LogEx(kLogModule, kLogProgress, "----------disklayout----------");
  LogEx(kLogModule, kLogProgress, "[disk] PartitionCount: %d, PartitionStyle: %d",
        static_cast<int>(header.PartitionCount), static_cast<int>(header.PartitionStyle));
  for (DWORD i = 0; i < header.PartitionCount; ++i) {
    const PARTITION_INFORMATION_EX entry = layout.row(i);
    LogEx(kLogModule, kLogProgress,
          "[part] PartitionNumber: %d, PartitionStyle: %d, RewritePartition: %d, StartingOffset: "
          "%llu, PartitionLength: %llu",
          static_cast<int>(entry.PartitionNumber), static_cast<int>(entry.PartitionStyle),
          static_cast<int>(entry.RewritePartition),
          static_cast<unsigned long long>(entry.StartingOffset.QuadPart),
          static_cast<unsigned long long>(entry.PartitionLength.QuadPart));
  }
  LogEx(kLogModule, kLogProgress, "------------------------------");
}

}  // namespace velkora
