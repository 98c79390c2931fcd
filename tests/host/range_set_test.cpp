#include "host/range_set.h"

#include <bitset>
#include <gtest/gtest.h>
#include <random>

namespace velkora_host {
namespace {

constexpr std::uint64_t kPlaces = 64;

std::vector<ByteRange> MissingByCount(const std::bitset<kPlaces>& set, const ByteRange& range) {
  std::vector<ByteRange> parts;
  for (std::uint64_t at = range.offset; at < range.offset + range.length; ++at) {
    if (set[at]) continue;
    if (!parts.empty() && parts.back().offset + parts.back().length == at) {
      ++parts.back().length;
    } else {
      parts.push_back({at, 1});
    }
  }
  return parts;
}

std::uint64_t FirstFreeByCount(const std::bitset<kPlaces>& set, std::uint64_t place) {
  while (place < kPlaces && set[place]) ++place;
  return place;
}

TEST(RangeSet, AnswersAsASetOfSingleBytes) {
  std::mt19937 random(7);
  for (int round = 0; round < 300; ++round) {
    RangeSet ranges;
    std::bitset<kPlaces> set;
    for (int step = 0; step < 8; ++step) {
      const std::uint64_t offset = random() % kPlaces;
      const std::uint64_t length = random() % (kPlaces - offset + 1) / 3;
      ranges.Add({offset, length});
      for (std::uint64_t at = offset; at < offset + length; ++at) set[at] = true;
      const std::uint64_t start = random() % kPlaces;
      const ByteRange asked{start, random() % (kPlaces - start + 1)};
      ASSERT_EQ(ranges.Missing(asked), MissingByCount(set, asked));
      ASSERT_EQ(ranges.FirstFree(start), FirstFreeByCount(set, start));
    }
  }
}

TEST(RangeSet, ReachesTo63Bits) {
  constexpr std::uint64_t kEnd = std::uint64_t{1} << 63;
  RangeSet ranges;
  ranges.Add({kEnd - 10, 10});
  EXPECT_EQ(ranges.Missing({0, kEnd}), (std::vector<ByteRange>{{0, kEnd - 10}}));
  EXPECT_EQ(ranges.FirstFree(kEnd - 1), kEnd);
}

}  // namespace
}  // namespace velkora_host
