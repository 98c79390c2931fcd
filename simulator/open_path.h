// What a path given to CreateFile leads to.
#pragma once

#include <memory>
#include <string_view>

#include "simulator/handle_table.h"

namespace simulator {

class SimulatedMachine;

struct OpenRequest {
  std::string_view path;  // UTF-8
  DWORD access = 0;       // GENERIC_ bits
  DWORD disposition = OPEN_EXISTING;
};

// Opens a disk, a volume or a file. `existed` tells whether it was there before. Returns a Windows
// error and leaves `object` alone on failure.
DWORD OpenPath(SimulatedMachine& machine, const OpenRequest& request,
               std::unique_ptr<HandleObject>& object, bool& existed);

}  // namespace simulator
