#include "backup/ntfs_metadata.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "backup/raw_disk.h"
#include "backup/return_codes.h"
#include "logging/log.h"
#include "platform/guard.h"
#include "platform/win32.h"
#include "tools/little_endian.h"

namespace velkora {
namespace {

constexpr std::size_t kBootSectorBytes = 512;
constexpr std::size_t kBytesPerSectorOffset = 11;
constexpr std::size_t kSectorsPerClusterOffset = 13;
constexpr std::size_t kMftClusterOffset = 48;

constexpr std::size_t kFirstRecords = 16;
constexpr std::size_t kExtendRecord = 11;  // the directory of the younger system files

constexpr std::uint64_t kFirstAttributeOffset = 20;
constexpr std::uint64_t kAttributeLengthOffset = 4;
constexpr std::uint64_t kNonResidentOffset = 8;
constexpr std::uint64_t kRunListOffset = 32;
constexpr std::uint8_t kTypeData = 0x80;
constexpr std::uint8_t kTypeIndexRoot = 0x90;
constexpr std::uint8_t kTypeIndexAllocation = 0xA0;
constexpr std::uint8_t kTypeEnd = 0xFF;

constexpr std::uint64_t kFirstIndexEntry = 64;
constexpr std::uint64_t kIndexEntryLengthOffset = 8;
constexpr std::uint32_t kNoRecord = 0xFFFFFFFF;

constexpr std::uint64_t kLongestRun = 0x400000;  // bytes: 4 MiB

std::int32_t Fail(const char* function, const char* what) {
  LogEx(kLogModule, kLogError, "[%s] %s: %s %d", kBackupTag, function, what,
        static_cast<int>(win32::GetLastError()));
  return kNtfsUnreadable;
}

std::int64_t LoadRunField(const MftRecord& record, std::uint64_t position, std::size_t length) {
  std::array<std::uint8_t, 15> field{};
  for (std::size_t i = 0; i < length; ++i) {
    field.at(i) = record.Load<std::uint8_t>(position + i);
  }
  return DecodeRunField(std::span(field).first(length));
}

// The first run of the attribute at `position`, and only that, whatever the list holds behind it.
std::int32_t SelectFirstRun(const MftRecord& record, std::uint64_t position, HANDLE disk,
                            std::uint64_t volume_offset, std::uint64_t cluster_bytes,
                            BlockMap& blocks) {
  const std::uint64_t run = position + record.Load<std::uint16_t>(position + kRunListOffset);
  const auto sizes = record.Load<std::uint8_t>(run);
  const std::size_t length_size = sizes & 0xF;
  const auto length = static_cast<std::uint64_t>(LoadRunField(record, run + 1, length_size));
  const auto cluster =
      static_cast<std::uint64_t>(LoadRunField(record, run + 1 + length_size, sizes >> 4));
  // A run without an offset, as a sparse one, lies at the start of the volume: the boot sector's
  // block takes its size.
  const std::uint64_t place = cluster * cluster_bytes + volume_offset;
  const std::uint64_t capped = std::min(length * cluster_bytes, kLongestRun);
  if (ReadAllAt(disk, place, SelectBlock(blocks, place, capped))) return kBackupDone;
  return Fail("ParseNtfsMftRecord", "read ntfs meta error");
}

void CollectReferences(const MftRecord& record, std::uint64_t position, std::uint32_t length,
                       std::vector<std::uint64_t>& references) {
  for (std::uint64_t entry = position + kFirstIndexEntry; entry < position + length;) {
    const auto number = record.Load<std::uint32_t>(entry);
    if (number == 0 || number == kNoRecord) return;
    references.push_back(number);
    const auto entry_length = record.Load<std::uint16_t>(entry + kIndexEntryLengthOffset);
    if (entry_length == 0) return;
    entry += entry_length;
  }
}

}  // namespace

std::int64_t DecodeRunField(std::span<const std::uint8_t> field) {
  std::int64_t value = 0;
  unsigned shift = 0;
  for (const std::uint8_t byte : field) {
    value += static_cast<std::int32_t>(std::uint32_t{byte} << (shift % 32));
    shift += 8;
  }
  return value;
}

void MftRecord::Copy(std::uint64_t position, void* value, std::size_t length) const {
  const std::uint64_t begin = start_ + position;
  if (begin > block_.size() || block_.size() - begin < length) {
    win32::RaiseFault(EXCEPTION_ACCESS_VIOLATION);
  }
  std::memcpy(value, block_.data() + begin, length);
}

std::int32_t ParseNtfsMftRecord(const MftRecord& record, bool collect, HANDLE disk,
                                std::uint64_t volume_offset, std::uint64_t cluster_bytes,
                                BlockMap& blocks, std::vector<std::uint64_t>& references) {
  std::uint64_t position = record.Load<std::uint16_t>(kFirstAttributeOffset);
  while (position < kMftRecordBytes) {
    const auto type = record.Load<std::uint8_t>(position);
    if (type == kTypeEnd) break;
    const auto length = record.Load<std::uint32_t>(position + kAttributeLengthOffset);
    if (length == 0) break;
    if ((type == kTypeData || type == kTypeIndexAllocation) &&
        record.Load<std::uint8_t>(position + kNonResidentOffset) == 1) {
      const std::int32_t result =
          SelectFirstRun(record, position, disk, volume_offset, cluster_bytes, blocks);
      if (result != kBackupDone) return result;
    }
    if (collect && type == kTypeIndexRoot) CollectReferences(record, position, length, references);
    position += length;
  }
  return kBackupDone;
}

std::int32_t ParseNtfsVolume(HANDLE disk, std::uint64_t offset,
                             std::span<const std::byte> boot_sector, BlockMap& blocks) {
  SelectBytes(blocks, offset, boot_sector.first(kBootSectorBytes));
  const std::uint64_t cluster_bytes =
      std::uint64_t{LoadField<std::uint8_t>(boot_sector, kSectorsPerClusterOffset)} *
      LoadField<std::uint16_t>(boot_sector, kBytesPerSectorOffset);
  const std::uint64_t mft =
      LoadField<std::uint64_t>(boot_sector, kMftClusterOffset) * cluster_bytes + offset;
  std::vector<std::byte>& records = SelectBlock(blocks, mft, kFirstRecords * kMftRecordBytes);
  if (!ReadAllAt(disk, mft, records)) return Fail("ParseNtfsVolume", "read ntfs mft error");

  std::vector<std::uint64_t> references;
  for (std::size_t i = 1; i < kFirstRecords; ++i) {
    // A run that cannot be read is in the log and fails nothing.
    ParseNtfsMftRecord(MftRecord(records, i * kMftRecordBytes), i == kExtendRecord, disk, offset,
                       cluster_bytes, blocks, references);
  }
  for (const std::uint64_t number : references) {
    const std::uint64_t place = mft + number * kMftRecordBytes;
    std::vector<std::byte>& record = SelectBlock(blocks, place, kMftRecordBytes);
    if (!ReadAllAt(disk, place, record)) return Fail("ParseNtfsVolume", "read ntfs tmp error");
    std::vector<std::uint64_t> none;
    ParseNtfsMftRecord(MftRecord(record, 0), /*collect=*/false, disk, offset, cluster_bytes, blocks,
                       none);
  }
  return kBackupDone;
}

}  // namespace velkora
