#include "simulator/partition_volume.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>

#include "simulator/text.h"

namespace simulator {
namespace {

constexpr GUID kEfiSystemPartitionType = {
    0xC12A7328, 0xF81F, 0x11D2, {0xBA, 0x4B, 0x00, 0xA0, 0xC9, 0x3E, 0xC9, 0x3B}};
constexpr DWORD64 kNoDriveLetterAttribute = DWORD64{1} << 63;

constexpr BYTE kUnusedType = 0x00;
constexpr std::array<BYTE, 4> kContainerTypes = {0x05, 0x0F, 0x15, 0x1F};
// Believed: the types that get no letter by themselves. Hidden FAT and NTFS, diagnostics,
// recovery, EFI system partition.
constexpr std::array<BYTE, 10> kHiddenTypes = {0x11, 0x12, 0x14, 0x16, 0x17,
                                               0x1B, 0x1C, 0x1E, 0x27, 0xEF};

template <std::size_t kCount>
bool Contains(const std::array<BYTE, kCount>& types, BYTE type) {
  return std::find(types.begin(), types.end(), type) != types.end();
}

bool SameGuid(const GUID& left, const GUID& right) {
  return std::memcmp(&left, &right, sizeof(GUID)) == 0;
}

bool HasVolume(const PARTITION_INFORMATION_EX& row) {
  if (row.PartitionStyle == PARTITION_STYLE_GPT) {
    return !SameGuid(row.Gpt.PartitionType, kReservedPartitionType);
  }
  return row.Mbr.PartitionType != kUnusedType && !Contains(kContainerTypes, row.Mbr.PartitionType);
}

bool GetsLetterByItself(const PARTITION_INFORMATION_EX& row) {
  if (row.PartitionStyle == PARTITION_STYLE_GPT) {
    return !SameGuid(row.Gpt.PartitionType, kEfiSystemPartitionType) &&
           (row.Gpt.Attributes & kNoDriveLetterAttribute) == 0;
  }
  return !Contains(kHiddenTypes, row.Mbr.PartitionType);
}

}  // namespace

std::optional<Volume> VolumeOfPartition(std::uint32_t disk_number,
                                        const PARTITION_INFORMATION_EX& row) {
  if (!HasVolume(row)) return std::nullopt;
  const auto offset = static_cast<std::uint64_t>(row.StartingOffset.QuadPart);
  const auto length = static_cast<std::uint64_t>(row.PartitionLength.QuadPart);
  const bool gpt = row.PartitionStyle == PARTITION_STYLE_GPT;
  const GUID guid = gpt ? row.Gpt.PartitionId : row.Mbr.PartitionId;
  Volume volume;
  volume.path = "\\\\?\\Volume" + GuidText(guid);
  volume.identity = (gpt ? "gpt " : "mbr ") + GuidText(guid);
  volume.extents = {{disk_number, offset, length}};
  volume.partition_number = row.PartitionNumber;
  volume.automatic_letter = GetsLetterByItself(row);
  return volume;
}

}  // namespace simulator
