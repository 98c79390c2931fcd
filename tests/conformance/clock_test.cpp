// Time, threads and monitors.
#include "platform/clock.h"

#include "conformance/conformance_fixture.h"

namespace conformance {
namespace {

constexpr std::uint64_t kLongWait = 20'000;  // milliseconds; no test lasts as long

class SeamThread : public ConformanceTest {
 public:
  SeamThread() : monitor_(win32::CreateMonitor()) {}
  ~SeamThread() override { win32::DestroyMonitor(monitor_); }

  // Waits until `flag` is set or the deadline comes; what it is then.
  bool WaitForFlag(const bool& flag, std::uint64_t deadline) const {
    win32::LockMonitor(monitor_);
    while (!flag && win32::WaitMonitor(monitor_, deadline)) {
    }
    const bool result = flag;
    win32::UnlockMonitor(monitor_);
    return result;
  }
  void SetFlag(bool& flag) const {
    win32::LockMonitor(monitor_);
    flag = true;
    win32::WakeMonitor(monitor_);
    win32::UnlockMonitor(monitor_);
  }

  win32::Monitor* monitor_;
  bool first_ = false;
  bool second_ = false;
  int runs_ = 0;
};

TEST_F(SeamThread, ClockMovesByWhatIsSlept) {
  const std::uint64_t before = win32::GetTickCount64();
  win32::Sleep(60);
  const std::uint64_t after = win32::GetTickCount64();
  EXPECT_GE(after, before + 40);  // the clock may tick in steps of 16 ms
  EXPECT_LT(after, before + kLongWait);
}

TEST_F(SeamThread, JoinReturnsWhenTheBodyHasRun) {
  win32::Thread* thread = win32::StartThread(
      [](void* argument) {
        win32::Sleep(50);
        *static_cast<int*>(argument) += 5;
      },
      &runs_);
  win32::JoinThread(thread);
  EXPECT_EQ(runs_, 5);
}

TEST_F(SeamThread, WakingEndsAWait) {
  win32::Thread* thread = win32::StartThread(
      [](void* argument) {
        auto& test = *static_cast<SeamThread*>(argument);
        test.SetFlag(test.first_);
        EXPECT_TRUE(test.WaitForFlag(test.second_, win32::GetTickCount64() + kLongWait));
      },
      this);
  EXPECT_TRUE(WaitForFlag(first_, win32::GetTickCount64() + kLongWait));
  SetFlag(second_);
  win32::JoinThread(thread);
}

TEST_F(SeamThread, DeadlineEndsAWait) {
  const std::uint64_t before = win32::GetTickCount64();
  EXPECT_FALSE(WaitForFlag(first_, before + 60));
  EXPECT_GE(win32::GetTickCount64(), before + 40);
  EXPECT_LT(win32::GetTickCount64(), before + kLongWait);
}

TEST_F(SeamThread, DeadlineThatHasPassedEndsAWaitAtOnce) {
  const std::uint64_t before = win32::GetTickCount64();
  EXPECT_FALSE(WaitForFlag(first_, before));
  EXPECT_FALSE(WaitForFlag(first_, 0));
  EXPECT_LT(win32::GetTickCount64(), before + kLongWait);
}

TEST_F(SeamThread, OneThreadAtATimeHasTheLock) {
  const auto count = [](void* argument) {
    auto& test = *static_cast<SeamThread*>(argument);
    for (int i = 0; i < 100; ++i) {
      win32::LockMonitor(test.monitor_);
      const int before = test.runs_;
      if (i % 25 == 0) win32::Sleep(1);
      test.runs_ = before + 1;
      win32::UnlockMonitor(test.monitor_);
    }
  };
  win32::Thread* first = win32::StartThread(count, this);
  win32::Thread* second = win32::StartThread(count, this);
  win32::JoinThread(first);
  win32::JoinThread(second);
  EXPECT_EQ(runs_, 200);
}

}  // namespace
}  // namespace conformance
