// The files of a volume whose file system the machine does not read: as its builder gave them, and
// as tools changed them since.
#pragma once

#include <map>
#include <string>
#include <string_view>

#include "platform/win32_types.h"

namespace simulator {

// Paths and errors as of Fat32Files. A folder is there while a file lies below it.
class MemoryFiles {
 public:
  // Also makes the folders on the way.
  [[nodiscard]] DWORD Write(std::string_view path, std::string_view content);
  [[nodiscard]] DWORD Remove(std::string_view path);
  [[nodiscard]] DWORD Read(std::string_view path, std::string& content) const;
  bool Exists(std::string_view path) const;
  // Attributes are not kept; tells whether the file or folder is there.
  [[nodiscard]] DWORD SetAttributes(std::string_view path, DWORD attributes) const;

 private:
  bool IsFolder(const std::string& key) const;
  // Why there is no such file.
  DWORD Missing(const std::string& key) const;

  // By path in lower case: "\windows\system32\winload.exe".
  std::map<std::string, std::string> files_;
};

}  // namespace simulator
