// The parts of the guard and of the gate that only a compiler with structured exception handling
// can translate. They are built apart, so nothing of the C++ library is used here.
#pragma once

// clang-format off
#include <windows.h>
// clang-format on

// Calls `body` under a structured guard. When it returns true, raises the exception that stands for
// a C++ throw. True when nothing was raised; otherwise `filter` has been called with the same
// argument, and said EXCEPTION_EXECUTE_HANDLER. No C++ exception may leave either.
extern "C" bool velkora_RunStructured(bool (*body)(void* argument),
                                      LONG (*filter)(void* argument, EXCEPTION_POINTERS* pointers),
                                      void* argument);

// Calls `body`, and then `end` in any case: when a structured exception leaves the body, on its way
// to the handler. No C++ exception may leave either.
extern "C" void velkora_RunFinally(void (*body)(void* argument), void (*end)(void* argument),
                                   void* argument);
