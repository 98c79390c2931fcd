// Files and devices of the seam, answered by the current simulated machine.
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "simulator/open_path.h"
#include "simulator/seam_call.h"
#include "simulator/text.h"
#include "simulator/volume_files.h"

namespace win32 {
namespace {

using simulator::Describe;
using simulator::FailsOnDemand;
using simulator::HandleObject;
using simulator::HexText;
using simulator::System;
using simulator::ToResult;

// Codes as their documentation names them, for the record of calls; empty for any other.
std::string_view CodeName(DWORD code) {
  switch (code) {
    case IOCTL_DISK_CREATE_DISK:
      return "IOCTL_DISK_CREATE_DISK";
    case IOCTL_DISK_SET_DRIVE_LAYOUT_EX:
      return "IOCTL_DISK_SET_DRIVE_LAYOUT_EX";
    case IOCTL_DISK_GET_DRIVE_LAYOUT_EX:
      return "IOCTL_DISK_GET_DRIVE_LAYOUT_EX";
    case IOCTL_DISK_GET_PARTITION_INFO_EX:
      return "IOCTL_DISK_GET_PARTITION_INFO_EX";
    case IOCTL_DISK_UPDATE_PROPERTIES:
      return "IOCTL_DISK_UPDATE_PROPERTIES";
    case IOCTL_STORAGE_GET_DEVICE_NUMBER:
      return "IOCTL_STORAGE_GET_DEVICE_NUMBER";
    case IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS:
      return "IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS";
    case FSCTL_LOCK_VOLUME:
      return "FSCTL_LOCK_VOLUME";
    case FSCTL_UNLOCK_VOLUME:
      return "FSCTL_UNLOCK_VOLUME";
    case FSCTL_DISMOUNT_VOLUME:
      return "FSCTL_DISMOUNT_VOLUME";
    case FSCTL_GET_VOLUME_BITMAP:
      return "FSCTL_GET_VOLUME_BITMAP";
    case FSCTL_GET_RETRIEVAL_POINTERS:
      return "FSCTL_GET_RETRIEVAL_POINTERS";
    case FSCTL_MOVE_FILE:
      return "FSCTL_MOVE_FILE";
    case IOCTL_DISK_GET_DRIVE_GEOMETRY_EX:
      return "IOCTL_DISK_GET_DRIVE_GEOMETRY_EX";
    case IOCTL_STORAGE_QUERY_PROPERTY:
      return "IOCTL_STORAGE_QUERY_PROPERTY";
    default:
      return {};
  }
}

HANDLE Open(const char* name, const std::string& path, DWORD access, DWORD share, DWORD disposition,
            DWORD flags) {
  System& system = System::Current();
  const auto arguments = [=] {
    return "access " + HexText(access) + " share " + HexText(share) + " disposition " +
           std::to_string(disposition) + " flags " + HexText(flags);
  };
  const HANDLE none = system.switches().failed_open_gives_null ? nullptr : INVALID_HANDLE_VALUE;
  if (FailsOnDemand(system, name, path, arguments)) return none;
  std::unique_ptr<HandleObject> object;
  bool existed = false;
  const DWORD error =
      simulator::OpenPath(system, {path, access, disposition, flags}, object, existed);
  if (error != ERROR_SUCCESS) {
    SetLastError(error);
    return none;
  }
  const HANDLE handle = system.handles().Add(std::move(object));
  if (existed && (disposition == CREATE_ALWAYS || disposition == OPEN_ALWAYS)) {
    SetLastError(ERROR_ALREADY_EXISTS);
  }
  return handle;
}

std::uint64_t PositionOf(HandleObject* object) {
  std::uint64_t position = 0;
  if (object != nullptr) object->Seek(0, FILE_CURRENT, position);
  return position;
}

std::string TransferText(HandleObject* object, DWORD length) {
  return "offset " + std::to_string(PositionOf(object)) + " length " + std::to_string(length);
}

// A distance of one part is signed; of two parts, the lower is unsigned.
std::int64_t DistanceOf(LONG low, const LONG* high) {
  if (high == nullptr) return low;
  const auto upper = static_cast<std::uint64_t>(static_cast<std::uint32_t>(*high));
  return static_cast<std::int64_t>(upper << 32 | static_cast<std::uint32_t>(low));
}

// Without a place for the upper half, a position that needs it is refused and nothing moves.
DWORD Seek(HandleObject& object, LONG low, const LONG* high, DWORD method,
           std::uint64_t& position) {
  const std::uint64_t before = PositionOf(&object);
  const DWORD error = object.Seek(DistanceOf(low, high), method, position);
  if (error != ERROR_SUCCESS || high != nullptr || position <= 0xFFFFFFFF) return error;
  object.Seek(static_cast<std::int64_t>(before), FILE_BEGIN, position);
  return ERROR_INVALID_PARAMETER;
}

std::string MoveText(const void* in, DWORD in_size) {
  MOVE_FILE_DATA request;
  if (in == nullptr || in_size < sizeof request) return {};
  std::memcpy(&request, in, sizeof request);
  return " vcn " + std::to_string(request.StartingVcn.QuadPart) + " lcn " +
         std::to_string(request.StartingLcn.QuadPart) + " clusters " +
         std::to_string(request.ClusterCount);
}

}  // namespace

HANDLE CreateFileA(const char* path, DWORD access, DWORD share, SECURITY_ATTRIBUTES*,
                   DWORD disposition, DWORD flags, HANDLE) {
  return Open("CreateFileA", std::string(simulator::TextOrEmpty(path)), access, share, disposition,
              flags);
}

HANDLE CreateFileW(const WCHAR* path, DWORD access, DWORD share, SECURITY_ATTRIBUTES*,
                   DWORD disposition, DWORD flags, HANDLE) {
  return Open("CreateFileW", simulator::Utf16ToUtf8(path), access, share, disposition, flags);
}

BOOL CloseHandle(HANDLE handle) {
  System& system = System::Current();
  if (FailsOnDemand(system, "CloseHandle", Describe(system, handle))) return FALSE;
  // The same value names the calling process, which closing leaves alone.
  if (handle == INVALID_HANDLE_VALUE) return TRUE;
  return ToResult(system.handles().Close(handle) ? ERROR_SUCCESS : ERROR_INVALID_HANDLE);
}

DWORD SetFilePointer(HANDLE handle, LONG low, LONG* high, DWORD method) {
  System& system = System::Current();
  const std::string arguments =
      "distance " + std::to_string(DistanceOf(low, high)) + " method " + std::to_string(method);
  if (FailsOnDemand(system, "SetFilePointer", Describe(system, handle), arguments)) {
    return INVALID_SET_FILE_POINTER;
  }
  HandleObject* object = system.handles().Find(handle);
  std::uint64_t position = 0;
  const DWORD error =
      object == nullptr ? ERROR_INVALID_HANDLE : Seek(*object, low, high, method, position);
  if (error != ERROR_SUCCESS) {
    SetLastError(error);
    return INVALID_SET_FILE_POINTER;
  }
  if (high != nullptr) *high = static_cast<LONG>(position >> 32);
  return static_cast<DWORD>(position & 0xFFFFFFFF);
}

BOOL SetFilePointerEx(HANDLE handle, LARGE_INTEGER distance, LARGE_INTEGER* position,
                      DWORD method) {
  System& system = System::Current();
  const std::string arguments =
      "distance " + std::to_string(distance.QuadPart) + " method " + std::to_string(method);
  if (FailsOnDemand(system, "SetFilePointerEx", Describe(system, handle), arguments)) {
    return FALSE;
  }
  HandleObject* object = system.handles().Find(handle);
  std::uint64_t reached = 0;
  const DWORD error =
      object == nullptr ? ERROR_INVALID_HANDLE : object->Seek(distance.QuadPart, method, reached);
  if (error == ERROR_SUCCESS && position != nullptr) {
    position->QuadPart = static_cast<LONGLONG>(reached);
  }
  return ToResult(error);
}

BOOL ReadFile(HANDLE handle, void* buffer, DWORD length, DWORD* done, OVERLAPPED*) {
  System& system = System::Current();
  DWORD count = 0;
  if (done == nullptr) done = &count;
  *done = 0;
  HandleObject* object = system.handles().Find(handle);
  if (FailsOnDemand(system, "ReadFile", Describe(system, handle), TransferText(object, length))) {
    return FALSE;
  }
  if (object == nullptr) return ToResult(ERROR_INVALID_HANDLE);
  return ToResult(object->Read({static_cast<std::byte*>(buffer), length}, *done));
}

BOOL WriteFile(HANDLE handle, const void* buffer, DWORD length, DWORD* done, OVERLAPPED*) {
  System& system = System::Current();
  DWORD count = 0;
  if (done == nullptr) done = &count;
  *done = 0;
  HandleObject* object = system.handles().Find(handle);
  if (FailsOnDemand(system, "WriteFile", Describe(system, handle), TransferText(object, length))) {
    return FALSE;
  }
  if (object == nullptr) return ToResult(ERROR_INVALID_HANDLE);
  return ToResult(object->Write({static_cast<const std::byte*>(buffer), length}, *done));
}

BOOL DeviceIoControl(HANDLE handle, DWORD code, void* in, DWORD in_size, void* out, DWORD out_size,
                     DWORD* returned, OVERLAPPED*) {
  System& system = System::Current();
  DWORD count = 0;
  if (returned == nullptr) returned = &count;
  *returned = 0;
  const auto arguments = [&] {
    return Describe(system, handle) + " in " + std::to_string(in_size) + " out " +
           std::to_string(out_size) +
           (code == FSCTL_MOVE_FILE ? MoveText(in, in_size) : std::string());
  };
  const std::string_view known = CodeName(code);
  const std::string other = known.empty() ? HexText(code) : std::string();
  if (FailsOnDemand(system, "DeviceIoControl", known.empty() ? other : known, arguments)) {
    return FALSE;
  }
  HandleObject* object = system.handles().Find(handle);
  if (object == nullptr) return ToResult(ERROR_INVALID_HANDLE);
  const std::span<const std::byte> input(static_cast<const std::byte*>(in),
                                         in == nullptr ? 0 : in_size);
  const std::span<std::byte> output(static_cast<std::byte*>(out), out == nullptr ? 0 : out_size);
  return ToResult(object->Control(code, input, output, *returned));
}

BOOL FlushFileBuffers(HANDLE handle) {
  System& system = System::Current();
  if (FailsOnDemand(system, "FlushFileBuffers", Describe(system, handle))) return FALSE;
  HandleObject* object = system.handles().Find(handle);
  return ToResult(object == nullptr ? ERROR_INVALID_HANDLE : object->Flush());
}

BOOL DeleteFileA(const char* path) {
  System& system = System::Current();
  const std::string name(simulator::TextOrEmpty(path));
  if (FailsOnDemand(system, "DeleteFileA", name)) return FALSE;
  return ToResult(simulator::VolumeFiles(system).Remove(name));
}

BOOL SetFileAttributesW(const WCHAR* path, DWORD attributes) {
  System& system = System::Current();
  const std::string name = simulator::Utf16ToUtf8(path);
  const auto arguments = [attributes] { return "attributes " + HexText(attributes); };
  if (FailsOnDemand(system, "SetFileAttributesW", name, arguments)) return FALSE;
  return ToResult(simulator::VolumeFiles(system).SetAttributes(name, attributes));
}

}  // namespace win32
