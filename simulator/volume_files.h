// Files by their Windows paths, wherever they lie: on a FAT32 volume of an image, among the files
// that the machine's builder gave to another volume, or in a folder of the host.
#pragma once

#include <string>
#include <string_view>

#include "platform/win32_types.h"

namespace simulator {

class SimulatedMachine;
struct Volume;

// Paths begin with a letter (`D:\EFI\Boot\bootx64.efi`). Functions return a Windows error: those of
// Fat32Files, ERROR_PATH_NOT_FOUND for a letter that stands for nothing, ERROR_ACCESS_DENIED for a
// locked volume, kErrorUnrecognizedVolume for one that Windows cannot mount.
class VolumeFiles {
 public:
  explicit VolumeFiles(SimulatedMachine& machine) : machine_(machine) {}

  // A file or a folder.
  bool Exists(std::string_view path);
  [[nodiscard]] DWORD Read(std::string_view path, std::string& content);
  // Creates or replaces the file, and makes the folders on the way.
  [[nodiscard]] DWORD Write(std::string_view path, std::string_view content);
  [[nodiscard]] DWORD Remove(std::string_view path);

 private:
  template <typename Operation>
  DWORD OnVolume(std::string_view path, const Operation& operation);

  SimulatedMachine& machine_;
};

// What Windows does at the first access by name: it looks at the file system and mounts it.
// kErrorUnrecognizedVolume when there is none of its own; ERROR_NOT_READY for a volume that is not
// one partition; ERROR_ACCESS_DENIED for a locked one.
[[nodiscard]] DWORD MountForUse(SimulatedMachine& machine, Volume& volume);

// Creates or replaces a file of a mounted FAT32 volume, or of any other one.
[[nodiscard]] DWORD WriteVolumeFile(SimulatedMachine& machine, const Volume& volume,
                                    std::string_view path_on_volume, std::string_view content);

}  // namespace simulator
