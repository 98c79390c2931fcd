#include "platform/gate.h"

#include <exception>
#include <mutex>

#include "platform/guard.h"
#include "platform/windows/structured_guard.h"

namespace win32 {

struct Gate {
  std::recursive_mutex turn;
};

namespace {

struct GatedCall {
  Gate* gate;
  void (*body)(void* argument);
  void* argument;
  std::exception_ptr thrown;
};

// No C++ exception may cross the frame between this and RunInGate.
void RunAndKeepThrow(void* gated_call) {
  auto& call = *static_cast<GatedCall*>(gated_call);
  call.thrown = RunCatching(call.body, call.argument);
}

void Leave(void* gated_call) {
  static_cast<GatedCall*>(gated_call)->gate->turn.unlock();
}

}  // namespace

Gate* NewGate() {
  return new Gate;
}

void RunInGate(Gate* gate, void (*body)(void* argument), void* argument) {
  GatedCall call{gate, body, argument, nullptr};
  gate->turn.lock();
  velkora_RunFinally(&RunAndKeepThrow, &Leave, &call);
  if (call.thrown) std::rethrow_exception(call.thrown);
}

}  // namespace win32
