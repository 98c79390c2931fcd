// Paths that lead into a volume, by its letter or by its own path.
#pragma once

#include <string_view>

#include "platform/win32_types.h"

namespace simulator {

class System;
struct Volume;

// `C:\file` of `\\?\C:\file`; any other path as it is.
std::string_view WithoutVerbatimPrefix(std::string_view path);

struct VolumePath {
  Volume* volume = nullptr;  // mounted
  std::string_view inner;    // from the root of the volume; lives as long as the path
};

// Finds the volume of `D:\folder\file`, with or without `\\?\` in front, or of
// `\\?\Volume{...}\folder\file`, and mounts it. ERROR_PATH_NOT_FOUND where there is none, and the
// errors of MountForUse.
[[nodiscard]] DWORD FindVolumePath(System& system, std::string_view path, VolumePath& found);

// What Windows does at the first access by name: it looks at the file system and mounts it.
// kErrorUnrecognizedVolume when there is none of its own; ERROR_NOT_READY for a volume that is not
// one partition; ERROR_ACCESS_DENIED for a locked one.
[[nodiscard]] DWORD MountForUse(System& system, Volume& volume);

}  // namespace simulator
