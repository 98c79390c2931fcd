#include "host/raw_file.h"

#include <utility>

#include "platform/win32.h"

namespace velkora_host {
namespace {

constexpr DWORD kErrorFileExists = 80;

std::string LastErrorText() {
  const DWORD error = win32::GetLastError();
  std::string text = "error " + std::to_string(error);
  switch (error) {
    case ERROR_FILE_NOT_FOUND:
      return text + ", there is no such file";
    case ERROR_PATH_NOT_FOUND:
      return text + ", there is no such folder";
    case ERROR_ACCESS_DENIED:
      return text + ", access is denied";
    case kErrorFileExists:
      return text + ", the file exists already";
    case ERROR_DISK_FULL:
      return text + ", there is no room";
    default:
      return text;
  }
}

std::string BytesAt(std::size_t count, std::uint64_t place) {
  return std::to_string(count) + " bytes at " + std::to_string(place);
}

}  // namespace

RawFile::RawFile(HANDLE handle, std::string name) : handle_(handle), name_(std::move(name)) {}

void RawFile::Seek(std::uint64_t place) const {
  LARGE_INTEGER distance{};
  distance.QuadPart = static_cast<LONGLONG>(place);
  if (win32::SetFilePointerEx(handle_, distance, nullptr, FILE_BEGIN)) return;
  throw RescueError(name_ + ": cannot go to " + std::to_string(place) + ": " + LastErrorText());
}

void RawFile::Read(std::uint64_t place, std::span<std::byte> bytes) const {
  Seek(place);
  const std::string what = name_ + ": cannot read " + BytesAt(bytes.size(), place) + ": ";
  DWORD done = 0;
  if (!win32::ReadFile(handle_, bytes.data(), static_cast<DWORD>(bytes.size()), &done, nullptr)) {
    throw RescueError(what + LastErrorText());
  }
  if (done != bytes.size()) throw RescueError(what + "only " + std::to_string(done) + " came");
}

void RawFile::Write(std::uint64_t place, std::span<const std::byte> bytes) const {
  Seek(place);
  const std::string what = name_ + ": cannot write " + BytesAt(bytes.size(), place) + ": ";
  DWORD done = 0;
  if (!win32::WriteFile(handle_, bytes.data(), static_cast<DWORD>(bytes.size()), &done, nullptr)) {
    throw RescueError(what + LastErrorText());
  }
  if (done != bytes.size()) {
    throw RescueError(what + "only " + std::to_string(done) + " were written");
  }
}

void RawFile::Flush() const {
  if (win32::FlushFileBuffers(handle_)) return;
  throw RescueError(name_ + ": cannot flush: " + LastErrorText());
}

std::uint64_t RawFile::Size() const {
  LARGE_INTEGER end{};
  if (win32::SetFilePointerEx(handle_, LARGE_INTEGER(), &end, FILE_END) && end.QuadPart >= 0) {
    return static_cast<std::uint64_t>(end.QuadPart);
  }
  throw RescueError(name_ + ": cannot tell its size: " + LastErrorText());
}

OpenFile::OpenFile(const std::string& path, DWORD disposition) {
  const bool is_new = disposition == CREATE_NEW;
  const DWORD access = is_new ? GENERIC_READ | GENERIC_WRITE : GENERIC_READ;
  handle_ = win32::CreateFileA(path.c_str(), access, is_new ? 0 : FILE_SHARE_READ, nullptr,
                               disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (handle_ != INVALID_HANDLE_VALUE && handle_ != nullptr) return;
  throw RescueError(path + ": cannot " + (is_new ? "create: " : "open: ") + LastErrorText());
}

void OpenFile::Close() {
  if (handle_ != INVALID_HANDLE_VALUE) win32::CloseHandle(handle_);
  handle_ = INVALID_HANDLE_VALUE;
}

}  // namespace velkora_host
