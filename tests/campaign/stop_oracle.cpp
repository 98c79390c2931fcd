#include "campaign/stop_oracle.h"

#include <algorithm>

namespace campaign {
namespace {

using enum Step;
using enum Effect;
using Lines = std::vector<std::string>;

constexpr std::size_t kPrimaries = 3;
constexpr std::size_t kEntriesPerTable = 4;
constexpr char kListError[] = "Get partitions fail!";

}  // namespace

StopOracle::StopOracle(const Scenario& scenario, const std::vector<PlacedCall>& calls,
                       const Lines& callbacks)
    : scenario_(scenario), calls_(calls), callbacks_(callbacks) {
  AddReadLooks();
  if (IsToMbr()) AddCheckLooks();
  AddWriteLooks();
  AddLetterLooks();
  std::sort(looks_.begin(), looks_.end(),
            [](const Look& a, const Look& b) { return a.place < b.place; });
}

std::size_t StopOracle::EndOf(Step step) const {
  std::size_t end = calls_.size();
  while (end > 0 && calls_[end - 1].step != step) --end;
  return end;
}

void StopOracle::AddReadLooks() {
  for (std::size_t i = 0; i < calls_.size();) {
    const Step step = calls_[i].step;
    std::vector<std::size_t> behind_reads;
    for (; i < calls_.size() && calls_[i].step == step; ++i) {
      if (calls_[i].name == "ReadFile") behind_reads.push_back(i + 1);
    }
    if (step == kOpening || step == kReadingAgain) AddListLooks(step, behind_reads);
  }
}

// One reading of the list. It looks at the flag before each row: of a GPT after each sector of the
// array, of an MBR after the first sector and after the chain of logical ones.
void StopOracle::AddListLooks(Step step, std::vector<std::size_t> behind_reads) {
  if (IsToMbr()) {
    behind_reads.erase(behind_reads.begin());  // the header's
  } else {
    behind_reads = {behind_reads.front(), behind_reads.back()};
  }
  // On a data disk that becomes GPT the failure is forgiven, and the rows read so far are kept.
  const bool forgiven = step == kReadingAgain && !IsToMbr() && !scenario_.system;
  const bool again_to_mbr = step == kReadingAgain && IsToMbr();
  for (const std::size_t place : behind_reads) {
    Effect effect = step == kOpening ? kRefuses : kRollsBack;
    if (forgiven) effect = place == behind_reads.front() ? kEmptiesList : kIsForgiven;
    looks_.push_back({place, effect, again_to_mbr ? "Get partitions Error!" : kListError});
  }
}

// The check of the gaps looks at the flag before the first and after each volume that is
// shrunk.
void StopOracle::AddCheckLooks() {
  if (scenario_.kept.size() <= kPrimaries) return;
  looks_.push_back({EndOf(kBackup), kRollsBack, ""});
  for (std::size_t i = 0; i < calls_.size(); ++i) {
    if (calls_[i].step != kShrinking || calls_[i].name != "CloseHandle") continue;
    looks_.push_back({i + 1, kRollsBack, ""});
  }
}

// Before the write; to MBR also before each logical partition and after the write.
void StopOracle::AddWriteLooks() {
  looks_.push_back({EndOf(kBuilding), kRollsBack, ""});
  if (!IsToMbr()) return;
  std::size_t entries = 0;
  for (std::size_t i = 0; i < calls_.size(); ++i) {
    if (calls_[i].step != kBuilding || ++entries % kEntriesPerTable != 0) continue;
    looks_.push_back({i + 1, kRollsBack, ""});
  }
  looks_.push_back({EndOf(kWriting), kRollsBack, ""});
}

// Behind each volume that is found; then, to MBR, where the system volume is sought.
void StopOracle::AddLetterLooks() {
  const char* error = IsToMbr() ? "RestoreVolumeInfos Error: 0" : "RestoreVolumeInfos error: 0";
  std::vector<std::size_t> finds;
  for (std::size_t i = 0; i < calls_.size(); ++i) {
    const std::string& name = calls_[i].name;
    if (calls_[i].step != kLetters) continue;
    if (name == "FindFirstVolumeA" || name == "FindNextVolumeA") finds.push_back(i);
  }
  finds.pop_back();  // finds none
  for (const std::size_t place : finds) looks_.push_back({place + 1, kEndsWalk, error});
  if (!IsToMbr() || !scenario_.system) return;
  std::size_t place = EndOf(kLetters);
  while (calls_.at(place).step == kRescan) ++place;
  looks_.push_back({place, kRollsBack, "system volume not found!"});
}

// Those that had come by the last call. Two more lie between the backup and the check of the gaps.
Lines StopOracle::CallbacksAt(const Look& look) const {
  const PlacedCall& last = calls_.at(look.place - 1);
  const std::size_t count = last.callbacks + (last.step == kBackup ? 2 : 0);
  return {callbacks_.begin(), callbacks_.begin() + std::ptrdiff_t(count)};
}

void StopOracle::Take(const Look& look, Stopped& stopped) const {
  if (look.effect != kIsForgiven) stopped.calls = std::min(stopped.calls, look.place);
  if (!look.error.empty()) stopped.errors.push_back(look.error);
  stopped.renumbered = look.place > EndOf(kWriting);
  switch (look.effect) {
    case kRefuses:
      stopped.outcome = Outcome::kRefused;
      stopped.callbacks.clear();
      break;
    case kEmptiesList:
      stopped.outcome = Outcome::kTableCut;
      stopped.callbacks = callbacks_;
      // There is no table to write.
      std::erase(stopped.callbacks, "percent 60");
      std::erase(stopped.callbacks, "status 4");
      break;
    case kRollsBack:
      stopped.outcome = Outcome::kRolledBack;
      stopped.callbacks = CallbacksAt(look);
      // Its own walk over the volumes ends, too, and tells an error that the restore left.
      stopped.errors.push_back(IsToMbr() ? "RestoreVolumeInfos Error: 6"
                                         : "RestoreVolumeInfos Error: 0");
      ++stopped.open_walks;
      break;
    case kEndsWalk:
      ++stopped.open_walks;
      break;
    case kIsForgiven:
      break;
  }
}

Stopped StopOracle::StopAt(std::size_t place) const {
  Stopped stopped;
  stopped.calls = calls_.size();
  stopped.callbacks = callbacks_;
  stopped.renumbered = true;
  for (const Look& look : looks_) {
    const bool walk_is_over = look.effect == kEndsWalk && stopped.open_walks > 0;
    if (look.place <= place || walk_is_over) continue;
    Take(look, stopped);
    if (stopped.outcome != Outcome::kConverted) break;
  }
  return stopped;
}

}  // namespace campaign
