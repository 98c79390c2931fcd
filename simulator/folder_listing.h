// What a search pattern such as `C:\folder\*` names.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/win32_types.h"

namespace simulator {

class SimulatedMachine;

struct FolderEntry {
  std::string name;  // UTF-8
  bool is_folder = false;
  std::uint64_t size = 0;  // bytes
};

// Lists the entries of the pattern's folder whose names match what stands behind its last
// separator, where "*" is any text and "?" any character, without regard to case; "*.*" is
// everything. Sorted by name; in front of them "." and "..", unless the folder is a drive's root.
// Returns a Windows error: 2 when nothing matches, 3 when the folder is missing.
DWORD ListFolder(SimulatedMachine& machine, std::string_view pattern,
                 std::vector<FolderEntry>& entries);

}  // namespace simulator
