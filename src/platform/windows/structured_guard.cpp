#include "platform/windows/structured_guard.h"

// The code under which a throw of GCC's runtime reaches structured exception handling.
static constexpr DWORD kCxxThrow = 0x20474343;

// The stand-in for a throw is raised in this very frame: no frame of GCC's, whose runtime would
// take the code for an exception of its own, lies between it and the handler.
extern "C" bool velkora_RunStructured(bool (*body)(void* argument),
                                      LONG (*filter)(void* argument, EXCEPTION_POINTERS* pointers),
                                      void* argument) {
  __try {
    if (body(argument)) RaiseException(kCxxThrow, EXCEPTION_NONCONTINUABLE, 0, nullptr);
  } __except (filter(argument, GetExceptionInformation())) {
    return false;
  }
  return true;
}

extern "C" void velkora_RunFinally(void (*body)(void* argument), void (*end)(void* argument),
                                   void* argument) {
  __try {
    body(argument);
  } __finally {
    end(argument);
  }
}
