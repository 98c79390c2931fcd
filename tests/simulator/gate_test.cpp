#include "platform/gate.h"

#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "platform/clock.h"
#include "platform/guard.h"
#include "simulator/seam_fixture.h"

namespace testing_support {
namespace {

using Strings = std::vector<std::string>;

class GateTest : public SeamTest {
 protected:
  // Hangs if the gate is not free.
  void EnterOnAnotherThread() {
    std::thread([this] { win32::InGate(gate_, [this] { events_.emplace_back("other"); }); }).join();
  }

  // A gate lives until the process ends.
  static win32::Gate* TheGate() {
    static win32::Gate* const gate = win32::NewGate();
    return gate;
  }

  Strings events_;
  win32::Gate* const gate_ = TheGate();
};

TEST_F(GateTest, ThreadInsideMayEnterAgain) {
  win32::InGate(gate_, [this] { win32::InGate(gate_, [this] { events_.emplace_back("in"); }); });
  EnterOnAnotherThread();
  EXPECT_EQ(events_, (Strings{"in", "other"}));
}

TEST_F(GateTest, ThreadsOfOneClockWaitInVirtualTime) {
  struct Start {
    win32::Gate* gate;
    Strings& events;
    std::string name;
  };
  const auto stay_inside = [](void* argument) {
    const Start& start = *static_cast<Start*>(argument);
    win32::InGate(start.gate, [&start] {
      start.events.push_back(start.name + " in");
      win32::Sleep(1000);
      start.events.push_back(start.name + " out");
    });
  };
  Start first{gate_, events_, "first"};
  Start second{gate_, events_, "second"};
  Start third{gate_, events_, "third"};
  std::vector<win32::Thread*> threads;
  for (Start* start : {&first, &second, &third}) {
    threads.push_back(win32::StartThread(stay_inside, start));
  }
  for (win32::Thread* thread : threads) win32::JoinThread(thread);
  EXPECT_EQ(events_,
            (Strings{"first in", "first out", "second in", "second out", "third in", "third out"}));
  EXPECT_EQ(win32::GetTickCount64(), 3000U);
}

TEST_F(GateTest, ExceptionAndFaultPassAndLeaveTheGate) {
  EXPECT_THROW(win32::InGate(gate_, [] { throw std::runtime_error("text"); }), std::runtime_error);
  EXPECT_THROW(win32::InGate(gate_, [] { win32::RaiseFault(EXCEPTION_ACCESS_VIOLATION); }),
               win32::Fault);
  EnterOnAnotherThread();
  EXPECT_EQ(events_, (Strings{"other"}));
}

}  // namespace
}  // namespace testing_support
