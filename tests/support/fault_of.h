#pragma once

#include "platform/guard.h"

namespace testing_support {

// The code of the fault that `body` raises, or 0.
template <typename Body>
DWORD FaultOf(Body body) {
  try {
    body();
  } catch (const win32::Fault& fault) {
    return fault.code;
  }
  return 0;
}

}  // namespace testing_support
