// Holds the end of a run against what may come of it. Every finding is a failure of the running
// test.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "campaign/campaign_run.h"
#include "campaign/disk_state.h"
#include "campaign/verdict.h"
#include "conversion/converted_disk_fixture.h"

namespace campaign {

// How the run ended, by its result, its callbacks and what the restore logged; none for an end that
// a conversion must not have. Success is told as kConverted, whatever lies on the disk.
std::optional<Outcome> OutcomeOf(CampaignRun& run, std::int32_t result);

// What names the volumes of a disk, by their offsets: letters and, in the caller's record,
// partition numbers.
struct VolumeNames {
  std::map<std::uint64_t, std::string> letters;
  conversion::PartNumbers numbers;
};
VolumeNames NamesIn(CampaignRun& run);

class Judge {
 public:
  // Converts the disk without failure. Throws std::runtime_error when that fails.
  explicit Judge(const BaseDisk& disk);

  const Oracle& oracle() const { return *oracle_; }
  ImageOverlay& converted() { return converted_; }
  // Of the run without failure.
  const std::vector<std::string>& errors() const { return errors_; }
  const std::vector<std::string>& callbacks() const { return callbacks_; }
  const VolumeNames& names_before() const { return names_before_; }
  const VolumeNames& names_after() const { return names_after_; }

  // The callbacks are those of the run without failure, and the disk is the one that it made, but
  // for what `call` explains.
  void ExpectConverted(CampaignRun& run, const PlacedCall* call = nullptr);
  void ExpectRefused(CampaignRun& run, Step step);
  // Every block is in place, and what else differs from the state that a rollback promises lies
  // where the conversion wrote outside the blocks: boot records of logical partitions, the EFI
  // system partition. With `ends_too`, also at the ends of the disk, which were not emptied.
  void ExpectRolledBack(CampaignRun& run, bool ends_too = false);
  // The same, but for the blocks that the log names. There is at least one.
  void ExpectBlocksMissing(CampaignRun& run, bool ends_too = false);
  // A GPT of the first `rows` rows, and nothing else than the two tables differs from the disk that
  // the run without failure made.
  void ExpectTableCut(CampaignRun& run, std::size_t rows);
  // Rows of the list read again before the call.
  std::size_t RowsBefore(const PlacedCall& call) const;

 private:
  void ExpectOnlyBlocksDiffer(CampaignRun& run, const ByteRanges& missing, bool ends_too);
  // Both copies, with their headers.
  ByteRanges GptTables() const;
  void ExpectOverOldTable(CampaignRun& run, const ByteRanges& differences);

  const BaseDisk& disk_;
  ImageOverlay converted_;
  ImageOverlay rolled_back_;
  ByteRanges leftovers_;  // outside the blocks, written by a conversion and by no rollback
  std::size_t primaries_ = 0;
  std::vector<std::string> errors_;
  std::vector<std::string> callbacks_;
  VolumeNames names_before_;
  VolumeNames names_after_;
  std::optional<Oracle> oracle_;
};

// The judge of the scenario, made when it is first asked for.
Judge& JudgeOf(const Scenario& scenario);

}  // namespace campaign
