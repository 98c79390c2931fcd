// The wait in virtual time: a run of diskpart takes 200 ms unless a test says otherwise, so that a
// failed pass takes 200 + 200 + 3000 + 200 ms.
#include "disk/system_volume_wait.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <limits>
#include <new>

#include "disk/letter_restore.h"
#include "frame/global_context.h"
#include "platform/guard.h"
#include "simulator/clock.h"
#include "support/leaks_on_purpose.h"
#include "support/machine_fixture.h"

namespace testing_support {
namespace {

const std::string kFirst = "select disk 1\r\nselect part 1\r\ndetail volume\r\n";
const std::string kSecond = "select disk 1\r\nselect part 2\r\ndetail volume\r\n";
const LogLine kStart = {1, "WaitForSystemVolumeMount Timer Start"};
const LogLine kEnd = {1, "WaitForSystemVolumeMount Timer Terminated"};
const LogLine kTimeOut = {2, "WaitForSystemVolumeMount Timer out, seconds is 120"};
const LogLine kMounted = {1, "System Volume Succeed Mounted!"};
const LogLine kRetry = {3, "System Volume Not Mounted! Retry..."};

class WaitForSystemVolumeMount : public MachineTest {
 protected:
  WaitForSystemVolumeMount() {
    velkora::GetGlobalContext().is_system = 1;
    record_.index = 1;
    record_.is_system = 1;
    converter_.disk_info = &record_;
    converter_.partition_offsets = {1 << 20};
    machine_.SetCommand("diskpart", [this](auto&, const Texts&) {
      runs_.push_back(LogsFileText("DISKPART_cmd.log"));
      if (during_run_) during_run_(runs_.size());
      return simulator::CommandResult{answers_(runs_.back(), runs_.size()) ? 0U : 1U, ""};
    });
  }

  bool Wait() {
    const std::uint64_t start = machine_.clock().now();
    const bool result = velkora::WaitForSystemVolumeMount(converter_);
    elapsed_ = machine_.clock().now() - start;
    return result;
  }

  static void RequestStop() { velkora::GetGlobalContext().stop_requested = 1; }

  // The scripts of failed passes.
  static Texts FailedPasses(std::size_t count) {
    Texts scripts;
    for (std::size_t i = 0; i < count; ++i) {
      scripts.insert(scripts.end(), {kFirst, kSecond, kFirst});
    }
    return scripts;
  }

  DiskInfo record_{};
  velkora::Velkora converter_;
  // Whether diskpart succeeds with `script` in its run number `run`, from 1.
  std::function<bool(const std::string& script, std::size_t run)> answers_ =
      [](const std::string&, std::size_t) { return false; };
  std::function<void(std::size_t run)> during_run_;
  Texts runs_;
  std::uint64_t elapsed_ = 0;  // milliseconds
};

// ---- Nothing to wait for, and a volume that answers ---------------------------------------------

TEST_F(WaitForSystemVolumeMount, NoOffsetsNeedNoWait) {
  converter_.partition_offsets.clear();
  EXPECT_TRUE(Wait());
  EXPECT_EQ(log_, Log{});
  EXPECT_EQ(elapsed_, 0U);
  EXPECT_TRUE(machine_.calls().calls().empty());
}

TEST_F(WaitForSystemVolumeMount, NoOffsetsNeedNoWaitEvenWhenAStopIsAskedFor) {
  converter_.partition_offsets.clear();
  RequestStop();
  EXPECT_TRUE(Wait());
  EXPECT_EQ(log_, Log{});
}

TEST_F(WaitForSystemVolumeMount, SecondScriptRunsAlsoWhenTheFirstSucceeded) {
  answers_ = [](const std::string& script, std::size_t) { return script == kFirst; };
  EXPECT_TRUE(Wait());
  EXPECT_EQ(runs_, (Texts{kFirst, kSecond}));
  EXPECT_EQ(log_, (Log{kStart, kMounted, kEnd}));
  EXPECT_EQ(elapsed_, 400U);
}

TEST_F(WaitForSystemVolumeMount, SecondScriptAloneIsEnough) {
  answers_ = [](const std::string& script, std::size_t) { return script == kSecond; };
  EXPECT_TRUE(Wait());
  EXPECT_EQ(runs_, (Texts{kFirst, kSecond}));
  EXPECT_EQ(log_, (Log{kStart, kMounted, kEnd}));
  EXPECT_EQ(elapsed_, 400U);
}

TEST_F(WaitForSystemVolumeMount, BothScriptsMaySucceed) {
  answers_ = [](const std::string&, std::size_t) { return true; };
  EXPECT_TRUE(Wait());
  EXPECT_EQ(runs_, (Texts{kFirst, kSecond}));
  EXPECT_EQ(log_, (Log{kStart, kMounted, kEnd}));
}

TEST_F(WaitForSystemVolumeMount, FailedPassPausesAndRunsTheFirstScriptAgain) {
  answers_ = [](const std::string&, std::size_t run) { return run == 4; };
  EXPECT_TRUE(Wait());
  EXPECT_EQ(runs_, (Texts{kFirst, kSecond, kFirst, kFirst, kSecond}));
  EXPECT_EQ(log_, (Log{kStart, kRetry, kMounted, kEnd}));
  EXPECT_EQ(elapsed_, 3600U + 400U);
  EXPECT_EQ(machine_.calls().Count("Sleep"), 1U);
}

TEST_F(WaitForSystemVolumeMount, SuccessOfTheThirdRunIsNotLookedAt) {
  answers_ = [](const std::string&, std::size_t run) { return run == 3 || run == 8; };
  EXPECT_TRUE(Wait());
  EXPECT_EQ(runs_.size(), 8U);
  EXPECT_EQ(log_, (Log{kStart, kRetry, kRetry, kMounted, kEnd}));
}

TEST_F(WaitForSystemVolumeMount, DiskNumberIsWrittenWithoutASign) {
  record_.index = 4294967295;
  answers_ = [](const std::string&, std::size_t) { return true; };
  EXPECT_TRUE(Wait());
  EXPECT_EQ(runs_, (Texts{"select disk 4294967295\r\nselect part 1\r\ndetail volume\r\n",
                          "select disk 4294967295\r\nselect part 2\r\ndetail volume\r\n"}));
}

TEST_F(WaitForSystemVolumeMount, RunsTakeTheSystemRoute) {
  EXPECT_FALSE(Wait());
  const Texts expected(102,
                       "system: diskpart /s \"X:\\logs\\DISKPART_cmd.log\" >> "
                       "\"X:\\logs\\DISKPART_result.log\"");
  EXPECT_EQ(shell_lines_, expected);
}

TEST_F(WaitForSystemVolumeMount, RescanNeverReachesDiskpart) {
  EXPECT_FALSE(Wait());
  for (const std::string& script : runs_) EXPECT_EQ(script.find("rescan"), std::string::npos);
}

// ---- The limit ----------------------------------------------------------------------------------

TEST_F(WaitForSystemVolumeMount, LimitEndsTheWaitAtTheBoundaryOfTheNextPass) {
  EXPECT_FALSE(Wait());
  EXPECT_EQ(runs_, FailedPasses(34));  // the last one begins after 33 * 3600 = 118800 ms
  EXPECT_EQ(elapsed_, 34U * 3600U);
  Log expected(36, kRetry);
  expected.front() = kStart;
  expected.back() = kTimeOut;  // during the pause of the last pass
  EXPECT_EQ(log_, expected);
}

TEST_F(WaitForSystemVolumeMount, LimitFallsAtTheSamePassEachTime) {
  for (int repetition = 0; repetition < 5; ++repetition) {
    runs_.clear();
    EXPECT_FALSE(Wait());
    EXPECT_EQ(runs_.size(), 102U);
    EXPECT_EQ(elapsed_, 122400U);
  }
}

TEST_F(WaitForSystemVolumeMount, LimitAtTheEndOfAPassEndsTheWait) {
  machine_.command_milliseconds = 1000;  // twenty passes of 6000 ms
  EXPECT_FALSE(Wait());
  EXPECT_EQ(runs_, FailedPasses(20));
  EXPECT_EQ(elapsed_, 120000U);
  EXPECT_EQ(log_.back(), kTimeOut);
}

TEST_F(WaitForSystemVolumeMount, LimitDuringAFailingRunLeavesThePassWhole) {
  machine_.command_milliseconds = 70000;  // it passes during the second run
  EXPECT_FALSE(Wait());
  EXPECT_EQ(runs_, FailedPasses(1));
  EXPECT_EQ(log_, (Log{kStart, kTimeOut, kRetry}));
  EXPECT_EQ(elapsed_, 213000U);
  EXPECT_EQ(machine_.calls().Count("Sleep"), 1U);
}

TEST_F(WaitForSystemVolumeMount, VolumeThatAnswersInTheRunOfTheLimitIsTooLate) {
  machine_.command_milliseconds = 70000;
  answers_ = [](const std::string& script, std::size_t) { return script == kSecond; };
  EXPECT_FALSE(Wait());
  EXPECT_EQ(runs_, (Texts{kFirst, kSecond}));
  EXPECT_EQ(log_, (Log{kStart, kTimeOut, kMounted}));
  EXPECT_EQ(elapsed_, 140000U);
}

TEST_F(WaitForSystemVolumeMount, LimitDuringTheFirstRunStillRunsTheSecondScript) {
  machine_.command_milliseconds = 130000;
  answers_ = [](const std::string& script, std::size_t) { return script == kFirst; };
  EXPECT_FALSE(Wait());
  EXPECT_EQ(runs_, (Texts{kFirst, kSecond}));
  EXPECT_EQ(log_, (Log{kStart, kTimeOut, kMounted}));
}

TEST_F(WaitForSystemVolumeMount, LimitDuringTheThirdRunEndsTheWait) {
  machine_.command_milliseconds = 50000;  // the third run goes from 103000 to 153000 ms
  EXPECT_FALSE(Wait());
  EXPECT_EQ(runs_, FailedPasses(1));
  EXPECT_EQ(log_, (Log{kStart, kRetry, kTimeOut}));
}

TEST_F(WaitForSystemVolumeMount, VolumeThatAnswersInTheLastPassBeforeTheLimitIsInTime) {
  answers_ = [](const std::string&, std::size_t run) { return run == 33 * 3 + 1; };
  EXPECT_TRUE(Wait());
  EXPECT_EQ(elapsed_, 118800U + 400U);
  EXPECT_EQ(log_.back(), kEnd);
}

TEST_F(WaitForSystemVolumeMount, LimitCountsFromTheStartOfEachWait) {
  machine_.clock().Sleep(500000);
  answers_ = [](const std::string&, std::size_t run) { return run == 5; };
  EXPECT_TRUE(Wait());
  EXPECT_EQ(log_, (Log{kStart, kRetry, kMounted, kEnd}));
}

// The timer starts, and its deadline has gone by before the first run of diskpart ends.
TEST_F(WaitForSystemVolumeMount, LimitBelowOneSecondIsOverAtOnce) {
  for (const std::int32_t seconds : {0, -1, std::numeric_limits<std::int32_t>::min()}) {
    SCOPED_TRACE(seconds);
    runs_.clear();
    log_.clear();
    const std::uint64_t start = machine_.clock().now();
    EXPECT_FALSE(velkora::WaitForSystemVolumeMount(converter_, seconds));
    EXPECT_EQ(machine_.clock().now() - start, 3600U);
    EXPECT_EQ(runs_, FailedPasses(1));
    const std::string timer_out = "WaitForSystemVolumeMount Timer out, seconds is ";
    EXPECT_EQ(log_, (Log{kStart, {2, timer_out + std::to_string(seconds)}, kRetry}));
  }
}

TEST_F(WaitForSystemVolumeMount, LimitOfOneSecondIsOverAfterIt) {
  machine_.command_milliseconds = 999;
  during_run_ = [this](std::size_t run) {
    log_.push_back({0, "end of run " + std::to_string(run)});
  };
  EXPECT_FALSE(velkora::WaitForSystemVolumeMount(converter_, 1));
  EXPECT_EQ(log_, (Log{kStart,
                       {0, "end of run 1"},
                       {2, "WaitForSystemVolumeMount Timer out, seconds is 1"},
                       {0, "end of run 2"},
                       kRetry,
                       {0, "end of run 3"}}));
}

// ---- Stops --------------------------------------------------------------------------------------

TEST_F(WaitForSystemVolumeMount, StopBeforeTheFirstPassStillMakesOnePass) {
  RequestStop();
  EXPECT_FALSE(Wait());
  EXPECT_EQ(runs_, FailedPasses(1));
  EXPECT_EQ(log_, (Log{kStart, kRetry, kEnd}));
  EXPECT_EQ(elapsed_, 3600U);
}

TEST_F(WaitForSystemVolumeMount, StopBeforeTheFirstPassOutweighsAVolumeThatAnswers) {
  RequestStop();
  answers_ = [](const std::string& script, std::size_t) { return script == kFirst; };
  EXPECT_FALSE(Wait());
  EXPECT_EQ(runs_, (Texts{kFirst, kSecond}));
  EXPECT_EQ(log_, (Log{kStart, kMounted, kEnd}));
}

TEST_F(WaitForSystemVolumeMount, StopDuringARunIsSeenByTheNextPass) {
  during_run_ = [](std::size_t run) {
    if (run == 1) RequestStop();
  };
  EXPECT_FALSE(Wait());
  EXPECT_EQ(runs_, FailedPasses(2));
  EXPECT_EQ(log_, (Log{kStart, kRetry, kRetry, kEnd}));
}

TEST_F(WaitForSystemVolumeMount, StopDuringARunThatSucceedsIsNotSeen) {
  during_run_ = [](std::size_t) { RequestStop(); };
  answers_ = [](const std::string&, std::size_t) { return true; };
  EXPECT_TRUE(Wait());
  EXPECT_EQ(log_, (Log{kStart, kMounted, kEnd}));
}

TEST_F(WaitForSystemVolumeMount, StopAndLimitInOnePassTellBoth) {
  machine_.command_milliseconds = 70000;
  RequestStop();
  EXPECT_FALSE(Wait());
  EXPECT_EQ(runs_, FailedPasses(1));
  EXPECT_EQ(log_, (Log{kStart, kTimeOut, kRetry}));
}

// ---- Exceptions and faults ----------------------------------------------------------------------

TEST_F(WaitForSystemVolumeMount, ExceptionEndsTheTimerFirst) {
  during_run_ = [](std::size_t) { throw std::bad_alloc(); };
  EXPECT_THROW(Wait(), std::bad_alloc);
  EXPECT_EQ(log_, (Log{kStart, kEnd}));
  EXPECT_EQ(machine_.clock().now(), 200U);
  machine_.clock().Sleep(200000);
  EXPECT_EQ(log_.size(), 2U);
}

// What the timer looks at stays allocated.
TEST_F(WaitForSystemVolumeMount, FaultLeavesTheTimerToEndAtItsLimit) {
  const LeaksOnPurpose timer_state;
  during_run_ = [](std::size_t) { win32::RaiseFault(EXCEPTION_ACCESS_VIOLATION); };
  EXPECT_THROW(Wait(), win32::Fault);
  EXPECT_EQ(log_, Log{kStart});
  machine_.clock().Sleep(119799);
  EXPECT_EQ(log_, Log{kStart});
  machine_.clock().Sleep(2);
  EXPECT_EQ(log_, (Log{kStart, kTimeOut}));
}

// Its limit falls into the later wait, 60 seconds after that one's start.
TEST_F(WaitForSystemVolumeMount, AbandonedTimerLeavesALaterWaitAlone) {
  const LeaksOnPurpose timer_state;
  during_run_ = [](std::size_t) { win32::RaiseFault(EXCEPTION_ACCESS_VIOLATION); };
  EXPECT_THROW(Wait(), win32::Fault);
  during_run_ = nullptr;
  machine_.clock().Sleep(59800);
  runs_.clear();
  log_.clear();
  answers_ = [](const std::string&, std::size_t run) { return run == 20 * 3 + 1; };
  EXPECT_TRUE(Wait());
  EXPECT_EQ(elapsed_, 20U * 3600U + 400U);
  EXPECT_EQ(std::count(log_.begin(), log_.end(), kTimeOut), 1);
  EXPECT_EQ(std::count(log_.begin(), log_.end(), kRetry), 20);
  EXPECT_EQ(log_.back(), kEnd);
}

// ---- Failing tools ------------------------------------------------------------------------------

TEST_F(WaitForSystemVolumeMount, ShellThatCannotBeStartedCountsAsNoAnswer) {
  machine_.calls().FailOn("system", 1, 8, simulator::Repeat::kFromThenOn);
  EXPECT_FALSE(Wait());
  EXPECT_TRUE(runs_.empty());
  EXPECT_EQ(log_.back(), kTimeOut);
  EXPECT_EQ(elapsed_, 120000U);  // forty passes of nothing but the pause
}

TEST_F(WaitForSystemVolumeMount, ScriptThatCannotBeWrittenIsLoggedByEachRun) {
  machine_.calls().FailOn("_wfopen_s", 1, ERROR_ACCESS_DENIED, simulator::Repeat::kFromThenOn);
  RequestStop();
  EXPECT_FALSE(Wait());
  const LogLine not_open = {3, "File not open: X:\\logs\\DISKPART_cmd.log"};
  EXPECT_EQ(log_, (Log{kStart, not_open, not_open, kRetry, not_open, kEnd}));
}

TEST_F(WaitForSystemVolumeMount, RestoreOfTheLettersGoesOnAfterTheLimit) {
  simulator::Disk& disk = NewDisk(1, 64 << 20);
  WriteMbr(disk, {{7, 2048, 30720}});
  WriteNtfsBootSector(disk, 2048, 30719);
  machine_.UpdateProperties(disk);
  VolumeInfo volume{};
  volume.offset = 1 << 20;
  std::strcpy(volume.letter, "M:");
  record_.volumes[0] = &volume;
  record_.volume_count = 1;
  EXPECT_TRUE(velkora::RestoreVolumeInfosAfterConvert(converter_));
  EXPECT_EQ(runs_.size(), 102U);
  EXPECT_EQ(machine_.LettersOf(*machine_.FindVolumeAt(1, 1 << 20)), "M");
  EXPECT_EQ(std::count(log_.begin(), log_.end(), kTimeOut), 1);
  EXPECT_EQ(log_.back(), (LogLine{1, "RestoreVolumeInfosAfterConvert End!"}));
}

}  // namespace
}  // namespace testing_support
