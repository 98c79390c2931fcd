// Moving bytes between memory and a place on a device, with three attempts.
#pragma once

#include <cstdint>

#include "platform/win32_types.h"

namespace velkora {

// Move `length` bytes at `*position` (bytes from the start of the device). Both must be whole
// sectors, as a raw device demands. True only if all bytes were moved; `done`, if given, holds the
// count of the last attempt. Three attempts without a pause; each failed transfer, also a short
// one, logs "Read Data Error! error_code: %d" or "Write Data Error! error_code: %d" (level 3), a
// failed seek nothing. The upper half of `*position` is written by the seek.
// A position whose lower 32 bits are all set counts as a failed seek, though it is legal.
bool ReadData(const HANDLE* handle, LARGE_INTEGER* position, void* buffer, std::uint32_t length,
              std::uint32_t* done);
bool WriteData(const HANDLE* handle, LARGE_INTEGER* position, const void* buffer,
               std::uint32_t length, std::uint32_t* done);

}  // namespace velkora
