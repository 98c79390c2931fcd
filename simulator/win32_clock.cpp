#include <string>

#include "platform/clock.h"
#include "simulator/system.h"

namespace win32 {
namespace {

simulator::Clock& CurrentClock() {
  return simulator::System::Current().clock();
}

}  // namespace

struct Thread {
  simulator::Clock* clock;
  simulator::Clock::Participant* participant;
};

// One thread runs at a time, so that a plain flag is a lock. The clock is kept, as a thread may
// wait on longer than its machine is the current one.
struct Monitor {
  simulator::Clock* clock;
  bool locked = false;
};

std::uint64_t GetTickCount64() {
  return CurrentClock().now();
}

void Sleep(DWORD milliseconds) {
  simulator::System& system = simulator::System::Current();
  system.calls().Note("Sleep", {}, std::to_string(milliseconds));
  system.clock().Sleep(milliseconds);
}

Thread* StartThread(void (*body)(void* argument), void* argument) {
  simulator::Clock& clock = CurrentClock();
  return new Thread{&clock, clock.Start([body, argument] { body(argument); })};
}

void JoinThread(Thread* thread) {
  const Thread ended = *thread;
  delete thread;
  ended.clock->Join(ended.participant);
}

Monitor* CreateMonitor() {
  return new Monitor{&CurrentClock()};
}

void DestroyMonitor(Monitor* monitor) {
  delete monitor;
}

void LockMonitor(Monitor* monitor) {
  while (monitor->locked) monitor->clock->WaitFor(&monitor->locked, simulator::Clock::kNever);
  monitor->locked = true;
}

void UnlockMonitor(Monitor* monitor) {
  monitor->locked = false;
  monitor->clock->Wake(&monitor->locked);
}

bool WaitMonitor(Monitor* monitor, std::uint64_t deadline) {
  UnlockMonitor(monitor);
  const bool woken = monitor->clock->WaitFor(monitor, deadline);
  LockMonitor(monitor);
  return woken;
}

void WakeMonitor(Monitor* monitor) {
  monitor->clock->Wake(monitor);
}

}  // namespace win32
