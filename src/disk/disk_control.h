// Control codes on an open disk or volume.
#pragma once

#include "platform/win32_types.h"

namespace velkora {

// Sends a code with input and without output. The reason of a failure is left in the last error.
bool ControlDisk(HANDLE device, DWORD code, void* in, DWORD in_size);

}  // namespace velkora
