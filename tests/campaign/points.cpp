#include "campaign/points.h"

#include <cstdlib>
#include <functional>
#include <iostream>
#include <numeric>

namespace campaign {

bool IsChosen(std::string_view series, std::size_t place) {
  constexpr std::size_t kShare = 10;
  const char* long_tests = std::getenv("VELKORA_LONG_TESTS");
  if (long_tests != nullptr && std::string_view(long_tests) == "1") return true;
  const char* seed = std::getenv("VELKORA_SEED");
  const std::uint64_t shift = seed == nullptr ? 0 : std::strtoull(seed, nullptr, 10);
  return (std::hash<std::string_view>{}(series) + place + shift) % kShare == 0;
}

Tally::~Tally() {
  const std::size_t points = std::accumulate(counts_.begin(), counts_.end(), unexpected_);
  std::cout << "campaign: series=" << series_ << " points=" << points;
  for (std::size_t i = 0; i < kOutcomes; ++i) {
    std::cout << ' ' << OutcomeName(static_cast<Outcome>(i)) << '=' << counts_.at(i);
  }
  std::cout << " unexpected=" << unexpected_ << std::endl;
}

}  // namespace campaign
