// Files and folders of a FAT32 volume in an image.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/win32_types.h"
#include "simulator/storage/block_device.h"
#include "simulator/storage/fat32_clusters.h"
#include "simulator/storage/fat32_directory.h"

namespace simulator {

// Paths lead from the root of the volume (`\EFI\Boot\bootx64.efi`) in UTF-8; case makes no
// difference. Functions return a Windows error: ERROR_FILE_NOT_FOUND for a missing file,
// ERROR_PATH_NOT_FOUND for a missing folder on the way, ERROR_ACCESS_DENIED for a folder where a
// file is meant, ERROR_INVALID_NAME, kErrorUnrecognizedVolume where there is no FAT32, and those of
// Fat32Clusters. What others change in the image is seen by the next call.
class Fat32Files {
 public:
  Fat32Files(BlockDevice& device, std::uint64_t volume_offset)
      : clusters_(device, volume_offset), open_error_(clusters_.Open()) {}

  // ERROR_ALREADY_EXISTS when something of that name is there.
  [[nodiscard]] DWORD MakeFolder(std::string_view path);
  // Creates a file or replaces its content; an old content goes when the new one is complete.
  [[nodiscard]] DWORD Write(std::string_view path, std::string_view content);
  [[nodiscard]] DWORD Remove(std::string_view path);
  [[nodiscard]] DWORD Read(std::string_view path, std::string& content);
  // The names in a folder, in the order in which they lie there.
  [[nodiscard]] DWORD List(std::string_view path, std::vector<std::string>& names);
  // A file or a folder; the root is one.
  bool Exists(std::string_view path);

 private:
  struct Folder {
    std::uint32_t cluster = 0;
    Fat32Directory directory;
  };

  DWORD OpenFolder(const std::vector<std::string_view>& names, Folder& folder);
  DWORD OpenParent(std::string_view path, Folder& folder, std::string_view& name);
  DWORD Save(Folder& folder);

  Fat32Clusters clusters_;
  DWORD open_error_;
};

}  // namespace simulator
