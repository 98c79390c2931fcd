// The observer of the log, called by threads that run at once and by threads of virtual time.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "disk/system_volume_wait.h"
#include "frame/global_context.h"
#include "frame/velkora.h"
#include "logging/log.h"
#include "platform/clock.h"
#include "platform/guard.h"
#include "simulator/clock.h"
#include "support/machine_fixture.h"

namespace velkora {
namespace {

using testing_support::MachineTest;

using Strings = std::vector<std::string>;

constexpr char kTimerOut[] = "WaitForSystemVolumeMount Timer out, seconds is 1";

class LogObserverTest : public MachineTest {
 protected:
  ~LogObserverTest() override { InitLogEx(nullptr, kLogModule, nullptr, nullptr); }

  void Observe(std::function<void(const std::string& text)> observer) {
    observer_ = std::move(observer);
    const LogObserver call{[](void* context, const char*, int, const char* text) {
                             (*static_cast<decltype(observer_)*>(context))(text);
                           },
                           &observer_};
    InitLogEx(nullptr, kLogModule, &call, nullptr);
  }

  static void Log(const char* text) { LogEx(kLogModule, kLogProgress, "%s", text); }

  // A line of another thread that knows no virtual time; it hangs if the observer is not free.
  static void LogOnAnotherThread(const char* text) {
    std::thread([text] { Log(text); }).join();
  }

  // The wait of a system disk whose volumes never come, with a limit of one second.
  bool WaitForMount() {
    machine_.SetCommand("diskpart", [](auto&, const Strings&) {
      return simulator::CommandResult{1, ""};
    });
    GetGlobalContext().is_system = 1;
    record_.is_system = 1;
    converter_.disk_info = &record_;
    converter_.partition_offsets = {1 << 20};
    return WaitForSystemVolumeMount(converter_, 1);
  }

  Strings seen_;

 private:
  std::function<void(const std::string& text)> observer_;
  DiskInfo record_{};
  Velkora converter_;
};

TEST_F(LogObserverTest, LinesOfTwoThreadsComeOneAtATime) {
  std::atomic<int> inside = 0;
  std::atomic<int> most = 0;
  Observe([&](const std::string& text) {
    most = std::max<int>(most, ++inside);
    seen_.push_back(text);
    std::this_thread::yield();
    --inside;
  });
  const auto log_often = [](const char* text) {
    for (int i = 0; i < 500; ++i) Log(text);
  };
  std::thread first(log_often, "one");
  std::thread second(log_often, "two");
  first.join();
  second.join();
  EXPECT_EQ(most, 1);
  EXPECT_EQ(std::count(seen_.begin(), seen_.end(), "one"), 500);
  EXPECT_EQ(std::count(seen_.begin(), seen_.end(), "two"), 500);
}

// The timer's limit falls into the observer's call for another line.
TEST_F(LogObserverTest, TimerWaitsWhileTheConvertingThreadIsInTheObserver) {
  Observe([this](const std::string& text) {
    seen_.push_back(text);
    if (text.starts_with("System Volume Not Mounted!")) machine_.clock().Sleep(60000);
    seen_.push_back("end of " + text);
  });
  machine_.command_milliseconds = 400;
  EXPECT_FALSE(WaitForMount());
  EXPECT_EQ(seen_, (Strings{"WaitForSystemVolumeMount Timer Start",
                            "end of WaitForSystemVolumeMount Timer Start",
                            "System Volume Not Mounted! Retry...",
                            "end of System Volume Not Mounted! Retry...", kTimerOut,
                            std::string("end of ") + kTimerOut}));
}

TEST_F(LogObserverTest, ConvertingThreadWaitsWhileTheTimerIsInTheObserver) {
  Observe([this](const std::string& text) {
    seen_.push_back(text);
    if (text == kTimerOut) machine_.clock().Sleep(60000);
    seen_.push_back("end of " + text);
  });
  machine_.command_milliseconds = 700;  // the limit falls into the second run of diskpart
  EXPECT_FALSE(WaitForMount());
  EXPECT_EQ(seen_,
            (Strings{"WaitForSystemVolumeMount Timer Start",
                     "end of WaitForSystemVolumeMount Timer Start", kTimerOut,
                     std::string("end of ") + kTimerOut, "System Volume Not Mounted! Retry...",
                     "end of System Volume Not Mounted! Retry..."}));
  EXPECT_GE(machine_.clock().now(), 61000U);
}

// As by the Stop of an application's own thread.
TEST_F(LogObserverTest, ThreadOfVirtualTimeWaitsForOneThatKnowsNone) {
  std::atomic<bool> inside = false;
  Observe([&](const std::string& text) {
    if (text == "first") {
      inside = true;
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    seen_.push_back(text);
  });
  machine_.clock().Sleep(1000);  // gives this thread its place in virtual time
  std::thread other([] { Log("first"); });
  while (!inside) std::this_thread::yield();
  Log("second");
  other.join();
  EXPECT_EQ(seen_, (Strings{"first", "second"}));
  EXPECT_EQ(machine_.clock().now(), 1000U);
}

// The wait has begun as a plain one; the observer then needs the turn that the waiting thread has.
TEST_F(LogObserverTest, ThreadOfVirtualTimeGivesItsTurnToAnObserverThatUsesTheClock) {
  std::atomic<bool> inside = false;
  Observe([&](const std::string& text) {
    if (text == "first") {
      inside = true;
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      machine_.clock().Sleep(5);
    }
    seen_.push_back(text);
  });
  machine_.clock().Sleep(1000);
  std::thread other([] { Log("first"); });
  while (!inside) std::this_thread::yield();
  Log("second");
  other.join();
  EXPECT_EQ(seen_, (Strings{"first", "second"}));
  EXPECT_EQ(machine_.clock().now(), 1005U);
}

TEST_F(LogObserverTest, ObserverMayLog) {
  Observe([this](const std::string& text) {
    seen_.push_back(text);
    if (text == "outer") Log("inner");
  });
  Log("outer");
  LogOnAnotherThread("later");
  EXPECT_EQ(seen_, (Strings{"outer", "inner", "later"}));
}

TEST_F(LogObserverTest, ExceptionOfTheObserverLeavesItToOtherThreads) {
  Observe([this](const std::string& text) {
    seen_.push_back(text);
    if (text == "bad") throw std::runtime_error(text);
  });
  EXPECT_THROW(Log("bad"), std::runtime_error);
  LogOnAnotherThread("good");
  EXPECT_EQ(seen_, (Strings{"bad", "good"}));
}

TEST_F(LogObserverTest, FaultInTheObserverLeavesItToOtherThreads) {
  Observe([this](const std::string& text) {
    seen_.push_back(text);
    if (text == "bad") Log("inner");
    if (text == "inner") win32::RaiseFault(EXCEPTION_ACCESS_VIOLATION);
  });
  EXPECT_THROW(Log("bad"), win32::Fault);
  LogOnAnotherThread("good");
  EXPECT_EQ(seen_, (Strings{"bad", "inner", "good"}));
}

TEST_F(LogObserverTest, ExceptionOfTheObserverOnTheTimersThreadIsDropped) {
  Observe([this](const std::string& text) {
    seen_.push_back(text);
    if (text.find("Timer") != std::string::npos) throw std::runtime_error(text);
  });
  EXPECT_FALSE(WaitForMount());
  EXPECT_EQ(seen_.front(), "WaitForSystemVolumeMount Timer Start");
  EXPECT_EQ(std::count(seen_.begin(), seen_.end(), kTimerOut), 1) << "the timer goes on";
}

}  // namespace
}  // namespace velkora
