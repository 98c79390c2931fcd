#include "disk/reidentify.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "disk/device_handle.h"
#include "disk/disk_control.h"
#include "disk/disk_devices.h"
#include "disk/drive_layout.h"
#include "disk/volumes.h"
#include "frame/disk_records.h"
#include "frame/global_context.h"
#include "logging/log.h"
#include "platform/guard.h"
#include "platform/win32.h"

namespace velkora {
namespace {

constexpr std::size_t kLayoutRows = 129;

// The path's bytes without a terminator, over what the field holds.
template <std::size_t kCapacity>
void CopyPath(char (&field)[kCapacity], const std::string& path) {
  if (path.size() > kCapacity) win32::RaiseFault(EXCEPTION_ACCESS_VIOLATION);
  std::memcpy(field, path.data(), path.size());
}

template <std::size_t kCapacity>
void ReplacePath(char (&field)[kCapacity], const std::string& path) {
  std::memset(field, 0, kCapacity);
  CopyPath(field, path);
}

// Blanks alone are trimmed, no other white space.
std::string TrimBlanks(std::string_view text) {
  const std::size_t first = text.find_first_not_of(' ');
  if (first == std::string_view::npos) return {};
  return std::string(text.substr(first, text.find_last_not_of(' ') - first + 1));
}

// As far as the shorter one goes: devices and drivers cut serial numbers or append to them. So an
// empty one matches everything; callers live with that.
bool SerialsMatch(std::string_view left, std::string_view right) {
  const std::size_t length = std::min(left.size(), right.size());
  return left.substr(0, length) == right.substr(0, length);
}

// Whether an open has failed because the name leads to nothing.
bool IsNotFound(DWORD error) {
  return error == ERROR_FILE_NOT_FOUND || error == ERROR_INVALID_HANDLE;
}

// Whether the open disk has this serial number, which is trimmed; also gives the disk's number.
bool IsDiskWithSerial(HANDLE disk, std::string_view serial, std::uint32_t& number) {
  std::string device_serial;
  return GetDeviceIndexByHandle(disk, &number, /*want_device=*/true) &&
         GetDiskSerialId(disk, device_serial) && SerialsMatch(serial, TrimBlanks(device_serial));
}

bool FindDiskBySerial(DiskInfo& disk, HANDLE& handle) {
  const std::string serial = TrimBlanks(FieldText(disk.serial_num));
  std::vector<std::string> paths;
  if (!GetDiskDevicePaths(paths)) return false;
  for (const std::string& path : paths) {
    if (StopRequested()) return false;
    HANDLE candidate = GetDeviceHandleById(path.c_str());
    if (candidate == INVALID_HANDLE_VALUE) continue;
    std::uint32_t number = 0;
    if (IsDiskWithSerial(candidate, serial, number)) {
      disk.index = number;
      ReplacePath(disk.id, path);
      handle = candidate;
      return true;
    }
    CloseDeviceHandle(candidate);
  }
  return false;
}

// Stores the path of the first disk for which `matches(path, handle, number)` is true and hands out
// its handle. The others' handles are left open: each stays so until the process ends.
template <typename Matches>
bool CorrectDisk(DiskInfo& disk, HANDLE& handle, const Matches& matches) {
  std::vector<std::string> paths;
  if (!GetDiskDevicePaths(paths)) {
    LogEx(kLogModule, kLogError, "GetDiskDevicePaths Fail");
    return false;
  }
  for (const std::string& path : paths) {
    if (StopRequested()) return false;
    const HANDLE candidate = GetDeviceHandleById(path.c_str());
    if (candidate == INVALID_HANDLE_VALUE) {
      LogEx(kLogModule, kLogError, "GetDeviceHandleById Fail");
      continue;
    }
    std::uint32_t number = 0;
    if (!GetDeviceIndexByHandle(candidate, &number, /*want_device=*/true)) {
      LogEx(kLogModule, kLogError, "GetDeviceIndexByHandle Fail");
      continue;
    }
    if (!matches(path, candidate, number)) continue;
    disk.index = number;
    ReplacePath(disk.id, path);
    handle = candidate;
    LogEx(kLogModule, kLogProgress, "correct device_path: %s", path.c_str());
    return true;
  }
  return false;
}

bool GetVolumePathsOrLog(std::vector<std::string>& paths) {
  if (GetVolumeDevicePaths(paths)) return true;
  LogEx(kLogModule, kLogError, "GetVolumePaths Error: %lu",
        static_cast<unsigned long>(win32::GetLastError()));
  return false;
}

// Whether the volume starts at this place. `error_word` is how the message of a volume that does
// not tell its place spells "error".
bool StartsAt(const std::string& path, std::uint32_t disk_index, std::uint64_t offset,
              const char* error_word) {
  std::uint32_t volume_disk = 0;
  std::uint64_t volume_offset = 0;
  if (!GetPartitionDiskindexAndOffset(path, volume_disk, volume_offset)) {
    LogEx(kLogModule, kLogError, "GetPartitionDiskindexAndOffset %s: %d, volume_id: %s", error_word,
          static_cast<int>(win32::GetLastError()), path.c_str());
    return false;
  }
  return volume_disk == disk_index && volume_offset == offset;
}

void LogRow(const char* when, const PARTITION_INFORMATION_EX& row) {
  LogEx(kLogModule, kLogProgress, "%s part number: %d, start: %llu, length: %llu", when,
        static_cast<int>(row.PartitionNumber),
        static_cast<unsigned long long>(row.StartingOffset.QuadPart),
        static_cast<unsigned long long>(row.PartitionLength.QuadPart));
}

// The number of each start offset, in ascending order from 1, of the rows that have a number.
std::map<std::uint64_t, DWORD> NumbersByStart(const LayoutBuffer& layout) {
  std::map<std::uint64_t, DWORD> numbers;
  for (DWORD i = 0; i < layout.header().PartitionCount; ++i) {
    const PARTITION_INFORMATION_EX row = layout.row(i);
    if (row.PartitionNumber == 0) continue;
    LogRow("before", row);
    numbers[static_cast<std::uint64_t>(row.StartingOffset.QuadPart)] = 0;
  }
  DWORD number = 0;
  for (auto& entry : numbers) entry.second = ++number;
  return numbers;
}

void RenumberRows(LayoutBuffer& layout) {
  const std::map<std::uint64_t, DWORD> numbers = NumbersByStart(layout);
  for (DWORD i = 0; i < layout.header().PartitionCount; ++i) {
    PARTITION_INFORMATION_EX row = layout.row(i);
    if (row.PartitionNumber == 0) continue;
    row.PartitionNumber = numbers.at(static_cast<std::uint64_t>(row.StartingOffset.QuadPart));
    row.RewritePartition = 1;
    layout.SetRow(i, row);
    LogRow("now", row);
  }
}

}  // namespace

bool CheckAndUpdateDiskInfo(Velkora& converter) {
  LogEx(kLogModule, kLogProgress, "Check and update disk info");
  DiskInfo& disk = *converter.disk_info;
  converter.disk_handle = GetDeviceHandleById(FieldText(disk.id).c_str());
  if (converter.disk_handle == INVALID_HANDLE_VALUE) {
    return IsNotFound(win32::GetLastError()) && FindDiskBySerial(disk, converter.disk_handle);
  }
  // A path that opens is trusted, whatever disk answers on it now.
  if (GetDeviceIndexByHandle(converter.disk_handle, &disk.index, /*want_device=*/true)) return true;
  CloseDeviceHandle(converter.disk_handle);
  return false;
}

bool CorrectDiskBySerial(DiskInfo& disk, HANDLE& handle) {
  const std::string serial = TrimBlanks(FieldText(disk.serial_num));
  const auto matches = [&serial](const std::string& path, HANDLE device, std::uint32_t) {
    std::string device_serial;
    if (!GetDiskSerialId(device, device_serial)) {
      LogEx(kLogModule, kLogError, "GetDiskSerialId Fail");
      return false;
    }
    device_serial = TrimBlanks(device_serial);
    LogEx(kLogModule, kLogProgress, "disk id: %s, disk_serial_num: %s", path.c_str(),
          device_serial.c_str());
    return SerialsMatch(serial, device_serial);
  };
  return CorrectDisk(disk, handle, matches);
}

bool CorrectDiskByIndex(DiskInfo& disk, HANDLE& handle) {
  const auto matches = [&disk](const std::string&, HANDLE, std::uint32_t number) {
    return number == disk.index;
  };
  return CorrectDisk(disk, handle, matches);
}

bool UpdateVolumeId(VolumeInfo& volume, std::int32_t disk_index) {
  LogEx(kLogModule, kLogProgress, "UpdateVolumeId Begin...");
  std::vector<std::string> paths;
  if (!GetVolumePathsOrLog(paths)) return false;
  for (const std::string& path : paths) {
    if (StartsAt(path, static_cast<std::uint32_t>(disk_index), volume.offset, "Error")) {
      // Nothing is zeroed, and the walk goes on: the tail of a longer path stays behind a shorter
      // one. Readers of the field take it up to its first NUL.
      CopyPath(volume.volume_id, path);
    }
  }
  LogEx(kLogModule, kLogProgress, "UpdateVolumeId End!");
  return true;
}

bool CheckAndUpdateVolumeId(const Velkora& converter, VolumeInfo& volume) {
  LogEx(kLogModule, kLogProgress, "Check and update volume id");
  HANDLE handle = GetDeviceHandleById(FieldText(volume.volume_id).c_str());
  if (handle != INVALID_HANDLE_VALUE) {
    CloseDeviceHandle(handle);
    return true;
  }
  if (!IsNotFound(win32::GetLastError())) return false;
  std::vector<std::string> paths;
  if (!GetVolumePathsOrLog(paths)) return false;
  for (const std::string& path : paths) {
    if (StartsAt(path, converter.disk_info->index, volume.offset, "error")) {
      ReplacePath(volume.volume_id, path);
      return true;
    }
  }
  return false;
}

bool RenumberPartitions(HANDLE disk) {
  LayoutBuffer layout(kLayoutRows);
  DWORD returned = 0;
  if (!win32::DeviceIoControl(disk, IOCTL_DISK_GET_DRIVE_LAYOUT_EX, nullptr, 0, layout.data(),
                              layout.size(), &returned, nullptr)) {
    LogEx(kLogModule, kLogError, "IOCTL_DISK_GET_DRIVE_LAYOUT_EX Error: %d",
          static_cast<int>(win32::GetLastError()));
    return false;
  }
  RenumberRows(layout);
  // The whole buffer goes back, not only the rows in use.
  if (!ControlDisk(disk, IOCTL_DISK_SET_DRIVE_LAYOUT_EX, layout.data(), layout.size())) {
    LogEx(kLogModule, kLogError, "IOCTL_DISK_SET_DRIVE_LAYOUT_EX Error: %d",
          static_cast<int>(win32::GetLastError()));
    return false;
  }
  return true;
}

void LogVolumeList() {
  const std::string line(49, '=');
  LogEx(kLogModule, kLogProgress, "%s", line.c_str());
  std::vector<std::string> paths;
  if (!GetVolumeDevicePaths(paths)) {
    LogEx(kLogModule, kLogError, "GetVolumeDevicePaths Error: %d",
          static_cast<int>(win32::GetLastError()));
  }
  for (const std::string& path : paths) {
    std::string letter;
    if (!GetVolumeLetter(path + "\\", letter)) {
      LogEx(kLogModule, kLogError, "GetVolumeLetter Error: %d, volume_id: %s",
            static_cast<int>(win32::GetLastError()), path.c_str());
    }
    LogEx(kLogModule, kLogProgress, "volume path: %s, letter: %s", path.c_str(), letter.c_str());
  }
  LogEx(kLogModule, kLogProgress, "%s", line.c_str());
}

bool LogDiskSerials() {
  std::vector<std::string> paths;
  if (!GetDiskDevicePaths(paths)) {
    LogEx(kLogModule, kLogError, "GetDiskDevicePaths Fail");
    return false;
  }
  for (const std::string& path : paths) {
    LogEx(kLogModule, kLogProgress, "device_path: %s", path.c_str());
    const HANDLE device = GetDeviceHandleById(path.c_str());  // stays open
    if (device == INVALID_HANDLE_VALUE) {
      LogEx(kLogModule, kLogError, "GetDeviceHandle Fail");
      continue;
    }
    std::string serial;
    if (GetDiskSerialId(device, serial)) {
      LogEx(kLogModule, kLogProgress, "disk_serial_id: %s", serial.c_str());
    } else {
      LogEx(kLogModule, kLogError, "GetDiskSerialId Fail");
    }
  }
  return false;  // also after a complete list: there is no other result
}

}  // namespace velkora
