#include "host/disk_list.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>

#include "host/device.h"
#include "host/host_error.h"

namespace velkora_host {
namespace {

constexpr GUID kDiskInterface = {
    0x53F56307, 0xB6BF, 0x11D0, {0x94, 0xF2, 0x00, 0xA0, 0xC9, 0x1E, 0xFB, 0x8B}};

// The path of an interface, or "" when the system does not tell it.
std::string PathOf(HDEVINFO set, SP_DEVICE_INTERFACE_DATA& interface) {
  DWORD size = 0;
  win32::SetupDiGetDeviceInterfaceDetailA(set, &interface, nullptr, 0, &size, nullptr);
  if (size < sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_A)) return "";
  // In words, so that the structure at its start is aligned.
  std::vector<DWORD> buffer(size / sizeof(DWORD) + 1);
  auto* detail = reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_A*>(buffer.data());
  detail->cbSize = sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_A);
  if (!win32::SetupDiGetDeviceInterfaceDetailA(set, &interface, detail, size, nullptr, nullptr)) {
    return "";
  }
  const char* path = reinterpret_cast<const char*>(buffer.data()) +
                     offsetof(SP_DEVICE_INTERFACE_DETAIL_DATA_A, DevicePath);
  return {path, strnlen(path, size - offsetof(SP_DEVICE_INTERFACE_DETAIL_DATA_A, DevicePath))};
}

std::optional<std::uint32_t> NumberOf(const std::string& path) {
  try {
    return Device(path)
        .Ask<STORAGE_DEVICE_NUMBER>(IOCTL_STORAGE_GET_DEVICE_NUMBER, "its number")
        .DeviceNumber;
  } catch (const HostError&) {
    return std::nullopt;
  }
}

}  // namespace

std::vector<std::uint32_t> ListDisks() {
  const HDEVINFO set = win32::SetupDiGetClassDevsW(&kDiskInterface, nullptr, nullptr,
                                                   DIGCF_PRESENT | DIGCF_DEVICEINTERFACE);
  if (set == INVALID_HANDLE_VALUE) {
    throw HostError("the disks are not listed: " + ErrorText(win32::GetLastError()));
  }
  std::vector<std::uint32_t> numbers;
  SP_DEVICE_INTERFACE_DATA interface {};
  interface.cbSize = sizeof interface;
  for (DWORD i = 0;
       win32::SetupDiEnumDeviceInterfaces(set, nullptr, &kDiskInterface, i, &interface); ++i) {
    const std::string path = PathOf(set, interface);
    const auto number = path.empty() ? std::nullopt : NumberOf(path);
    if (number) numbers.push_back(*number);
  }
  std::sort(numbers.begin(), numbers.end());
  return numbers;
}

}  // namespace velkora_host
