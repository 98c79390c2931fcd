#include "backup/raw_disk.h"

#include "backup/return_codes.h"
#include "logging/log.h"
#include "platform/win32.h"

namespace velkora {

HANDLE OpenDisk(const char* device_id, const char* function) {
  HANDLE disk = win32::CreateFileA(
      device_id, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
      OPEN_EXISTING, FILE_FLAG_WRITE_THROUGH | FILE_FLAG_NO_BUFFERING | FILE_FLAG_RANDOM_ACCESS,
      nullptr);
  if (disk != nullptr && disk != INVALID_HANDLE_VALUE) return disk;
  LogEx(kLogModule, kLogProgress, "[%s] %s OpenDisk %s failed. error = %d", kBackupTag, function,
        device_id, static_cast<int>(win32::GetLastError()));
  return INVALID_HANDLE_VALUE;
}

bool SeekDisk(HANDLE disk, std::uint64_t offset) {
  LARGE_INTEGER distance{};
  distance.QuadPart = static_cast<LONGLONG>(offset);
  LARGE_INTEGER position{};
  return win32::SetFilePointerEx(disk, distance, &position, FILE_BEGIN) &&
         position.QuadPart == distance.QuadPart;
}

std::uint64_t ReadHere(HANDLE disk, std::span<std::byte> buffer) {
  DWORD done = 0;
  win32::ReadFile(disk, buffer.data(), static_cast<DWORD>(buffer.size()), &done, nullptr);
  return done;
}

std::uint64_t ReadAt(HANDLE disk, std::uint64_t offset, std::span<std::byte> buffer) {
  return SeekDisk(disk, offset) ? ReadHere(disk, buffer) : 0;
}

std::uint64_t WriteAt(HANDLE disk, std::uint64_t offset, std::span<const std::byte> bytes) {
  if (!SeekDisk(disk, offset)) return 0;
  DWORD done = 0;
  win32::WriteFile(disk, bytes.data(), static_cast<DWORD>(bytes.size()), &done, nullptr);
  return done;
}

bool ReadAllAt(HANDLE disk, std::uint64_t offset, std::span<std::byte> buffer) {
  return SeekDisk(disk, offset) && ReadHere(disk, buffer) == buffer.size();
}

}  // namespace velkora
