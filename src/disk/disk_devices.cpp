#include "disk/disk_devices.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <iterator>

#include "frame/global_context.h"
#include "logging/log.h"
#include "platform/guard.h"
#include "platform/win32.h"

namespace velkora {
namespace {

constexpr GUID kDiskInterfaceClass = {
    0x53F56307, 0xB6BF, 0x11D0, {0x94, 0xF2, 0x00, 0xA0, 0xC9, 0x1E, 0xFB, 0x8B}};

// An interface's path behind the word that holds the size of the fixed structure.
struct InterfaceDetail {
  alignas(SP_DEVICE_INTERFACE_DETAIL_DATA_A) std::array<char, 2048> bytes{};

  InterfaceDetail() {
    const DWORD fixed_size = sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_A);
    std::memcpy(bytes.data(), &fixed_size, sizeof fixed_size);
  }
  SP_DEVICE_INTERFACE_DETAIL_DATA_A* data() {
    return reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_A*>(bytes.data());
  }
  std::string Path() const {
    const char* const path = bytes.data() + offsetof(SP_DEVICE_INTERFACE_DETAIL_DATA_A, DevicePath);
    return std::string(path, std::find(path, bytes.data() + bytes.size(), '\0'));
  }
};

// Walks the present disks. The set is not destroyed: each walk leaves one open until the process
// ends.
void AppendDiskPaths(std::vector<std::string>& paths) {
  const HDEVINFO set = win32::SetupDiGetClassDevsW(&kDiskInterfaceClass, nullptr, nullptr,
                                                   DIGCF_PRESENT | DIGCF_DEVICEINTERFACE);
  if (set == INVALID_HANDLE_VALUE) return;
  SP_DEVICE_INTERFACE_DATA member{};
  member.cbSize = sizeof member;
  InterfaceDetail detail;
  for (DWORD n = 0;
       win32::SetupDiEnumDeviceInterfaces(set, nullptr, &kDiskInterfaceClass, n, &member); ++n) {
    if (StopRequested()) return;
    if (win32::SetupDiGetDeviceInterfaceDetailA(set, &member, detail.data(),
                                                static_cast<DWORD>(detail.bytes.size()), nullptr,
                                                nullptr)) {
      paths.push_back(detail.Path());
    } else {
      LogEx(kLogModule, kLogError, "SetupDiGetDeviceInterfaceDetailA error %lu",
            static_cast<unsigned long>(win32::GetLastError()));
    }
  }
}

bool QueryProperty(HANDLE disk, void* answer, DWORD size) {
  STORAGE_PROPERTY_QUERY query{};  // the device's descriptor, by the standard query
  DWORD returned = 0;
  return win32::DeviceIoControl(disk, IOCTL_STORAGE_QUERY_PROPERTY, &query, sizeof query, answer,
                                size, &returned, nullptr) != FALSE;
}

// Makes `descriptor` as long as the device says that it is, and fills it.
bool QueryDescriptor(HANDLE disk, std::vector<std::byte>& descriptor) {
  STORAGE_DESCRIPTOR_HEADER header{};
  if (!QueryProperty(disk, &header, sizeof header)) return false;
  if (header.Size == 0) {
    LogEx(kLogModule, kLogError,
          "DeviceIoControl with IOCTL_STORAGE_QUERY_PROPERTY STORAGE_DESCRIPTOR_HEADER Size == 0 "
          "%lu",
          static_cast<unsigned long>(win32::GetLastError()));
    return false;
  }
  descriptor.resize(header.Size);
  return QueryProperty(disk, descriptor.data(), header.Size);
}

// An offset of 0, by which a device says that it has no serial number, is taken like any other: the
// text is then that of the descriptor's first bytes, its version. What was stored as the serial
// number of such a disk is that text, so it has to stay the same.
std::string SerialText(const std::vector<std::byte>& descriptor) {
  constexpr std::size_t kField = offsetof(STORAGE_DEVICE_DESCRIPTOR, SerialNumberOffset);
  DWORD offset = 0;
  if (descriptor.size() < kField + sizeof offset) win32::RaiseFault(EXCEPTION_ACCESS_VIOLATION);
  std::memcpy(&offset, descriptor.data() + kField, sizeof offset);
  if (offset >= descriptor.size()) return {};
  const auto first = descriptor.begin() + static_cast<std::ptrdiff_t>(offset);
  const auto end = std::find(first, descriptor.end(), std::byte{0});
  std::string text;
  std::transform(first, end, std::back_inserter(text),
                 [](std::byte byte) { return std::to_integer<char>(byte); });
  return text;
}

}  // namespace

bool GetDiskDevicePaths(std::vector<std::string>& paths) {
  AppendDiskPaths(paths);
  if (!paths.empty()) return true;
  // After a stop the code is whatever an earlier call has left.
  LogEx(kLogModule, kLogError, "SetupDiGetClassDevs or SetupDiEnumDeviceInterfaces error %lu",
        static_cast<unsigned long>(win32::GetLastError()));
  return false;
}

bool GetDiskSerialId(HANDLE handle, std::string& serial) {
  std::vector<std::byte> descriptor;
  if (!QueryDescriptor(handle, descriptor)) {
    LogEx(kLogModule, kLogError, "DeviceIoControl with IOCTL_STORAGE_QUERY_PROPERTY error %lu",
          static_cast<unsigned long>(win32::GetLastError()));
    return false;
  }
  serial = SerialText(descriptor);
  return true;
}

bool GetDiskSize(const HANDLE* handle, std::uint64_t* size) {
  LogEx(kLogModule, kLogProgress, "Get Disk Size...");
  DISK_GEOMETRY_EX geometry{};
  DWORD returned = 0;
  if (!win32::DeviceIoControl(*handle, IOCTL_DISK_GET_DRIVE_GEOMETRY_EX, nullptr, 0, &geometry,
                              sizeof geometry, &returned, nullptr)) {
    return false;
  }
  *size = static_cast<std::uint64_t>(geometry.DiskSize.QuadPart);
  LogEx(kLogModule, kLogProgress, "Get Disk Size End!");
  return true;
}

}  // namespace velkora
