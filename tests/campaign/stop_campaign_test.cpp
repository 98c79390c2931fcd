// A stop that is asked for when a call comes, at every call of whole conversions: what follows is
// told by the points at which the flag is looked at.
#include <gtest/gtest.h>

#include "campaign/judge.h"
#include "campaign/points.h"

namespace campaign {
namespace {

constexpr char kSetLayout[] = "DeviceIoControl/IOCTL_DISK_SET_DRIVE_LAYOUT_EX";

class StopCampaign : public ::testing::TestWithParam<std::string> {
 protected:
  StopCampaign()
      : scenario_(FindScenario(GetParam())), disk_(DiskOf(scenario_)), judge_(JudgeOf(scenario_)) {}

  const std::vector<PlacedCall>& calls() const { return judge_.oracle().calls(); }

  // The first call that satisfies the condition.
  template <typename Condition>
  std::size_t FirstCall(Condition condition) const {
    const auto found = std::find_if(calls().begin(), calls().end(), condition);
    return static_cast<std::size_t>(found - calls().begin());
  }
  std::size_t FirstOf(Step step) const {
    return FirstCall([step](const PlacedCall& call) { return call.step == step; });
  }

  // The last look at the flag that ends in a rollback is in front of this call.
  std::size_t PointOfNoReturn() const {
    if (scenario_.direction == Direction::kMbrToGpt) {
      return FirstCall([](const PlacedCall& call) {
        return call.step == Step::kWriting && call.name == kSetLayout;
      });
    }
    // Behind the written table, and on a system disk where the system volume is sought.
    if (scenario_.system) return FirstOf(Step::kBootSector);
    std::size_t place = FirstOf(Step::kWriting);
    while (calls().at(place).step == Step::kWriting) ++place;
    return place;
  }

  // The list of a data disk, read again for the secondary GPT, stays without a row, which is
  // forgiven, and an empty list leads past the last look at the flag.
  bool LosesTheList(std::size_t place) const {
    if (scenario_.direction == Direction::kGptToMbr || scenario_.system) return false;
    const std::size_t read = FirstCall([](const PlacedCall& call) {
      return call.step == Step::kReadingAgain && call.name == "ReadFile";
    });
    return read < calls().size() && place <= read;
  }

  Outcome Expected(std::size_t place) const {
    // Every row of the first read looks at the flag, and the last call of that read is followed by
    // rows.
    if (calls().at(place).step == Step::kOpening) return Outcome::kRefused;
    if (LosesTheList(place)) return Outcome::kTableCut;
    return place < PointOfNoReturn() ? Outcome::kRolledBack : Outcome::kConverted;
  }

  void RunPoint(std::size_t place, Tally& tally) {
    const PlacedCall& call = calls().at(place);
    SCOPED_TRACE(GetParam() + ": stop at " + Describe(call));
    const Outcome expected = Expected(place);
    CampaignRun run(disk_);
    run.StopAt(place);
    std::optional<Outcome> outcome = OutcomeOf(run, run.Convert());
    if (expected == Outcome::kTableCut && outcome == Outcome::kConverted) outcome = expected;
    if (outcome != expected) {
      tally.AddUnexpected();
      ADD_FAILURE() << "expected " << OutcomeName(expected) << ", and it is "
                    << (outcome ? OutcomeName(*outcome) : "none of the known ends");
      return;
    }
    tally.Add(expected);
    EXPECT_EQ(run.run().Lines("log 1: Set Convert Stop!").size(), 1u);
    if (expected == Outcome::kConverted) judge_.ExpectConverted(run);
    if (expected == Outcome::kRefused) judge_.ExpectRefused(run, call.step);
    if (expected == Outcome::kRolledBack) judge_.ExpectRolledBack(run);
    if (expected == Outcome::kTableCut) judge_.ExpectTableCut(run, 0);
  }

  const Scenario& scenario_;
  const BaseDisk& disk_;
  Judge& judge_;
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
