// Ranges of a disk's bytes.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

namespace velkora_host {

// Ends at 2^63 at most wherever one is taken here.
struct ByteRange {
  std::uint64_t offset = 0;
  std::uint64_t length = 0;

  bool operator==(const ByteRange&) const = default;
};

// A set of bytes, kept as the ranges that it is made of; ranges that touch become one.
class RangeSet {
 public:
  void Add(const ByteRange& range);

  // The parts of `range` that are not in the set, ascending.
  std::vector<ByteRange> Missing(const ByteRange& range) const;

  // The first place from `place` on that is not in the set.
  std::uint64_t FirstFree(std::uint64_t place) const;

 private:
  std::map<std::uint64_t, std::uint64_t> ends_;  // end by start
};

}  // namespace velkora_host
