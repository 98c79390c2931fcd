// Monotonic time, a pause, and what two threads need to wait for each other with a deadline.
//
// On Windows these are the ordinary primitives. On the simulated machine time is virtual: it moves
// only when every thread that was started here waits, so that two minutes pass in no time and in
// the same way each time.
#pragma once

#include <cstdint>

#include "platform/win32_types.h"

namespace win32 {

// Milliseconds of a clock that never goes back.
std::uint64_t GetTickCount64();

void Sleep(DWORD milliseconds);

// A thread. StartThread returns when `body` has begun to run with `argument`, or throws
// std::system_error. JoinThread waits for its end and frees it; each thread is joined once.
struct Thread;
Thread* StartThread(void (*body)(void* argument), void* argument);
void JoinThread(Thread* thread);

// A mutex and a condition variable. The caller destroys it, with nobody waiting.
struct Monitor;
Monitor* CreateMonitor();
void DestroyMonitor(Monitor* monitor);
void LockMonitor(Monitor* monitor);
void UnlockMonitor(Monitor* monitor);
// Gives up the lock until the monitor is woken or the clock reaches `deadline` (in the
// milliseconds of GetTickCount64), and takes it again. False when the deadline ended the wait.
bool WaitMonitor(Monitor* monitor, std::uint64_t deadline);
void WakeMonitor(Monitor* monitor);

}  // namespace win32
