// Which points of a campaign run, and how they ended.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

#include "campaign/verdict.h"

namespace campaign {

// All points with VELKORA_LONG_TESTS=1 in the environment; otherwise a tenth, chosen by
// VELKORA_SEED. `series` and `place` name a point.
bool IsChosen(std::string_view series, std::size_t place);

// Counts the points of one test and prints, when it ends, a line that scripts/test adds up:
//   campaign: series=faults points=104 converted=31 refused=40 ... unexpected=0
class Tally {
 public:
  explicit Tally(std::string series) : series_(std::move(series)) {}
  ~Tally();
  Tally(const Tally&) = delete;
  Tally& operator=(const Tally&) = delete;

  void Add(Outcome outcome) { ++counts_.at(static_cast<std::size_t>(outcome)); }
  void AddUnexpected() { ++unexpected_; }

 private:
  std::string series_;
  std::array<std::size_t, kOutcomes> counts_{};
  std::size_t unexpected_ = 0;
};

}  // namespace campaign
