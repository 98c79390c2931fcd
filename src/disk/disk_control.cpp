#include "disk/disk_control.h"

#include "platform/win32.h"

namespace velkora {

bool ControlDisk(HANDLE device, DWORD code, void* in, DWORD in_size) {
  DWORD returned = 0;
  return win32::DeviceIoControl(device, code, in, in_size, nullptr, 0, &returned, nullptr) != FALSE;
}

}  // namespace velkora
