// Writes the state of a crashed process to a file, by way of DbgHelp, which is loaded when it is
// needed.
//
// Public source: Microsoft's documentation of MiniDumpWriteDump.
#pragma once

#include <cstdint>

#include "platform/win32_types.h"

namespace velkora {

// Writes a dump of the calling process to `path`, in place of a file that is there. The calling
// thread is named as the one that crashed; `pointers` are what a filter was given, or null for a
// dump without an exception. `*written`, unless `written` is null, becomes 1 if the dump was
// written and 0 if the writer failed. Returns 1 if it was called, -1 if it never came to that
// (library, function or file missing), with `*written` untouched. Logs nothing.
std::int32_t WriteDump(EXCEPTION_POINTERS* pointers, const char* path, std::uint8_t* written);

}  // namespace velkora
