// Every call that crosses the seam fails, once and from then on, in whole conversions, and each run
// ends as the oracle says: converted, refused with the disk untouched, rolled back, or with a
// rollback that could not open the disk.
#include <algorithm>
#include <gmock/gmock.h>
#include <iostream>
#include <set>

#include "campaign/judge.h"
#include "campaign/points.h"
#include "campaign/signs.h"

namespace campaign {
namespace {

using namespace ::testing;

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

  // The sign of the failed call, and nothing else that a run without failure does not show.
  void ExpectSign(CampaignRun& run, std::size_t place) {
    const Sign* sign = FindSign(GetParam(), oracle(), place);
    if (sign == nullptr) {
      ADD_FAILURE() << "no sign of this call is known";
      return;
    }
    std::vector<std::string> errors = run.run().Errors();
    std::erase_if(errors, [this](const std::string& error) {
      return std::ranges::find(judge_.errors(), error) != judge_.errors().end();
    });
    if (sign->error == nullptr) {
      EXPECT_THAT(errors, IsEmpty());
    } else {
      ASSERT_FALSE(errors.empty());
      EXPECT_THAT(errors.front(), StartsWith(sign->error));
    }
    if (sign->open_handle == nullptr) {
      EXPECT_THAT(run.run().OpenHandles(), IsEmpty());
    } else {
      EXPECT_THAT(run.run().OpenHandles(), ElementsAre(StartsWith(sign->open_handle)));
    }
  }

  // Letters and part numbers. A failure while letters are given back may leave other letters.
  void ExpectNames(CampaignRun& run, Outcome outcome, const PlacedCall& call) {
    const bool converted = outcome == Outcome::kConverted;
    const bool renumbered = converted || call.step > Step::kWriting;
    const VolumeNames names = NamesIn(run);
    if (!converted || call.step != Step::kLetters) {
      EXPECT_EQ(names.letters, (converted ? judge_.names_after() : judge_.names_before()).letters);
    }
    EXPECT_EQ(names.numbers, (renumbered ? judge_.names_after() : judge_.names_before()).numbers);
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
    EXPECT_TRUE(run.HasFailed(place));
    ExpectDisk(run, expected, place);
    EXPECT_EQ(run.run().OpenProcesses(), run.run().Lines("shell elevated: ").size());
    if (once) {
      ExpectSign(run, place);
      if (expected != Outcome::kTableCut) ExpectNames(run, expected, call);
    } else {
      // The disk itself cannot be closed any more, unless it was never opened.
      EXPECT_EQ(run.run().OpenHandles().empty(), place == 0);
    }
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

// The tables know each call; those that tell no failure are listed.
TEST_P(FaultCampaign, EveryCallHasAVerdictAndASign) {
  std::set<std::string> cannot_fail;
  for (std::size_t place = 0; place < oracle().calls().size(); ++place) {
    const PlacedCall& call = oracle().calls()[place];
    EXPECT_NE(oracle().verdict(place), Verdict::kUnknown) << Describe(call);
    const bool can_fail = oracle().verdict(place) != Verdict::kCannotFail;
    EXPECT_EQ(FindSign(GetParam(), oracle(), place) != nullptr, can_fail) << Describe(call);
    if (oracle().verdict(place) == Verdict::kCannotFail) cannot_fail.insert(call.name);
  }
  std::cout << "calls: " << GetParam().name << ' ' << oracle().calls().size();
  for (const std::string& name : cannot_fail) std::cout << ", cannot fail: " << name;
  std::cout << std::endl;
}

TEST(Signs, EachIsMet) {
  std::set<const Sign*> met;
  for (const Scenario& scenario : Scenarios()) {
    const Oracle& oracle = JudgeOf(scenario).oracle();
    for (std::size_t place = 0; place < oracle.calls().size(); ++place) {
      met.insert(FindSign(scenario, oracle, place));
    }
  }
  for (const Sign& sign : Signs()) {
    EXPECT_TRUE(met.contains(&sign))
        << sign.call << " in " << (sign.step ? StepName(*sign.step) : "any step");
  }
}

INSTANTIATE_TEST_SUITE_P(Disks, FaultCampaign, ::testing::ValuesIn(Scenarios()),
                         [](const auto& instance) { return instance.param.name; });

}  // namespace
}  // namespace campaign
