#include "shrink/directory_listing.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <string_view>
#include <system_error>

#include "platform/win32.h"

namespace velkora {
namespace {

[[noreturn]] void ThrowError(const char* what, DWORD error) {
  throw std::filesystem::filesystem_error(
      what, std::error_code(static_cast<int>(error), std::system_category()));
}

std::basic_string_view<WCHAR> NameOf(const WIN32_FIND_DATAW& data) {
  const WCHAR* const begin = std::begin(data.cFileName);
  return {begin, std::find(begin, std::end(data.cFileName), WCHAR{0})};
}

bool IsDots(std::basic_string_view<WCHAR> name) {
  return name == WIDE(".") || name == WIDE("..");
}

}  // namespace

bool DirectoryListing::Next(DirectoryEntry& entry) {
  WIN32_FIND_DATAW data{};
  while (Find(data)) {
    const auto name = NameOf(data);
    if (IsDots(name)) continue;
    entry.path.clear();
    entry.path.reserve(folder_.size() + name.size());
    entry.path.append(folder_).append(name);
    entry.is_directory = (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    return true;
  }
  return false;
}

void DirectoryListing::Close() {
  if (find_ == INVALID_HANDLE_VALUE) return;
  win32::FindClose(find_);
  find_ = INVALID_HANDLE_VALUE;
}

bool DirectoryListing::Find(WIN32_FIND_DATAW& data) {
  if (find_ == INVALID_HANDLE_VALUE) {
    find_ = win32::FindFirstFileW((folder_ + WIDE("*")).c_str(), &data);
    if (find_ != INVALID_HANDLE_VALUE) return true;
    const DWORD error = win32::GetLastError();
    // The root of a volume has no "." and "..": when it is empty, nothing matches.
    if (error == ERROR_FILE_NOT_FOUND || error == ERROR_NO_MORE_FILES) return false;
    ThrowError("directory_iterator::directory_iterator", error);
  }
  if (win32::FindNextFileW(find_, &data)) return true;
  const DWORD error = win32::GetLastError();
  Close();
  if (error == ERROR_NO_MORE_FILES) return false;
  ThrowError("directory_iterator::operator++", error);
}

}  // namespace velkora
