// What may come of a failed call, written down from what a conversion promises.
#pragma once

#include <cstddef>
#include <vector>

#include "campaign/campaign_run.h"

namespace campaign {

// What a failure of one call means for the run.
enum class Verdict {
  kUnknown,        // the table does not know the call: an error of the table
  kCannotFail,     // it tells no failure
  kForgiven,       // the conversion goes on to the same disk
  kForgivenOther,  // it goes on to a disk that differs in a known way
  kRetried,        // forgiven once, fatal if it goes on failing
  kTableCut,       // a data disk's list is left with the rows that were read
  kFatal,
};

// How a run ends.
enum class Outcome {
  kConverted,
  kRefused,  // before anything was touched
  kRolledBack,
  kBlocksMissing,  // rolled back but for the blocks that the log names
  kRollbackFailed,
  kTableCut,  // success with a GPT of the rows that were read
};
inline constexpr std::size_t kOutcomes = 6;
const char* OutcomeName(Outcome outcome);

// The calls of a run without failure, with the verdict of each.
class Oracle {
 public:
  Oracle(const BaseDisk& disk, std::vector<PlacedCall> calls);

  const std::vector<PlacedCall>& calls() const { return calls_; }
  Verdict verdict(std::size_t place) const { return verdicts_.at(place); }
  // How a run ends in which the call at `place` fails, alone or with all that follow.
  Outcome Once(std::size_t place) const;
  Outcome FromThenOn(std::size_t place) const;

 private:
  Verdict Judge(const PlacedCall& call, const PlacedCall* next) const;
  bool IsForgivenRead(const PlacedCall& call) const;
  bool IsUntouched(std::size_t place) const { return calls_.at(place).step <= Step::kBackup; }

  const BaseDisk& disk_;
  std::vector<PlacedCall> calls_;
  std::vector<std::uint64_t> mft_offsets_;
  std::vector<Verdict> verdicts_;
};

}  // namespace campaign
