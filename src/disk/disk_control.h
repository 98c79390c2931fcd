// Control codes on the open disk.
#pragma once

#include "platform/win32_types.h"

namespace velkora {

// Sends a code with input and without output. The reason of a failure is left in the last error.
bool ControlDisk(HANDLE disk, DWORD code, void* in, DWORD in_size);

}  // namespace velkora
