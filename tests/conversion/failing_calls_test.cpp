// The fail-the-nth-call loop over whole conversions: each call that crosses the seam fails once,
// and then from there on, until the run is over before the call comes.
#include "conversion/failing_calls.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <map>
#include <memory>

#include "conversion/converted_disk_fixture.h"
#include "conversion/volumes.h"

namespace conversion {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

constexpr char kFirstLetter = 'M';
constexpr std::uint64_t kSize = 128 * kMib;

class FailingCalls : public ConversionTest {
 protected:
  // Five partitions, the third an NTFS volume, with this many sectors between it and the fourth.
  Partitions MakeDisk(std::uint64_t gap) {
    Partitions partitions = EvenPartitions(2, 1, 0);
    partitions.push_back({6144, 6144 + 16 * kSectorsPerMib - 1});
    const std::uint64_t fourth = partitions[2].last + 1 + gap;
    partitions.push_back({fourth, fourth + 2047});
    partitions.push_back({fourth + 4096, fourth + 6143});
    MakeGptDisk(image(), kSize, partitions);
    PutNtfs(image(), partitions[2], {}, folder_.path());
    return partitions;
  }

  // Notes the calls of a run without failures, and the disk's states on the way.
  void Observe(const Partitions& before, const Partitions& after) {
    CopyImage(image(), File("start.img"));
    hashes_[LeftBehind::kUntouched] = Hash(image());
    ExpectedImage expected(image(), File("expected.img"));
    expected.BackUp(before);
    expected.RollBack();
    hashes_[LeftBehind::kRolledBack] = Hash(expected.path());
    const auto run = NewRun();
    const simulator::CallLog& calls = run->machine().calls();
    Step step = Step::kOpening;
    run->on_line = [&](const std::string& line) {
      PlaceCalls(calls, step);
      step = NextStep(step, line);
      if (line == "status 2") NoteStates(after);
    };
    first_call_ = calls.calls().size();
    ASSERT_EQ(run->Convert(), 0);
    PlaceCalls(calls, step);
    letters_ = run->Letters();
    ASSERT_EQ(Hash(image()), hashes_.at(LeftBehind::kConverted));
  }

  // The states that follow once the room is made, worked out on a copy.
  void NoteStates(const Partitions& after) {
    ExpectedImage over_old(image(), File("expected.img"));
    over_old.CreateMbr();
    over_old.WriteTable(after);
    hashes_[LeftBehind::kConvertedOverOldTable] = Hash(over_old.path());
    ExpectedImage expected(image(), File("expected.img"));
    expected.Convert(after);
    hashes_[LeftBehind::kConverted] = Hash(expected.path());
    expected.CreateMbr(0xFFFFFFFF);
    expected.WriteTable(after);
    hashes_[LeftBehind::kConvertedSignatureAllOnes] = Hash(expected.path());
  }

  // A conversion from the start, ready to go.
  std::unique_ptr<ConversionRun> NewRun() {
    CopyImage(File("start.img"), image());
    auto run = std::make_unique<ConversionRun>(image());
    run->SetLetters(kFirstLetter);
    run->record();
    return run;
  }

  void FailEachOnce() {
    for (std::size_t i = 0; i < places_.size(); ++i) {
      const CallPlace& place = places_[i];
      SCOPED_TRACE(place.name + " " + std::to_string(place.occurrence) + " in " +
                   StepName(place.step));
      const Consequence* consequence = FindConsequence(place);
      if (consequence == nullptr) {
        ADD_FAILURE() << "nothing is known of a failure of this call";
        continue;
      }
      const auto run = NewRun();
      run->machine().calls().FailNumber(first_call_ + i + 1);
      EXPECT_EQ(run->Convert(), consequence->result);
      EXPECT_TRUE(run->machine().calls().calls().at(first_call_ + i).failed_on_demand);
      ExpectConsequence(*run, *consequence);
    }
    ExpectNoFurtherCall();
  }

  // From a failed call on all fail, so that any later one that cannot be forgiven decides. A
  // rollback cannot open the disk then.
  void FailFromEachOn() {
    std::size_t last_decisive = 0;  // the first call of all is one
    std::size_t last_refusal = 0;   // of those before the conversion begins
    for (std::size_t i = 0; i < places_.size(); ++i) {
      const Consequence* consequence = FindConsequence(places_[i]);
      ASSERT_NE(consequence, nullptr);
      if (consequence->result != 0) last_decisive = i;
      if (consequence->result != 0 && consequence->step <= Step::kBackingUp) last_refusal = i;
    }
    for (std::size_t i = 0; i < places_.size(); ++i) {
      SCOPED_TRACE("from " + places_[i].name + " on in " + StepName(places_[i].step));
      const auto run = NewRun();
      run->machine().calls().FailNumber(first_call_ + i + 1, ERROR_GEN_FAILURE,
                                        simulator::Repeat::kFromThenOn);
      EXPECT_EQ(run->Convert(), i <= last_decisive ? 1 : 0);
      if (i > last_refusal && i <= last_decisive) {
        EXPECT_THAT(LastCallbacks(*run), ElementsAre("status 9", "percent 100", "status 11"));
      } else if (i <= last_refusal) {
        EXPECT_THAT(run->Callbacks(), Not(Contains("status 9")));
      }
      // The disk itself cannot be closed any more, unless it was never opened.
      EXPECT_EQ(run->OpenHandles().empty(), i == 0);
    }
  }

 private:
  // Gives the calls since the last line the step that the conversion is in.
  void PlaceCalls(const simulator::CallLog& log, Step step) {
    while (first_call_ + places_.size() < log.calls().size()) {
      const simulator::Call& call = log.calls()[first_call_ + places_.size()];
      std::string name = call.name;
      if (name == "DeviceIoControl" || name == "command") name += "/" + call.detail;
      const std::size_t occurrence = ++occurrences_[{step, name}];
      places_.push_back({std::move(name), step, occurrence});
    }
  }

  static std::vector<std::string> LastCallbacks(const ConversionRun& run) {
    const std::vector<std::string> callbacks = run.Callbacks();
    return {callbacks.end() - std::min<std::ptrdiff_t>(3, std::ssize(callbacks)), callbacks.end()};
  }

  static void ExpectCallbacks(const ConversionRun& run, const Consequence& consequence) {
    if (consequence.disk == LeftBehind::kRolledBack) {
      EXPECT_THAT(LastCallbacks(run), ElementsAre("status 9", "percent 100", "status 10"));
    } else if (consequence.result == 0) {
      EXPECT_THAT(LastCallbacks(run), ElementsAre("status 4", "percent 100", "status 7"));
    } else if (consequence.step == Step::kBackingUp) {
      EXPECT_THAT(run.Callbacks(), ElementsAre("status 8", "percent 100"));
    } else {
      EXPECT_THAT(run.Callbacks(), IsEmpty());
    }
  }

  void ExpectConsequence(ConversionRun& run, const Consequence& consequence) {
    EXPECT_EQ(Hash(image()), hashes_.at(consequence.disk));
    ExpectCallbacks(run, consequence);
    if (consequence.error == nullptr) {
      EXPECT_THAT(run.Errors(), IsEmpty());
    } else if (run.Errors().empty()) {
      ADD_FAILURE() << "no error is logged";
    } else {
      EXPECT_THAT(run.Errors().front(), StartsWith(consequence.error));
    }
    if (consequence.open_handle == nullptr) {
      EXPECT_THAT(run.OpenHandles(), IsEmpty());
    } else {
      EXPECT_THAT(run.OpenHandles(), ElementsAre(StartsWith(consequence.open_handle)));
    }
    EXPECT_EQ(run.OpenProcesses(), run.Lines("shell elevated: ").size());
    if (consequence.step == Step::kLetters) return;
    EXPECT_EQ(run.Letters(), letters_);
  }

  void ExpectNoFurtherCall() {
    const auto run = NewRun();
    run->machine().calls().FailNumber(first_call_ + places_.size() + 1);
    EXPECT_EQ(run->Convert(), 0);
    EXPECT_EQ(run->machine().calls().calls().size(), first_call_ + places_.size());
  }

  std::map<LeftBehind, std::uint64_t> hashes_;
  std::map<std::pair<Step, std::string>, std::size_t> occurrences_;
  std::map<std::uint64_t, std::string> letters_;
  std::vector<CallPlace> places_;
  std::size_t first_call_ = 0;
};

class FailingCallsWithRoom : public FailingCalls {
 protected:
  FailingCallsWithRoom() {
    const Partitions partitions = MakeDisk(kSectorsPerMib);
    Observe(partitions, partitions);
  }
};

TEST_F(FailingCallsWithRoom, EachFailsOnce) {
  FailEachOnce();
}

TEST_F(FailingCallsWithRoom, EachFailsFromThenOn) {
  FailFromEachOn();
}

// The third volume has to give room first.
class FailingCallsWithShrink : public FailingCalls {
 protected:
  FailingCallsWithShrink() {
    const Partitions partitions = MakeDisk(0);
    Partitions after = partitions;
    after[2].last -= 5 * kSectorsPerMib;
    Observe(partitions, after);
  }
};

TEST_F(FailingCallsWithShrink, EachFailsOnce) {
  FailEachOnce();
}

TEST_F(FailingCallsWithShrink, EachFailsFromThenOn) {
  FailFromEachOn();
}

}  // namespace
}  // namespace conversion
