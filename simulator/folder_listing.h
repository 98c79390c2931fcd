// What a search pattern such as `C:\folder\*` names.
#pragma once

#include <string_view>
#include <vector>

#include "platform/win32_types.h"
#include "simulator/volume_files.h"

namespace simulator {

// Lists the entries of the pattern's folder, on a FAT32 volume or in a folder of the host, whose
// names match what stands behind its last separator, where "*" is any text and "?" any character,
// without regard to case; "*.*" is everything. A volume lists them in the order of the directory,
// the host sorted by name; in front of them "." and "..", unless the folder is a root. Returns a
// Windows error: 2 when nothing matches, 3 when the folder is missing, and those of VolumeFiles.
DWORD ListFolder(System& system, std::string_view pattern, std::vector<ListedFile>& files);

}  // namespace simulator
