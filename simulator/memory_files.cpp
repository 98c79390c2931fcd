#include "simulator/memory_files.h"

#include "simulator/text.h"

namespace simulator {
namespace {

// Empty for the root, and for a path that is not allowed.
std::string KeyOf(std::string_view path) {
  std::string key;
  const auto names = SplitPath(path);
  if (!names) return key;
  for (const std::string_view name : *names) key += '\\' + ToLowerAscii(name);
  return key;
}

}  // namespace

DWORD MemoryFiles::Write(std::string_view path, std::string_view content) {
  const std::string key = KeyOf(path);
  if (key.empty()) return ERROR_INVALID_NAME;
  if (IsFolder(key)) return ERROR_ACCESS_DENIED;
  files_[key] = content;
  return ERROR_SUCCESS;
}

DWORD MemoryFiles::Remove(std::string_view path) {
  const std::string key = KeyOf(path);
  return files_.erase(key) != 0 ? ERROR_SUCCESS : Missing(key);
}

DWORD MemoryFiles::Read(std::string_view path, std::string& content) const {
  const std::string key = KeyOf(path);
  const auto file = files_.find(key);
  if (file == files_.end()) return Missing(key);
  content = file->second;
  return ERROR_SUCCESS;
}

bool MemoryFiles::Exists(std::string_view path) const {
  const std::string key = KeyOf(path);
  return files_.contains(key) || IsFolder(key);
}

DWORD MemoryFiles::SetAttributes(std::string_view path, DWORD) const {
  return Exists(path) ? ERROR_SUCCESS : Missing(KeyOf(path));
}

bool MemoryFiles::IsFolder(const std::string& key) const {
  const auto below = files_.lower_bound(key + '\\');
  return key.empty() || (below != files_.end() && below->first.starts_with(key + '\\'));
}

DWORD MemoryFiles::Missing(const std::string& key) const {
  if (key.empty()) return ERROR_INVALID_NAME;
  if (IsFolder(key)) return ERROR_ACCESS_DENIED;
  return IsFolder(key.substr(0, key.rfind('\\'))) ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND;
}

}  // namespace simulator
