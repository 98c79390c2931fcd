#include "simulator/commands/diskpart_layout.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <limits>
#include <utility>

#include "simulator/commands/diskpart_facts.h"

namespace simulator::diskpart {
namespace {

constexpr std::size_t kRowsOfOneTable = 4;
constexpr std::uint64_t kFarthest = std::numeric_limits<std::uint64_t>::max();

// Both saturate: offsets come from the disk and may be anything.
std::uint64_t SumOrFarthest(std::uint64_t left, std::uint64_t right) {
  return left > kFarthest - right ? kFarthest : left + right;
}

std::uint64_t AlignedUp(std::uint64_t offset) {
  const std::uint64_t sum = SumOrFarthest(offset, kPartitionAlignment - 1);
  return sum == kFarthest ? kFarthest : sum / kPartitionAlignment * kPartitionAlignment;
}

// Start and end of each partition, by start.
std::vector<std::pair<std::uint64_t, std::uint64_t>> TakenRanges(const DiskLayout& layout) {
  std::vector<std::pair<std::uint64_t, std::uint64_t>> ranges;
  for (const PARTITION_INFORMATION_EX& row : layout.rows) {
    const auto start = static_cast<std::uint64_t>(row.StartingOffset.QuadPart);
    const auto length = static_cast<std::uint64_t>(row.PartitionLength.QuadPart);
    ranges.emplace_back(start, SumOrFarthest(start, length));
  }
  std::sort(ranges.begin(), ranges.end());
  return ranges;
}

}  // namespace

bool IsSameGuid(const GUID& left, const GUID& right) {
  return std::memcmp(&left, &right, sizeof(GUID)) == 0;
}

bool IsLogical(const DiskLayout& layout, std::size_t index) {
  return layout.header.PartitionStyle == PARTITION_STYLE_MBR && index >= kRowsOfOneTable;
}

bool IsEmpty(const DiskLayout& layout) {
  const bool is_gpt = layout.header.PartitionStyle == PARTITION_STYLE_GPT;
  return std::all_of(layout.rows.begin(), layout.rows.end(), [is_gpt](const auto& row) {
    return is_gpt ? IsSameGuid(row.Gpt.PartitionType, kReservedPartitionType)
                  : row.Mbr.PartitionType == 0;
  });
}

PARTITION_INFORMATION_EX MakeGptRow(const GUID& type, const GUID& id, std::uint64_t offset,
                                    std::uint64_t length) {
  const WideString name = IsSameGuid(type, kReservedPartitionType)
                              ? WideString(WIDE("Microsoft reserved partition"))
                              : WideString(WIDE("EFI system partition"));
  PARTITION_INFORMATION_EX row{};
  row.PartitionStyle = PARTITION_STYLE_GPT;
  row.StartingOffset.QuadPart = static_cast<LONGLONG>(offset);
  row.PartitionLength.QuadPart = static_cast<LONGLONG>(length);
  row.RewritePartition = TRUE;
  row.Gpt.PartitionType = type;
  row.Gpt.PartitionId = id;
  std::copy(name.begin(), name.end(), std::begin(row.Gpt.Name));
  return row;
}

std::optional<std::uint64_t> FindFreeRegion(const DiskLayout& layout, std::uint64_t length) {
  const auto& gpt = layout.header.Gpt;
  const auto usable_start = static_cast<std::uint64_t>(gpt.StartingUsableOffset.QuadPart);
  const std::uint64_t usable_end =
      SumOrFarthest(usable_start, static_cast<std::uint64_t>(gpt.UsableLength.QuadPart));

  std::uint64_t candidate = AlignedUp(usable_start);
  for (const auto& [start, end] : TakenRanges(layout)) {
    if (start >= candidate && start - candidate >= length) break;
    candidate = std::max(candidate, AlignedUp(end));
  }
  const bool fits = candidate <= usable_end && usable_end - candidate >= length;
  return fits ? std::optional(candidate) : std::nullopt;
}

}  // namespace simulator::diskpart
