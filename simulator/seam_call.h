// What every operation of the seam does first and last.
#pragma once

#include <concepts>
#include <string>
#include <string_view>

#include "platform/win32.h"
#include "simulator/handle_object.h"
#include "simulator/system.h"

namespace simulator {

// Notes a call on the machine. True if it has to fail; the last error is set then.
inline bool FailsOnDemand(System& system, std::string_view name, std::string_view detail = {},
                          std::string_view arguments = {}) {
  const DWORD error = system.calls().Note(name, detail, arguments);
  if (error == ERROR_SUCCESS) return false;
  win32::SetLastError(error);
  return true;
}

// The same, for arguments whose text takes time: `arguments` makes it when calls are kept.
template <std::invocable MakeText>
bool FailsOnDemand(System& system, std::string_view name, std::string_view detail,
                   const MakeText& arguments) {
  return FailsOnDemand(system, name, detail,
                       system.calls().keeps_calls ? arguments() : std::string());
}

// TRUE, or FALSE with the last error set.
inline BOOL ToResult(DWORD error) {
  if (error == ERROR_SUCCESS) return TRUE;
  win32::SetLastError(error);
  return FALSE;
}

inline std::string_view TextOrEmpty(const char* text) {
  return text == nullptr ? std::string_view() : text;
}

// What a handle stands for; empty for one that is not open.
inline std::string Describe(System& system, HANDLE handle) {
  const HandleObject* object = system.handles().Find(handle);
  return object == nullptr ? std::string() : object->Describe();
}

}  // namespace simulator
