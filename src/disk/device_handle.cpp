#include "disk/device_handle.h"

#include "logging/log.h"
#include "platform/win32.h"

namespace velkora {
namespace {

constexpr DWORD kAccess = GENERIC_READ | GENERIC_WRITE;
constexpr DWORD kShare = FILE_SHARE_READ | FILE_SHARE_WRITE;

}  // namespace

HANDLE GetDeviceHandleById(const char* path) {
  const HANDLE handle =
      win32::CreateFileA(path, kAccess, kShare, nullptr, OPEN_EXISTING, /*flags=*/0, nullptr);
  if (handle == INVALID_HANDLE_VALUE) {
    LogEx(kLogModule, kLogError, "open device failed, device_id: %s, error_code: %d", path,
          static_cast<int>(win32::GetLastError()));
  }
  return handle;
}

HANDLE GetDeviceHandleByIndex(const std::uint32_t* index) {
  const std::string path =
      "\\\\.\\PhysicalDrive" + std::to_string(static_cast<std::int32_t>(*index));
  return GetDeviceHandleById(path.c_str());
}

HANDLE GetDeviceHandleByIdW(const WCHAR* path) {
  return win32::CreateFileW(path, kAccess, kShare, nullptr, OPEN_EXISTING, /*flags=*/0, nullptr);
}

HANDLE GetDeviceHandleUnbuffered(const WCHAR* path) {
  return win32::CreateFileW(
      path, kAccess, kShare, nullptr, OPEN_EXISTING,
      FILE_FLAG_WRITE_THROUGH | FILE_FLAG_NO_BUFFERING | FILE_FLAG_BACKUP_SEMANTICS, nullptr);
}

void CloseDeviceHandle(HANDLE& handle) {
  if (handle == INVALID_HANDLE_VALUE) return;
  win32::CloseHandle(handle);
  handle = INVALID_HANDLE_VALUE;
}

bool GetDeviceIndexByHandle(HANDLE handle, std::uint32_t* number, bool want_device) {
  STORAGE_DEVICE_NUMBER answer{};
  DWORD returned = 0;
  if (!win32::DeviceIoControl(handle, IOCTL_STORAGE_GET_DEVICE_NUMBER, nullptr, 0, &answer,
                              sizeof answer, &returned, nullptr)) {
    LogEx(kLogModule, kLogError, "DeviceIoControl with IOCTL_STORAGE_GET_DEVICE_NUMBER error %d",
          static_cast<int>(win32::GetLastError()));
    return false;
  }
  *number = want_device ? answer.DeviceNumber : answer.PartitionNumber;
  return true;
}

bool GetDeviceIndex(std::string path, std::uint32_t* number, bool want_device) {
  HANDLE handle = GetDeviceHandleById(path.c_str());
  if (handle == INVALID_HANDLE_VALUE) return false;
  const bool known = GetDeviceIndexByHandle(handle, number, want_device);
  CloseDeviceHandle(handle);
  return known;
}

}  // namespace velkora
