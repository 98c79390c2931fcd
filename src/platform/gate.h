// A gate for calls that leave the library, which one thread at a time passes.
#pragma once

#include <memory>
#include <type_traits>

namespace win32 {

struct Gate;
// A gate is never freed. Throws std::bad_alloc.
Gate* NewGate();

// Waits until no other thread is in the gate, and calls `body` with `argument` in it. A thread that
// is in the gate may enter it again. The gate is left however the call ends: by a return, by a C++
// exception or by a structured exception; both exceptions pass.
void RunInGate(Gate* gate, void (*body)(void* argument), void* argument);

template <typename Body>
void InGate(Gate* gate, Body&& body) {
  using Plain = std::remove_reference_t<Body>;
  RunInGate(
      gate, [](void* argument) { (*static_cast<Plain*>(argument))(); }, std::addressof(body));
}

}  // namespace win32
