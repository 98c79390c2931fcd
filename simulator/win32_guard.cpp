// Faults and the guard of the seam. A fault is thrown here on every host, so that a test meets the
// same thing wherever it runs.
#include "platform/guard.h"
#include "simulator/call_log.h"

namespace win32 {
namespace {

// The code under which a throw of GCC's runtime reaches structured exception handling.
constexpr DWORD kCxxThrow = 0x20474343;
constexpr DWORD kNonContinuable = 1;

// Runs the body. The code of what ended it, or 0.
DWORD CodeOfEnd(void (*body)(void* argument), void* argument) {
  try {
    body(argument);
    return 0;
  } catch (const simulator::CallBudgetSpent&) {
    throw;
  } catch (const simulator::NoCurrentMachine&) {
    throw;
  } catch (const Fault& fault) {
    return fault.code;
  } catch (...) {
    return kCxxThrow;
  }
}

// What leaves the filter ends here, but for the abort of a test.
void AskFilter(GuardFilter filter, EXCEPTION_POINTERS* pointers) {
  try {
    filter(pointers);
  } catch (const simulator::CallBudgetSpent&) {
    throw;
  } catch (const simulator::NoCurrentMachine&) {
    throw;
  } catch (...) {
    return;
  }
}

}  // namespace

void RaiseFault(DWORD code) {
  throw Fault{code};
}

bool RunGuarded(void (*body)(void* argument), void* argument, GuardFilter filter) {
  const DWORD code = CodeOfEnd(body, argument);
  if (code == 0) return true;
  EXCEPTION_RECORD record{};
  record.ExceptionCode = code;
  record.ExceptionFlags = kNonContinuable;
  record.ExceptionAddress = reinterpret_cast<void*>(&RunGuarded);
  EXCEPTION_POINTERS pointers{};
  pointers.ExceptionRecord = &record;
  AskFilter(filter, &pointers);
  return false;
}

std::exception_ptr RunCatching(void (*body)(void* argument), void* argument) {
  try {
    body(argument);
    return nullptr;
  } catch (const simulator::CallBudgetSpent&) {
    throw;
  } catch (const simulator::NoCurrentMachine&) {
    throw;
  } catch (const Fault&) {
    throw;
  } catch (...) {
    return std::current_exception();
  }
}

}  // namespace win32
