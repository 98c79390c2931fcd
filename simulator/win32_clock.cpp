#include <string>

#include "platform/clock.h"
#include "simulator/simulated_machine.h"

namespace win32 {
namespace {

simulator::Clock& CurrentClock() {
  return simulator::SimulatedMachine::Current().clock();
}

}  // namespace

struct Thread {
  simulator::Clock* clock;
  simulator::Clock::Participant* participant;
};

// One thread runs at a time, so that a plain flag is a lock.
struct Monitor {
  bool locked = false;
};

std::uint64_t GetTickCount64() {
  return CurrentClock().now();
}

void Sleep(DWORD milliseconds) {
  simulator::SimulatedMachine& machine = simulator::SimulatedMachine::Current();
  machine.calls().Note("Sleep", {}, std::to_string(milliseconds));
  machine.clock().Sleep(milliseconds);
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
  return new Monitor;
}

void DestroyMonitor(Monitor* monitor) {
  delete monitor;
}

void LockMonitor(Monitor* monitor) {
  while (monitor->locked) CurrentClock().WaitFor(&monitor->locked, simulator::Clock::kNever);
  monitor->locked = true;
}

void UnlockMonitor(Monitor* monitor) {
  monitor->locked = false;
  CurrentClock().Wake(&monitor->locked);
}

bool WaitMonitor(Monitor* monitor, std::uint64_t deadline) {
  UnlockMonitor(monitor);
  const bool woken = CurrentClock().WaitFor(monitor, deadline);
  LockMonitor(monitor);
  return woken;
}

void WakeMonitor(Monitor* monitor) {
  CurrentClock().Wake(monitor);
}

}  // namespace win32
