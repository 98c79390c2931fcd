#include "disk/system_volume_wait.h"

#include <atomic>
#include <cstdint>
#include <exception>
#include <string>

#include "frame/global_context.h"
#include "logging/log.h"
#include "platform/clock.h"
#include "platform/guard.h"
#include "platform/win32.h"
#include "tools/diskpart.h"

namespace velkora {
namespace {

constexpr DWORD kPauseMilliseconds = 3000;

struct WaitState {
  std::int32_t timer_seconds = 0;
  std::atomic<bool> waiting{true};  // the loop goes on; also the result of the wait
  bool timer_stop = false;          // guarded by the monitor
  win32::Monitor* monitor = nullptr;
};

// The tick at which the wait is over. Less than a second is over at once.
std::uint64_t Deadline(std::int32_t seconds) {
  if (seconds < 1) return 0;
  return win32::GetTickCount64() + static_cast<std::uint64_t>(seconds) * 1000;
}

// Nothing is logged with the monitor locked: a fault in the observer would leave it so. What the
// observer throws is dropped, since nothing on this thread could take it.
void RunTimer(void* argument) {
  WaitState& state = *static_cast<WaitState*>(argument);
  win32::Catching([] { LogEx(kLogModule, kLogProgress, "WaitForSystemVolumeMount Timer Start"); });
  win32::LockMonitor(state.monitor);
  const std::uint64_t deadline = Deadline(state.timer_seconds);
  bool timed_out = false;
  while (!state.timer_stop && !timed_out) {
    timed_out = !win32::WaitMonitor(state.monitor, deadline);
  }
  if (state.timer_stop) timed_out = false;
  win32::UnlockMonitor(state.monitor);
  if (!timed_out) {
    win32::Catching(
        [] { LogEx(kLogModule, kLogProgress, "WaitForSystemVolumeMount Timer Terminated"); });
    return;
  }
  win32::Catching([&] {
    LogEx(kLogModule, kLogWarning, "WaitForSystemVolumeMount Timer out, seconds is %d",
          static_cast<int>(state.timer_seconds));
  });
  win32::LockMonitor(state.monitor);
  state.waiting = false;
  win32::UnlockMonitor(state.monitor);
}

std::string DetailScript(std::uint32_t disk, int partition) {
  return "select disk " + std::to_string(disk) + "\r\nselect part " + std::to_string(partition) +
         "\r\ndetail volume\r\n";
}

// Passes until a volume answers or the wait is over.
void AskUntilMounted(std::uint32_t disk, std::atomic<bool>& waiting) {
  const std::string script1 = DetailScript(disk, 1);
  const std::string script2 = DetailScript(disk, 2);
  while (waiting) {
    // A stop ends the wait behind this pass, which still runs whole.
    if (StopRequested()) waiting = false;
    const bool first = DISKPART_RunScript(script1);
    const bool second = DISKPART_RunScript(script2);
    if (first || second) {
      LogEx(kLogModule, kLogProgress, "System Volume Succeed Mounted!");
      return;
    }
    LogEx(kLogModule, kLogError, "System Volume Not Mounted! Retry...");
    win32::Sleep(kPauseMilliseconds);
    // The first script once more, and not a rescan: that has been done before the wait.
    DISKPART_RunScript(script1);
  }
}

// What the timer has of the state, it has until it ends. An exception waits for that end; a
// structured exception runs none of this, and the timer goes on with its state up to the limit.
void WaitWithTimer(const Velkora& converter, WaitState& state) {
  state.monitor = win32::CreateMonitor();
  win32::Thread* const timer = win32::StartThread(RunTimer, &state);
  const std::exception_ptr thrown =
      win32::Catching([&] { AskUntilMounted(converter.disk_info->index, state.waiting); });
  win32::LockMonitor(state.monitor);
  state.timer_stop = true;
  win32::UnlockMonitor(state.monitor);
  win32::WakeMonitor(state.monitor);
  win32::JoinThread(timer);
  if (thrown) std::rethrow_exception(thrown);
}

}  // namespace

bool WaitForSystemVolumeMount(const Velkora& converter, std::int32_t timer_seconds) {
  if (converter.partition_offsets.empty()) return true;
  // Not on the stack, and freed below only: after a fault the timer still looks at it.
  auto* const state = new WaitState;
  state->timer_seconds = timer_seconds;
  const std::exception_ptr thrown = win32::Catching([&] { WaitWithTimer(converter, *state); });
  if (state->monitor != nullptr) win32::DestroyMonitor(state->monitor);
  const bool in_time = state->waiting;
  delete state;
  if (thrown) std::rethrow_exception(thrown);
  return in_time;
}

}  // namespace velkora
