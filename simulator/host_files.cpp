#include "simulator/host_files.h"

#include "simulator/text.h"

namespace simulator {
namespace {

bool IsSeparator(char character) {
  return character == '\\' || character == '/';
}

bool IsDevicePath(std::string_view path) {
  return path.size() >= 4 && IsSeparator(path[0]) && IsSeparator(path[1]) &&
         (path[2] == '.' || path[2] == '?') && IsSeparator(path[3]);
}

// Takes "X:" from the front of `path`; `current_drive` if there is none.
char TakeDrive(std::string_view& path, char current_drive) {
  if (path.size() < 2 || path[1] != ':') return current_drive;
  const char letter = ToUpperAscii(path[0]);
  path.remove_prefix(2);
  return letter;
}

}  // namespace

std::optional<std::filesystem::path> HostPath(const std::map<char, std::filesystem::path>& folders,
                                              char current_drive, std::string_view windows_path) {
  if (windows_path.empty() || IsDevicePath(windows_path)) return std::nullopt;
  const auto folder = folders.find(TakeDrive(windows_path, current_drive));
  if (folder == folders.end()) return std::nullopt;
  const auto names = SplitPath(windows_path);
  if (!names) return std::nullopt;

  std::filesystem::path host_path = folder->second;
  for (const std::string_view name : *names) {
    host_path /= std::filesystem::path(std::u8string(name.begin(), name.end()));
  }
  return host_path;
}

}  // namespace simulator
