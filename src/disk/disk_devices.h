// All disks of the machine by their device interface paths, and what a disk says of itself.
//
// A path may stop opening and a number may move when a table is rewritten; the serial number stays.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/win32_types.h"

namespace velkora {

// Appends the device interface paths of all present disks, in the order in which the system lists
// them. Returns whether `paths` is not empty then; otherwise logs
// "SetupDiGetClassDevs or SetupDiEnumDeviceInterfaces error %lu" (level 3). A disk whose path
// cannot be had is logged ("SetupDiGetDeviceInterfaceDetailA error %lu", level 3) and left out; a
// stop ends the list where it is. The device information set stays open.
bool GetDiskDevicePaths(std::vector<std::string>& paths);

// Replaces `serial` by the disk's serial number as the device gives it, with its blanks. On failure
// logs "DeviceIoControl with IOCTL_STORAGE_QUERY_PROPERTY error %lu" (level 3), behind a line of
// its own for a descriptor of size 0, and leaves `serial`. Raises an access violation for a
// descriptor that is too short to hold the place of the serial number.
bool GetDiskSerialId(HANDLE handle, std::string& serial);

// Stores the disk's size in bytes. Logs "Get Disk Size..." and, on success, "Get Disk Size End!"
// (level 1); a failure logs nothing more.
bool GetDiskSize(const HANDLE* handle, std::uint64_t* size);

}  // namespace velkora
