// A second failure, in the rollback that a first one has led to: at each of its calls, once and
// from then on. The rollback ends well all the same, leaves out the blocks that could not be
// written, or says that it failed.
#include <gtest/gtest.h>

#include "campaign/control_calls.h"
#include "campaign/judge.h"
#include "campaign/points.h"

namespace campaign {
namespace {

using Lines = std::vector<std::string>;

// What the attempts of the restore return where it fails. One whose backup is gone crashes.
constexpr int kNotOpened = -2;
constexpr int kNotUpdated = -11;
constexpr int kNoLayout = -17;
constexpr int kCrashed = -18;

struct Expected {
  Outcome outcome = Outcome::kRolledBack;
  std::vector<int> attempts;  // failed ones
};

class RollbackFaults : public ::testing::TestWithParam<std::string> {
 protected:
  RollbackFaults()
      : scenario_(FindScenario(GetParam())), disk_(DiskOf(scenario_)), judge_(JudgeOf(scenario_)) {
    const std::vector<PlacedCall>& calls = judge_.oracle().calls();
    while (calls.at(first_).step != Step::kWriting) ++first_;
    CampaignRun run(disk_);
    run.Fail(first_, simulator::Repeat::kOnce);
    EXPECT_EQ(run.Convert(), 1);
    calls_ = run.Calls();
  }

  // The first open of the restore is the disk's; those behind it are volumes', to be dismounted,
  // which may fail.
  static bool OpensDisk(const PlacedCall& call) {
    return call.name == "CreateFileA" && call.occurrence == 1;
  }

  static Expected Once(const PlacedCall& call) {
    if (call.step != Step::kRestore) return {};
    if (OpensDisk(call)) return {Outcome::kRolledBack, {kNotOpened}};
    if (call.name == kGetLayout) {
      return {Outcome::kRollbackFailed, {kNoLayout, kCrashed, kCrashed}};
    }
    if (call.name == kUpdate) {
      return {Outcome::kRollbackFailed, {kNotUpdated, kCrashed, kCrashed}};
    }
    if (call.name == "CreateFileA" || call.name == kDismount || call.name == "CloseHandle") {
      return {};
    }
    return {Outcome::kBlocksMissing, {}};
  }

  // In front of the restore, and with its first open, all three attempts fail to open the disk.
  // Within it, the system cannot be told any more. Its last call closes the disk.
  Expected FromThenOn(std::size_t place) const {
    const PlacedCall& call = calls_.at(place);
    if (call.step < Step::kRestore || (call.step == Step::kRestore && OpensDisk(call))) {
      return {Outcome::kRollbackFailed, {kNotOpened, kNotOpened, kNotOpened}};
    }
    if (call.step != Step::kRestore || calls_.at(place + 1).step != Step::kRestore) return {};
    const int first = call.name == kGetLayout ? kNoLayout : kNotUpdated;
    return {Outcome::kRollbackFailed, {first, kCrashed, kCrashed}};
  }

  void RunPoint(std::size_t place, simulator::Repeat repeat, Tally& tally) {
    const PlacedCall& call = calls_.at(place);
    const bool once = repeat == simulator::Repeat::kOnce;
    SCOPED_TRACE(GetParam() + (once ? ": " : ": from then on: ") + Describe(call));
    const Expected expected = once ? Once(call) : FromThenOn(place);
    CampaignRun run(disk_);
    run.Fail(first_, simulator::Repeat::kOnce);
    run.Fail(place, repeat);
    const std::optional<Outcome> outcome = OutcomeOf(run, run.Convert());
    if (outcome != expected.outcome) {
      tally.AddUnexpected();
      ADD_FAILURE() << "expected " << OutcomeName(expected.outcome) << ", and it is "
                    << (outcome ? OutcomeName(*outcome) : "none of the known ends");
      return;
    }
    tally.Add(expected.outcome);
    ExpectAttempts(run, expected.attempts);
    // Without clean or conversion the disk keeps more of what the failed conversion wrote.
    const bool ends_too = call.step < Step::kRestore;
    if (expected.outcome == Outcome::kRolledBack) judge_.ExpectRolledBack(run, ends_too);
    if (expected.outcome == Outcome::kBlocksMissing) judge_.ExpectBlocksMissing(run, ends_too);
    // All blocks were written, and only the system was not told.
    if (once && call.name == kUpdate) judge_.ExpectRolledBack(run);
  }

  static void ExpectAttempts(CampaignRun& run, const std::vector<int>& codes) {
    Lines lines;
    for (std::size_t i = 0; i < codes.size(); ++i) {
      lines.push_back(std::to_string(i + 1) + " times, error: " + std::to_string(codes[i]));
    }
    EXPECT_EQ(run.run().Lines("log 3: RestoreDiskPartitionFromStorage fail "), lines);
  }

  void RunPoints(simulator::Repeat repeat) {
    Tally tally("second_failure");
    for (std::size_t place = first_ + 1; place < calls_.size(); ++place) {
      if (calls_[place].name == "Sleep") continue;
      if (IsChosen(GetParam(), place)) RunPoint(place, repeat, tally);
    }
  }

  const Scenario& scenario_;
  const BaseDisk& disk_;
  Judge& judge_;
  std::size_t first_ = 0;  // the write of the new table, which fails first
  std::vector<PlacedCall> calls_;
};

TEST_P(RollbackFaults, EachCallFailsOnce) {
  RunPoints(simulator::Repeat::kOnce);
}

TEST_P(RollbackFaults, EachCallFailsFromThenOn) {
  RunPoints(simulator::Repeat::kFromThenOn);
}

// The restore opens the disk, asks for its rows, writes each block, and tells the system.
TEST_P(RollbackFaults, TheRestoreWritesEachBlockOnce) {
  std::size_t writes = 0;
  for (const PlacedCall& call : calls_) {
    if (call.step == Step::kRestore && call.name == "WriteFile") ++writes;
  }
  EXPECT_EQ(writes, disk_.blocks().size());
}

INSTANTIATE_TEST_SUITE_P(Disks, RollbackFaults,
                         ::testing::Values("gpt_system_shrink", "mbr_system_shrink"),
                         [](const auto& instance) { return instance.param; });

}  // namespace
}  // namespace campaign
