// What comes of a stop, told by the points of a conversion at which the flag is looked at.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "campaign/verdict.h"

namespace campaign {

// What a look at the flag leads to once it is set.
enum class Effect {
  kRefuses,
  kRollsBack,
  kEmptiesList,  // the run goes on without rows
  kEndsWalk,     // over the volumes, whose letters stay as they are
  kIsForgiven,
};

// One look, after the first `place` calls of a run without stop and before the next.
struct Look {
  std::size_t place = 0;
  Effect effect = Effect::kRollsBack;
  std::string error;  // the line of level 3; empty: none
};

// How a run with a stop ends.
struct Stopped {
  Outcome outcome = Outcome::kConverted;
  std::size_t calls = 0;               // the same as without stop up to there
  std::vector<std::string> callbacks;  // without those of a rollback
  std::vector<std::string> errors;     // lines of level 3
  std::size_t open_walks = 0;          // over the volumes
  bool renumbered = false;             // the volumes of the record
};

class StopOracle {
 public:
  // `calls` and `callbacks` are those of a run without stop.
  StopOracle(const Scenario& scenario, const std::vector<PlacedCall>& calls,
             const std::vector<std::string>& callbacks);

  // A stop that is asked for when the call at `place` comes.
  Stopped StopAt(std::size_t place) const;

 private:
  void AddReadLooks();
  void AddListLooks(Step step, std::vector<std::size_t> behind_reads);
  void AddCheckLooks();
  void AddWriteLooks();
  void AddLetterLooks();
  bool IsToMbr() const { return scenario_.direction == Direction::kGptToMbr; }
  // The place after the last call of the step.
  std::size_t EndOf(Step step) const;
  std::vector<std::string> CallbacksAt(const Look& look) const;
  void Take(const Look& look, Stopped& stopped) const;

  const Scenario& scenario_;
  const std::vector<PlacedCall>& calls_;
  const std::vector<std::string>& callbacks_;
  std::vector<Look> looks_;
};

}  // namespace campaign
