// Faults, as the processor and Windows raise them.
#pragma once

#include "platform/win32_types.h"

namespace win32 {

#ifndef _WIN32
// Stands for a structured exception where there are none.
struct Fault {
  DWORD code;
};
#endif

// Raises a structured exception with `code` (an EXCEPTION_ value) at the place of the call. The
// library calls it where the described behaviour would leave a buffer or use a released object, so
// that nothing undefined happens and a guard further up sees the fault at that very point. Without
// structured exceptions it throws `Fault`.
[[noreturn]] void RaiseFault(DWORD code);

}  // namespace win32
