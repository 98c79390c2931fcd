#include "platform/guard.h"

#include "platform/windows/structured_guard.h"

namespace win32 {
namespace {

struct GuardedCall {
  void (*body)(void* argument);
  void* argument;
  GuardFilter filter;
};

// A C++ exception ends here: on its way through the structured guard the unwinder would never come
// to an end.
bool RunAndTellOfThrow(void* guarded_call) {
  const auto& call = *static_cast<const GuardedCall*>(guarded_call);
  try {
    call.body(call.argument);
    return false;
  } catch (...) {
    return true;
  }
}

LONG AskFilter(void* guarded_call, EXCEPTION_POINTERS* pointers) {
  const auto& call = *static_cast<const GuardedCall*>(guarded_call);
  try {
    return call.filter(pointers);
  } catch (...) {
    return EXCEPTION_EXECUTE_HANDLER;
  }
}

}  // namespace

bool RunGuarded(void (*body)(void* argument), void* argument, GuardFilter filter) {
  GuardedCall call{body, argument, filter};
  return velkora_RunStructured(&RunAndTellOfThrow, &AskFilter, &call);
}

// GCC's handlers see no structured exception.
std::exception_ptr RunCatching(void (*body)(void* argument), void* argument) {
  try {
    body(argument);
    return nullptr;
  } catch (...) {
    return std::current_exception();
  }
}

}  // namespace win32
