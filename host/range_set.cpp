#include "host/range_set.h"

#include <algorithm>
#include <iterator>

namespace velkora_host {

void RangeSet::Add(const ByteRange& range) {
  if (range.length == 0) return;
  std::uint64_t start = range.offset;
  std::uint64_t end = range.offset + range.length;
  auto at = ends_.upper_bound(start);
  if (at != ends_.begin() && std::prev(at)->second >= start) {
    --at;
    start = at->first;
  }
  while (at != ends_.end() && at->first <= end) {
    end = std::max(end, at->second);
    at = ends_.erase(at);
  }
  ends_.emplace(start, end);
}

std::vector<ByteRange> RangeSet::Missing(const ByteRange& range) const {
  std::vector<ByteRange> parts;
  const std::uint64_t end = range.offset + range.length;
  std::uint64_t place = FirstFree(range.offset);
  for (auto next = ends_.upper_bound(place); place < end; ++next) {
    const std::uint64_t stop = next == ends_.end() ? end : std::min(end, next->first);
    parts.push_back({place, stop - place});
    if (stop == end) break;
    place = next->second;
  }
  return parts;
}

std::uint64_t RangeSet::FirstFree(std::uint64_t place) const {
  const auto next = ends_.upper_bound(place);
  if (next == ends_.begin()) return place;
  return std::max(place, std::prev(next)->second);
}

}  // namespace velkora_host
