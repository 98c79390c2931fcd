// Every call that crosses the seam fails, once and from then on, in whole conversions, and each run
// ends as the oracle says: converted, refused with the disk untouched, rolled back, or with a
// rollback that could not open the disk.
#include <gtest/gtest.h>
#include <iostream>
#include <set>

#include "campaign/judge.h"
#include "campaign/points.h"

namespace campaign {
namespace {

class FaultCampaign : public ::testing::TestWithParam<Scenario> {
 protected:
  FaultCampaign() : disk_(DiskOf(GetParam())), judge_(JudgeOf(GetParam())) {}

  const Oracle& oracle() const { return judge_.oracle(); }

  // The step in which a run from `place` on meets its first failure that counts.
  Step DecisiveStep(std::size_t place) const {
    while (oracle().verdict(place) == Verdict::kForgiven) ++place;
    return oracle().calls().at(place).step;
  }

  void ExpectDisk(CampaignRun& run, Outcome outcome, std::size_t place) {
    const PlacedCall& call = oracle().calls().at(place);
    switch (outcome) {
      case Outcome::kConverted:
        return judge_.ExpectConverted(
            run, oracle().verdict(place) == Verdict::kForgivenOther ? &call : nullptr);
      case Outcome::kRefused:
        return judge_.ExpectRefused(run, DecisiveStep(place));
      case Outcome::kRolledBack:
        return judge_.ExpectRolledBack(run);
      case Outcome::kTableCut:
        return judge_.ExpectTableCut(run, judge_.RowsBefore(call));
      case Outcome::kRollbackFailed:
        EXPECT_EQ(run.run().Lines("log 3: RestoreDiskPartitionFromStorage fail "),
                  (std::vector<std::string>{"1 times, error: -2", "2 times, error: -2",
                                            "3 times, error: -2"}));
        return;
      case Outcome::kBlocksMissing:
        FAIL() << "only a failure within the restore leaves blocks out";
    }
  }

  void RunPoint(std::size_t place, simulator::Repeat repeat, Tally& tally) {
    const bool once = repeat == simulator::Repeat::kOnce;
    const PlacedCall& call = oracle().calls().at(place);
    SCOPED_TRACE(GetParam().name + (once ? ": " : ": from then on: ") + Describe(call));
    const Outcome expected = once ? oracle().Once(place) : oracle().FromThenOn(place);
    CampaignRun run(disk_);
    run.Fail(place, repeat);
    const std::int32_t result = run.Convert();
    std::optional<Outcome> outcome = OutcomeOf(run, result);
    if (expected == Outcome::kTableCut && outcome == Outcome::kConverted) outcome = expected;
    if (outcome != expected) {
      tally.AddUnexpected();
      ADD_FAILURE() << "expected " << OutcomeName(expected) << ", and it is "
                    << (outcome ? OutcomeName(*outcome) : "none of the known ends");
      return;
    }
    tally.Add(expected);
    ExpectDisk(run, expected, place);
  }

  void RunPoints(simulator::Repeat repeat, const std::string& series) {
    Tally tally(series);
    for (std::size_t place = 0; place < oracle().calls().size(); ++place) {
      if (oracle().verdict(place) == Verdict::kCannotFail) continue;
      if (IsChosen(series + GetParam().name, place)) RunPoint(place, repeat, tally);
    }
  }

  const BaseDisk& disk_;
  Judge& judge_;
};

TEST_P(FaultCampaign, EachCallFailsOnce) {
  RunPoints(simulator::Repeat::kOnce, "once");
}

TEST_P(FaultCampaign, EachCallFailsFromThenOn) {
  RunPoints(simulator::Repeat::kFromThenOn, "from_then_on");
}

// The table of verdicts knows each call; those that tell no failure are listed.
TEST_P(FaultCampaign, EveryCallHasAVerdict) {
  std::set<std::string> cannot_fail;
  for (std::size_t place = 0; place < oracle().calls().size(); ++place) {
    const PlacedCall& call = oracle().calls()[place];
    EXPECT_NE(oracle().verdict(place), Verdict::kUnknown) << Describe(call);
    if (oracle().verdict(place) == Verdict::kCannotFail) cannot_fail.insert(call.name);
  }
  std::cout << "calls: " << GetParam().name << ' ' << oracle().calls().size();
  for (const std::string& name : cannot_fail) std::cout << ", cannot fail: " << name;
  std::cout << std::endl;
}

INSTANTIATE_TEST_SUITE_P(Disks, FaultCampaign, ::testing::ValuesIn(Scenarios()),
                         [](const auto& instance) { return instance.param.name; });

}  // namespace
}  // namespace campaign
