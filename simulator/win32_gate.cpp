// The gate of the seam. It is passed by threads that live in virtual time and by others: one that
// waits for a thread of the same clock gives up its turn meanwhile; any other wait is a plain one.
#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

#include "platform/gate.h"
#include "simulator/clock.h"
#include "simulator/system.h"

namespace win32 {

struct Gate {
  std::mutex mutex;  // guards what follows; held for moments only
  std::thread::id owner;
  unsigned depth = 0;  // how often the owner is inside
  std::condition_variable left;
  std::vector<simulator::Clock*> waited_on;  // one for each thread that waits by its clock
};

namespace {

// How long a plain wait goes on before it looks whether the owner has a place on the clock by now.
constexpr std::chrono::milliseconds kPlainWait(1);

// The clock on which both threads have a place, or null.
simulator::Clock* ClockOf(std::thread::id one, std::thread::id other) {
  try {
    simulator::Clock& clock = simulator::System::Current().clock();
    return clock.HasPlace(one) && clock.HasPlace(other) ? &clock : nullptr;
  } catch (const simulator::NoCurrentMachine&) {
    return nullptr;
  }
}

// Of two threads of one clock only one runs: the owner cannot leave before the wait has begun.
void WaitByClock(Gate& gate, std::unique_lock<std::mutex>& lock, simulator::Clock& clock) {
  gate.waited_on.push_back(&clock);
  lock.unlock();
  clock.WaitFor(&gate, simulator::Clock::kNever);
  lock.lock();
  gate.waited_on.erase(std::find(gate.waited_on.begin(), gate.waited_on.end(), &clock));
}

class Inside {
 public:
  explicit Inside(Gate& gate) : gate_(gate) {
    const std::thread::id self = std::this_thread::get_id();
    std::unique_lock lock(gate.mutex);
    while (gate.depth > 0 && gate.owner != self) {
      simulator::Clock* const clock = ClockOf(self, gate.owner);
      if (clock != nullptr) {
        WaitByClock(gate, lock, *clock);
      } else {
        gate.left.wait_for(lock, kPlainWait);
      }
    }
    gate.owner = self;
    ++gate.depth;
  }
  ~Inside() {
    const std::lock_guard lock(gate_.mutex);
    if (--gate_.depth > 0) return;
    gate_.left.notify_all();
    for (simulator::Clock* clock : gate_.waited_on) clock->Wake(&gate_);
  }
  Inside(const Inside&) = delete;
  Inside& operator=(const Inside&) = delete;

 private:
  Gate& gate_;
};

}  // namespace

Gate* NewGate() {
  return new Gate;
}

void RunInGate(Gate* gate, void (*body)(void* argument), void* argument) {
  const Inside inside(*gate);
  body(argument);
}

}  // namespace win32
