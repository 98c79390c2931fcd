#include "platform/clock.h"

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

namespace win32 {

struct Thread {
  std::thread thread;
};

struct Monitor {
  std::mutex mutex;
  std::condition_variable changed;
};

std::uint64_t GetTickCount64() {
  return ::GetTickCount64();
}

void Sleep(DWORD milliseconds) {
  ::Sleep(milliseconds);
}

Thread* StartThread(void (*body)(void* argument), void* argument) {
  struct Begin {
    std::mutex mutex;
    std::condition_variable begun;
    bool done = false;
  } begin;
  auto thread = std::make_unique<Thread>();
  std::unique_lock lock(begin.mutex);
  thread->thread = std::thread([&begin, body, argument] {
    {
      const std::lock_guard begin_lock(begin.mutex);
      begin.done = true;
      begin.begun.notify_one();
    }
    body(argument);
  });
  begin.begun.wait(lock, [&begin] { return begin.done; });
  return thread.release();
}

void JoinThread(Thread* thread) {
  thread->thread.join();
  delete thread;
}

Monitor* CreateMonitor() {
  return new Monitor;
}

void DestroyMonitor(Monitor* monitor) {
  delete monitor;
}

void LockMonitor(Monitor* monitor) {
  monitor->mutex.lock();
}

void UnlockMonitor(Monitor* monitor) {
  monitor->mutex.unlock();
}

bool WaitMonitor(Monitor* monitor, std::uint64_t deadline) {
  const std::uint64_t now = GetTickCount64();
  const std::chrono::milliseconds rest(deadline > now ? deadline - now : 0);
  std::unique_lock lock(monitor->mutex, std::adopt_lock);
  const bool woken = monitor->changed.wait_for(lock, rest) == std::cv_status::no_timeout;
  lock.release();
  return woken;
}

void WakeMonitor(Monitor* monitor) {
  monitor->changed.notify_all();
}

}  // namespace win32
