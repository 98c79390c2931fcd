#include "platform/guard.h"

namespace win32 {

void RaiseFault(DWORD code) {
  // RaiseException comes back when a debugger or a vectored handler goes on all the same.
  for (;;) RaiseException(code, EXCEPTION_NONCONTINUABLE, 0, nullptr);
}

}  // namespace win32
