// Faults, as the processor and Windows raise them, and the guard that they end in.
#pragma once

#include <exception>
#include <memory>
#include <type_traits>

#include "platform/win32_types.h"

namespace win32 {

// Stands for a structured exception on the simulated machine.
struct Fault {
  DWORD code;
};

// Raises a structured exception with `code` (an EXCEPTION_ value) at the place of the call. The
// library calls it where its rules would lead out of a buffer or to a released object, so that
// nothing undefined happens and a guard further up sees the fault at that very point. The simulated
// machine throws `Fault` instead.
[[noreturn]] void RaiseFault(DWORD code);

// Looks at a fault before the guard takes it. It returns EXCEPTION_EXECUTE_HANDLER, always; the
// pointers are good until it returns. A C++ exception that leaves it, as for lack of memory, ends
// in the guard, which takes the fault all the same.
using GuardFilter = LONG (*)(EXCEPTION_POINTERS* pointers);

// Calls `body` with `argument`. When a structured exception or any C++ exception leaves it, calls
// `filter`, once, on this thread, and returns false; otherwise true. A C++ exception reaches the
// filter as the code of the compiler's throw, with the place of the guard as its address. A C++
// exception runs destructors on its way and a structured one runs none, so nothing may depend on
// them. The abort by which a test ends an endless walk passes.
bool RunGuarded(void (*body)(void* argument), void* argument, GuardFilter filter);

template <typename Body>
bool Guarded(Body&& body, GuardFilter filter) {
  using Plain = std::remove_reference_t<Body>;
  return RunGuarded([](void* argument) { (*static_cast<Plain*>(argument))(); },
                    std::addressof(body), filter);
}

// Calls `body` with `argument`. Returns the C++ exception that left it, or null when it returned. A
// structured exception passes, and so does the abort by which a test ends an endless walk.
std::exception_ptr RunCatching(void (*body)(void* argument), void* argument);

template <typename Body>
std::exception_ptr Catching(Body&& body) {
  using Plain = std::remove_reference_t<Body>;
  return RunCatching([](void* argument) { (*static_cast<Plain*>(argument))(); },
                     std::addressof(body));
}

}  // namespace win32
