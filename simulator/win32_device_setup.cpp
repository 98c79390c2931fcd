// Device setup of the seam, answered by the current simulated machine.
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "simulator/disk.h"
#include "simulator/handle_object.h"
#include "simulator/seam_call.h"

namespace win32 {
namespace {

using simulator::FailsOnDemand;
using simulator::HandleObject;
using simulator::System;
using simulator::ToResult;

constexpr GUID kDiskInterfaceClass = {
    0x53F56307, 0xB6BF, 0x11D0, {0x94, 0xF2, 0x00, 0xA0, 0xC9, 0x1E, 0xFB, 0x8B}};
constexpr std::size_t kPathOffset = offsetof(SP_DEVICE_INTERFACE_DETAIL_DATA_A, DevicePath);

// An open device information set: the interface paths as they were when it was opened.
class DeviceInfoSet : public HandleObject {
 public:
  explicit DeviceInfoSet(std::vector<std::string> paths) : paths_(std::move(paths)) {}

  std::string Describe() const override { return "device information set"; }
  const std::vector<std::string>& paths() const { return paths_; }

 private:
  std::vector<std::string> paths_;
};

// The interface paths of the disks, in the order in which they were attached.
std::vector<std::string> DiskInterfacePaths(System& system) {
  std::vector<std::string> paths;
  for (const simulator::Disk& disk : system.disks()) {
    if (!disk.identity.interface_path.empty()) paths.push_back(disk.identity.interface_path);
  }
  return paths;
}

bool IsDiskClass(const GUID& interface_class) {
  return std::memcmp(&interface_class, &kDiskInterfaceClass, sizeof(GUID)) == 0;
}

const DeviceInfoSet* FindSet(System& system, HDEVINFO set) {
  return dynamic_cast<const DeviceInfoSet*>(system.handles().Find(set));
}

DWORD Enumerate(const DeviceInfoSet* set, const GUID* interface_class, DWORD index,
                SP_DEVICE_INTERFACE_DATA* data) {
  if (set == nullptr) return ERROR_INVALID_HANDLE;
  if (interface_class == nullptr || data == nullptr) return ERROR_INVALID_PARAMETER;
  if (data->cbSize != sizeof *data) return ERROR_INVALID_USER_BUFFER;
  if (!IsDiskClass(*interface_class) || index >= set->paths().size()) return ERROR_NO_MORE_ITEMS;
  data->InterfaceClassGuid = *interface_class;
  data->Flags = 1;             // the interface is active
  data->Reserved = index + 1;  // which interface this is, for those that are handed it back
  return ERROR_SUCCESS;
}

DWORD GetDetail(const DeviceInfoSet* set, const SP_DEVICE_INTERFACE_DATA* data,
                SP_DEVICE_INTERFACE_DETAIL_DATA_A* detail, DWORD detail_size, DWORD& required) {
  if (set == nullptr) return ERROR_INVALID_HANDLE;
  if (data == nullptr || data->Reserved == 0 || data->Reserved > set->paths().size()) {
    return ERROR_INVALID_PARAMETER;
  }
  const std::string& path = set->paths()[static_cast<std::size_t>(data->Reserved - 1)];
  required = static_cast<DWORD>(kPathOffset + path.size() + 1);
  if (detail_size < required) return ERROR_INSUFFICIENT_BUFFER;
  if (detail == nullptr || detail->cbSize != sizeof *detail) return ERROR_INVALID_USER_BUFFER;
  std::memcpy(reinterpret_cast<std::byte*>(detail) + kPathOffset, path.c_str(), path.size() + 1);
  return ERROR_SUCCESS;
}

}  // namespace

HDEVINFO SetupDiGetClassDevsW(const GUID* interface_class, const WCHAR*, HWND, DWORD flags) {
  System& system = System::Current();
  if (FailsOnDemand(system, "SetupDiGetClassDevsW", {}, "flags " + std::to_string(flags))) {
    return INVALID_HANDLE_VALUE;
  }
  if (interface_class == nullptr) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return INVALID_HANDLE_VALUE;
  }
  std::vector<std::string> paths;
  if (IsDiskClass(*interface_class) && (flags & DIGCF_DEVICEINTERFACE) != 0) {
    paths = DiskInterfacePaths(system);
  }
  return system.handles().Add(std::make_unique<DeviceInfoSet>(std::move(paths)));
}

BOOL SetupDiEnumDeviceInterfaces(HDEVINFO set, SP_DEVINFO_DATA*, const GUID* interface_class,
                                 DWORD index, SP_DEVICE_INTERFACE_DATA* data) {
  System& system = System::Current();
  if (FailsOnDemand(system, "SetupDiEnumDeviceInterfaces", {}, "index " + std::to_string(index))) {
    return FALSE;
  }
  return ToResult(Enumerate(FindSet(system, set), interface_class, index, data));
}

BOOL SetupDiGetDeviceInterfaceDetailA(HDEVINFO set, SP_DEVICE_INTERFACE_DATA* data,
                                      SP_DEVICE_INTERFACE_DETAIL_DATA_A* detail, DWORD detail_size,
                                      DWORD* required, SP_DEVINFO_DATA*) {
  System& system = System::Current();
  if (FailsOnDemand(system, "SetupDiGetDeviceInterfaceDetailA", {},
                    "size " + std::to_string(detail_size))) {
    return FALSE;
  }
  DWORD needed = 0;
  const DWORD error = GetDetail(FindSet(system, set), data, detail, detail_size, needed);
  if (required != nullptr) *required = needed;
  return ToResult(error);
}

}  // namespace win32
