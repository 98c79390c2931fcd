// Opening disks and volumes, and telling what a handle stands for. All opens ask for reading and
// writing, share both, and open what exists. Whoever opens a handle closes it.
#pragma once

#include <cstdint>
#include <string>

#include "platform/win32_types.h"

namespace velkora {

// Opens a device or volume path as it stands. On failure logs
// "open device failed, device_id: %s, error_code: %d" (level 3), returns INVALID_HANDLE_VALUE, and
// the last error is that of the open.
HANDLE GetDeviceHandleById(const char* path);

// Opens \\.\PhysicalDriveN for the number that `index` points to; as above.
HANDLE GetDeviceHandleByIndex(const std::uint32_t* index);

// Opens a wide path, without logging. The second bypasses the cache, writes through, and opens
// folders too; its transfers must be aligned to sectors.
HANDLE GetDeviceHandleByIdW(const WCHAR* path);
HANDLE GetDeviceHandleUnbuffered(const WCHAR* path);

// Closes a handle and sets the reference to INVALID_HANDLE_VALUE, which is also what it ignores.
void CloseDeviceHandle(HANDLE& handle);

// Stores the device number (`want_device`) or the partition number that the handle stands for. On
// failure logs "DeviceIoControl with IOCTL_STORAGE_GET_DEVICE_NUMBER error %d" (level 3), stores
// nothing and returns false.
bool GetDeviceIndexByHandle(HANDLE handle, std::uint32_t* number, bool want_device);

// The same for a path, which is opened for the call with GetDeviceHandleById.
bool GetDeviceIndex(std::string path, std::uint32_t* number, bool want_device);

}  // namespace velkora
