// A stop that is asked for when a call comes, at every call of whole conversions: what follows is
// told by the points at which the flag is looked at.
#include <algorithm>
#include <gtest/gtest.h>

#include "campaign/judge.h"
#include "campaign/points.h"
#include "campaign/stop_oracle.h"

namespace campaign {
namespace {

using Lines = std::vector<std::string>;

class StopCampaign : public ::testing::TestWithParam<std::string> {
 protected:
  StopCampaign()
      : scenario_(FindScenario(GetParam())),
        disk_(DiskOf(scenario_)),
        judge_(JudgeOf(scenario_)),
        oracle_(scenario_, calls(), judge_.callbacks()) {}

  const std::vector<PlacedCall>& calls() const { return judge_.oracle().calls(); }

  void RunPoint(std::size_t place, Tally& tally) {
    const PlacedCall& call = calls().at(place);
    SCOPED_TRACE(GetParam() + ": stop at " + Describe(call));
    const Stopped stopped = oracle_.StopAt(place);
    CampaignRun run(disk_);
    run.StopAt(place);
    std::optional<Outcome> outcome = OutcomeOf(run, run.Convert());
    if (stopped.outcome == Outcome::kTableCut && outcome == Outcome::kConverted) {
      outcome = stopped.outcome;
    }
    if (outcome != stopped.outcome) {
      tally.AddUnexpected();
      ADD_FAILURE() << "expected " << OutcomeName(stopped.outcome) << ", and it is "
                    << (outcome ? OutcomeName(*outcome) : "none of the known ends");
      return;
    }
    tally.Add(stopped.outcome);
    EXPECT_EQ(run.run().Lines("log 1: Set Convert Stop!").size(), 1u);
    ExpectDisk(run, stopped.outcome, call);
    ExpectShown(run, stopped);
    ExpectNames(run, stopped);
  }

  void ExpectDisk(CampaignRun& run, Outcome outcome, const PlacedCall& call) {
    if (outcome == Outcome::kConverted) judge_.ExpectConverted(run);
    if (outcome == Outcome::kRefused) judge_.ExpectRefused(run, call.step);
    if (outcome == Outcome::kRolledBack) judge_.ExpectRolledBack(run);
    if (outcome == Outcome::kTableCut) judge_.ExpectTableCut(run, 0);
  }

  void ExpectShown(CampaignRun& run, const Stopped& stopped) {
    Lines callbacks = stopped.callbacks;
    const bool rolled_back = stopped.outcome == Outcome::kRolledBack;
    if (rolled_back) {
      callbacks.insert(callbacks.end(), {"status 9", "percent 100", "status 10"});
    }
    EXPECT_EQ(run.run().Callbacks(), callbacks);
    EXPECT_EQ(run.run().Errors(), stopped.errors);
    EXPECT_EQ(run.run().OpenHandles(), Lines(stopped.open_walks, "volume walk"));
    const std::vector<PlacedCall> made = run.Calls();
    const auto [last, ignored] =
        std::mismatch(made.begin(), made.end(), calls().begin(), calls().end(),
                      [](const PlacedCall& a, const PlacedCall& b) {
                        return a.name == b.name && a.step == b.step;
                      });
    EXPECT_EQ(static_cast<std::size_t>(last - made.begin()), stopped.calls);
    // Unless a walk of the conversion itself has ended before.
    if (rolled_back && stopped.open_walks == 1) {
      EXPECT_EQ(made.at(stopped.calls).step, Step::kCleaningAgain);
    }
  }

  // A conversion and a rollback whose walk over the volumes ends give no letter back: the volumes
  // have those that the system gives, which are the first ones for those of a new table.
  void ExpectNames(CampaignRun& run, const Stopped& stopped) {
    const bool converted = stopped.outcome == Outcome::kConverted;
    VolumeNames names = converted ? judge_.names_after() : judge_.names_before();
    if (stopped.outcome == Outcome::kTableCut) names.letters.clear();
    if (!converted || stopped.open_walks > 0) {
      EXPECT_EQ(run.run().machine().calls().Count("DeleteVolumeMountPointA"), 0u);
      EXPECT_EQ(run.run().machine().calls().Count("SetVolumeMountPointA"), 0u);
    }
    if (converted && stopped.open_walks > 0) {
      char letter = 'C';
      for (auto& [offset, letters] : names.letters) letters = letter++;
    }
    names.numbers = (stopped.renumbered ? judge_.names_after() : judge_.names_before()).numbers;
    EXPECT_EQ(NamesIn(run).letters, names.letters);
    EXPECT_EQ(NamesIn(run).numbers, names.numbers);
  }

  const Scenario& scenario_;
  const BaseDisk& disk_;
  Judge& judge_;
  const StopOracle oracle_;
};

TEST_P(StopCampaign, EachCall) {
  Tally tally("stop");
  for (std::size_t place = 0; place < calls().size(); ++place) {
    if (IsChosen(GetParam(), place)) RunPoint(place, tally);
  }
}

INSTANTIATE_TEST_SUITE_P(Disks, StopCampaign,
                         ::testing::Values("gpt_data_three_rows", "gpt_data_shrink",
                                           "gpt_system_shrink", "mbr_data_shrink_logical",
                                           "mbr_data_logicals", "mbr_system_shrunk_twice"),
                         [](const auto& instance) { return instance.param; });

}  // namespace
}  // namespace campaign
