#include "conformance/disk/drive_layout.h"

#include <algorithm>
#include <utility>

namespace conformance {
namespace {

constexpr std::size_t kHeaderLength = offsetof(DRIVE_LAYOUT_INFORMATION_EX, PartitionEntry);
constexpr std::size_t kRowLength = sizeof(PARTITION_INFORMATION_EX);
constexpr std::size_t kRowsOfATable = 4;

PARTITION_INFORMATION_EX Row(PARTITION_STYLE style, std::uint64_t first, std::uint64_t count) {
  auto row = PARTITION_INFORMATION_EX();
  row.PartitionStyle = style;
  row.StartingOffset.QuadPart = static_cast<LONGLONG>(first * kSector);
  row.PartitionLength.QuadPart = static_cast<LONGLONG>(count * kSector);
  row.RewritePartition = TRUE;
  return row;
}

DriveLayout Layout(PARTITION_STYLE style, std::vector<PARTITION_INFORMATION_EX> rows) {
  DriveLayout layout;
  layout.header.PartitionStyle = static_cast<DWORD>(style);
  layout.header.PartitionCount = static_cast<DWORD>(rows.size());
  layout.rows = std::move(rows);
  return layout;
}

}  // namespace

bool SameGuid(const GUID& left, const GUID& right) {
  return std::memcmp(&left, &right, sizeof(GUID)) == 0;
}

std::uint64_t OffsetOf(const PARTITION_INFORMATION_EX& row) {
  return static_cast<std::uint64_t>(row.StartingOffset.QuadPart);
}

std::uint64_t LengthOf(const PARTITION_INFORMATION_EX& row) {
  return static_cast<std::uint64_t>(row.PartitionLength.QuadPart);
}

Bytes ToBytes(const DriveLayout& layout) {
  Bytes bytes(std::max(sizeof(DRIVE_LAYOUT_INFORMATION_EX),
                       kHeaderLength + layout.rows.size() * kRowLength));
  std::memcpy(bytes.data(), &layout.header, kHeaderLength);
  for (std::size_t i = 0; i < layout.rows.size(); ++i) {
    std::memcpy(bytes.data() + kHeaderLength + i * kRowLength, &layout.rows[i], kRowLength);
  }
  return bytes;
}

DriveLayout ToLayout(const Bytes& bytes) {
  DriveLayout layout;
  layout.header = LoadAt<DRIVE_LAYOUT_INFORMATION_EX>(bytes);
  for (std::size_t i = 0; i < layout.header.PartitionCount; ++i) {
    const std::size_t offset = kHeaderLength + i * kRowLength;
    if (offset + kRowLength > bytes.size()) break;
    layout.rows.push_back(LoadAt<PARTITION_INFORMATION_EX>(bytes, offset));
  }
  return layout;
}

PARTITION_INFORMATION_EX UnusedMbrRow() {
  return Row(PARTITION_STYLE_MBR, 0, 0);
}

PARTITION_INFORMATION_EX MbrRow(BYTE type, std::uint64_t first, std::uint64_t count) {
  PARTITION_INFORMATION_EX row = Row(PARTITION_STYLE_MBR, first, count);
  row.Mbr.PartitionType = type;
  row.Mbr.RecognizedPartition = TRUE;
  row.Mbr.HiddenSectors = static_cast<DWORD>(first);
  return row;
}

PARTITION_INFORMATION_EX GptRow(const GUID& type, BYTE unique, std::uint64_t first,
                                std::uint64_t count) {
  PARTITION_INFORMATION_EX row = Row(PARTITION_STYLE_GPT, first, count);
  row.Gpt.PartitionType = type;
  row.Gpt.PartitionId = {0x5EA11D15, 0x1111, 0x4222, {0x83, 0, 0, 0, 0, 0, 0, unique}};
  return row;
}

DriveLayout MbrLayout(std::vector<PARTITION_INFORMATION_EX> rows) {
  while (rows.empty() || rows.size() % kRowsOfATable != 0) rows.push_back(UnusedMbrRow());
  DriveLayout layout = Layout(PARTITION_STYLE_MBR, std::move(rows));
  layout.header.Mbr.Signature = kSignature;
  return layout;
}

DriveLayout GptLayout(std::vector<PARTITION_INFORMATION_EX> rows) {
  return Layout(PARTITION_STYLE_GPT, std::move(rows));
}

DriveLayout LayoutWithLogicals() {
  constexpr std::uint64_t kExtended = 100 * kSectorsPerMiB;
  constexpr std::uint64_t kSecond = 150 * kSectorsPerMiB;  // its boot record
  constexpr std::uint64_t kGap = kSectorsPerMiB;
  constexpr std::uint64_t kLength = 20 * kSectorsPerMiB;
  return MbrLayout({MbrRow(7, kSectorsPerMiB, 50 * kSectorsPerMiB),
                    MbrRow(0x0F, kExtended, 100 * kSectorsPerMiB), UnusedMbrRow(), UnusedMbrRow(),
                    MbrRow(7, kExtended + kGap, kLength), MbrRow(5, kSecond, kGap + kLength),
                    UnusedMbrRow(), UnusedMbrRow(), MbrRow(7, kSecond + kGap, kLength)});
}

}  // namespace conformance
