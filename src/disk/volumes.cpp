#include "disk/volumes.h"

#include <cstddef>

#include "frame/global_context.h"
#include "logging/log.h"
#include "platform/win32.h"

namespace velkora {
namespace {

constexpr DWORD kNameLength = 260;

bool QueryExtents(HANDLE volume, std::vector<std::byte>& buffer, DWORD size) {
  DWORD returned = 0;
  return win32::DeviceIoControl(volume, IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS, nullptr, 0,
                                buffer.data(), size, &returned, nullptr) != FALSE;
}

// Fills `buffer` with the volume's extents, at least one.
bool GetVolumeExtents(HANDLE volume, std::vector<std::byte>& buffer) {
  const bool answered = QueryExtents(volume, buffer, sizeof(VOLUME_DISK_EXTENTS));
  if (!answered) {
    LogEx(kLogModule, kLogError, "IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS1 Error: %lu",
          static_cast<unsigned long>(win32::GetLastError()));
  }
  // The last error decides, also after a call that succeeded: a 234 left over from earlier costs a
  // second call, with the right size, and does no harm.
  if (win32::GetLastError() != ERROR_MORE_DATA) return answered;
  const auto* extents = reinterpret_cast<const VOLUME_DISK_EXTENTS*>(buffer.data());
  const std::uint64_t size = offsetof(VOLUME_DISK_EXTENTS, Extents) +
                             std::uint64_t{extents->NumberOfDiskExtents} * sizeof(DISK_EXTENT);
  if (size > buffer.size()) buffer.resize(static_cast<std::size_t>(size));
  if (QueryExtents(volume, buffer, static_cast<DWORD>(size))) return true;
  LogEx(kLogModule, kLogError, "IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS2 Error: %lu",
        static_cast<unsigned long>(win32::GetLastError()));
  return false;
}

}  // namespace

bool GetVolumeDevicePaths(std::vector<std::string>& paths) {
  char name[kNameLength] = {};
  const HANDLE find = win32::FindFirstVolumeA(name, kNameLength);
  if (find == INVALID_HANDLE_VALUE) {
    LogEx(kLogModule, kLogError, "FindFirstVolumeA error %lu",
          static_cast<unsigned long>(win32::GetLastError()));
    return false;
  }
  do {
    paths.push_back(CutAtLastSeparator(name, '\\'));
    if (StopRequested()) return false;  // the find handle stays open
  } while (win32::FindNextVolumeA(find, name, kNameLength));
  win32::FindVolumeClose(find);
  return true;
}

bool GetPartitionDiskindexAndOffset(const std::string& volume_path, std::uint32_t& disk_index,
                                    std::uint64_t& offset) {
  std::vector<std::byte> buffer(sizeof(VOLUME_DISK_EXTENTS));
  const HANDLE volume =
      win32::CreateFileA(volume_path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                         nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (volume == INVALID_HANDLE_VALUE) return false;
  const bool known = GetVolumeExtents(volume, buffer);
  win32::CloseHandle(volume);
  if (!known) return false;
  const DISK_EXTENT& first =
      reinterpret_cast<const VOLUME_DISK_EXTENTS*>(buffer.data())->Extents[0];
  disk_index = first.DiskNumber;
  offset = static_cast<std::uint64_t>(first.StartingOffset.QuadPart);
  return true;
}

bool GetVolumeLetter(const std::string& volume_root, std::string& letter) {
  char names[kNameLength] = {};
  DWORD length = 0;
  if (!win32::GetVolumePathNamesForVolumeNameA(volume_root.c_str(), names, kNameLength, &length)) {
    LogEx(kLogModule, kLogError, "GetVolumePathNamesForVolumeNameA error %lu, device id %s",
          static_cast<unsigned long>(win32::GetLastError()), volume_root.c_str());
    return false;
  }
  letter = std::string(names, length);
  return true;
}

std::string CutAtLastSeparator(std::string_view text, char separator) {
  return std::string(text.substr(0, text.rfind(separator)));
}

}  // namespace velkora
