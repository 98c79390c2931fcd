// Files by their Windows paths, wherever they lie: on a FAT32 volume of an image, among the files
// that the machine's builder gave to another volume, or in a folder of the host.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/win32_types.h"

namespace simulator {

class SimulatedMachine;
class System;
struct Volume;

// What stands in a folder, "." and ".." (of any but a root) included.
struct ListedFile {
  std::string name;        // the long one where there is one; UTF-8
  std::string short_name;  // empty where it is the name
  DWORD attributes = FILE_ATTRIBUTE_NORMAL;
  std::uint64_t size = 0;  // bytes; 0 for a folder
};

// Paths begin with a letter (`D:\EFI\Boot\bootx64.efi`) or a volume path. Functions return a
// Windows error: those of Fat32Files, ERROR_PATH_NOT_FOUND for a letter that stands for nothing,
// ERROR_ACCESS_DENIED for a locked volume, kErrorUnrecognizedVolume for one that Windows cannot
// mount.
class VolumeFiles {
 public:
  explicit VolumeFiles(SimulatedMachine& machine);
  explicit VolumeFiles(System& system) : system_(system) {}

  // A file or a folder.
  bool Exists(std::string_view path);
  [[nodiscard]] DWORD Read(std::string_view path, std::string& content);
  // Creates or replaces the file, and makes the folders on the way.
  [[nodiscard]] DWORD Write(std::string_view path, std::string_view content);
  [[nodiscard]] DWORD Remove(std::string_view path);
  // Of a host's file or one in memory nothing changes: it has no attributes.
  [[nodiscard]] DWORD SetAttributes(std::string_view path, DWORD attributes);
  // A folder of a FAT32 volume, in the order of the directory. ERROR_PATH_NOT_FOUND where there is
  // no such folder, ERROR_NOT_SUPPORTED on another kind of volume or on the host.
  [[nodiscard]] DWORD List(std::string_view path, std::vector<ListedFile>& files);

 private:
  template <typename Operation>
  DWORD OnVolume(std::string_view path, const Operation& operation);

  System& system_;
};

// Creates or replaces a file of a mounted FAT32 volume, or of any other one.
[[nodiscard]] DWORD WriteVolumeFile(System& system, const Volume& volume,
                                    std::string_view path_on_volume, std::string_view content);

}  // namespace simulator
