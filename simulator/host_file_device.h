// An ordinary file of the host, opened by its Windows path.
#pragma once

#include <filesystem>
#include <memory>

#include "simulator/handle_table.h"

namespace simulator {

// Opens `path` as CreateFile does with `access` and `disposition`. `existed` tells whether the file
// was there before. Returns a Windows error and leaves `object` alone on failure.
DWORD OpenHostFile(const std::filesystem::path& path, DWORD access, DWORD disposition,
                   std::unique_ptr<HandleObject>& object, bool& existed);

}  // namespace simulator
