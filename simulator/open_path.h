// What a path given to CreateFile leads to.
#pragma once

#include <memory>
#include <string_view>

#include "simulator/handle_object.h"

namespace simulator {

class System;

struct OpenRequest {
  std::string_view path;  // UTF-8
  DWORD access = 0;       // GENERIC_ bits
  DWORD disposition = OPEN_EXISTING;
  DWORD flags = 0;  // FILE_FLAG_ bits
};

// Opens a disk, a volume, a file, or (with FILE_FLAG_BACKUP_SEMANTICS) a folder of a FAT32 volume.
// Files of a volume are opened, and neither made nor replaced: ERROR_NOT_SUPPORTED for another
// disposition than OPEN_EXISTING. `existed` tells whether it was there before. Returns a Windows
// error and leaves `object` alone on failure.
DWORD OpenPath(System& system, const OpenRequest& request, std::unique_ptr<HandleObject>& object,
               bool& existed);

}  // namespace simulator
