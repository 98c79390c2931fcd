// How the clusters of a FAT32 chain are moved while the volume is in use.
#include <algorithm>
#include <numeric>
#include <span>

#include "simulator/storage/fat32_clusters.h"

namespace simulator {
namespace {

constexpr std::size_t kMostBytesAtOnce = 65536;
constexpr std::uint32_t kEndOfChain = 0x0FFFFFFF;

// The `count` clusters from `first` on.
Fat32Chain Row(std::uint32_t first, std::size_t count) {
  Fat32Chain row(count);
  std::iota(row.begin(), row.end(), first);
  return row;
}

// Neighbours become one range.
template <typename Range>
void AddTo(std::vector<Range>& ranges, std::uint32_t first, std::size_t count) {
  if (ranges.empty() || ranges.back().first + ranges.back().count != first) {
    ranges.push_back({first, 0});
  }
  ranges.back().count += static_cast<std::uint32_t>(count);
}

// Whether one of the `count` clusters from `first` on is in a range.
template <typename Range>
bool Touch(const std::vector<Range>& ranges, std::uint32_t first, std::size_t count) {
  return std::any_of(ranges.begin(), ranges.end(), [first, count](const Range& range) {
    return range.first < first + count && first < std::uint64_t{range.first} + range.count;
  });
}

}  // namespace

std::size_t Fat32Clusters::most_moved_at_once() const {
  return std::max<std::size_t>(kMostBytesAtOnce / cluster_bytes_, 1);
}

DWORD Fat32Clusters::MovePiece(Fat32Chain& chain, std::size_t index, std::size_t count,
                               std::uint32_t target) {
  DWORD error = ExpectFree(target, count);
  const Fat32Chain targets = Row(target, count);
  if (error == ERROR_SUCCESS) error = CopyData(chain, index, count, targets);
  if (error != ERROR_SUCCESS) return error;

  const std::size_t end = index + count;
  Fat32Chain links = Row(target + 1, count);
  links.back() = end < chain.size() ? chain[end] : kEndOfChain;
  table_.Set(target, links);
  AddTo(waiting_.arrived, target, count);
  if (index > 0) {
    table_.Set(chain[index - 1], {&target, 1});
    AddTo(waiting_.redirected, chain[index - 1], 1);
  }
  for (; index < end; ++index) {
    constexpr std::uint32_t kFree = 0;
    table_.Set(chain[index], {&kFree, 1});
    AddTo(waiting_.left, chain[index], 1);
    chain[index] = target++;
  }
  return ERROR_SUCCESS;
}

DWORD Fat32Clusters::SaveNewLinks() {
  const DWORD error = SaveAll(waiting_.arrived);
  waiting_.arrived.clear();
  return error;
}

DWORD Fat32Clusters::SaveOldLinks() {
  DWORD error = SaveAll(waiting_.redirected);
  if (error == ERROR_SUCCESS) error = SaveAll(waiting_.left);
  waiting_ = {};
  return error;
}

DWORD Fat32Clusters::SaveAll(const std::vector<Range>& ranges) {
  for (const Range& range : ranges) {
    const DWORD error = table_.Save(range.first, range.count);
    if (error != ERROR_SUCCESS) return error;
  }
  return ERROR_SUCCESS;
}

bool Fat32Clusters::MustSaveBefore(const Fat32Chain& chain, std::size_t index, std::size_t count,
                                   std::uint32_t target) const {
  if (Touch(waiting_.left, target, count)) return true;
  if (waiting_.redirected.empty()) return false;
  const auto piece = std::span(chain).subspan(index, count);
  return std::any_of(piece.begin(), piece.end(), [this](std::uint32_t cluster) {
    return Touch(waiting_.redirected, cluster, 1);
  });
}

std::size_t Fat32Clusters::waiting() const {
  return waiting_.arrived.size() + waiting_.redirected.size() + waiting_.left.size();
}

DWORD Fat32Clusters::ExpectFree(std::uint32_t first, std::size_t count) {
  for (std::uint32_t cluster = first; cluster < first + count; ++cluster) {
    std::uint32_t value = 0;
    if (!IsCluster(cluster)) return ERROR_INVALID_PARAMETER;
    const DWORD error = table_.Read(cluster, value);
    if (error != ERROR_SUCCESS) return error;
    if (value != 0) return ERROR_INVALID_PARAMETER;
  }
  return ERROR_SUCCESS;
}

DWORD Fat32Clusters::CopyData(const Fat32Chain& chain, std::size_t index, std::size_t count,
                              const Fat32Chain& targets) {
  const std::size_t length = count * cluster_bytes_;
  if (moved_.size() < length) moved_.resize(length);
  const auto data = std::span(moved_).first(length);
  const DWORD error = ReadPart(chain, std::uint64_t{index} * cluster_bytes_, data);
  return error == ERROR_SUCCESS ? WritePart(targets, 0, data) : error;
}

}  // namespace simulator
