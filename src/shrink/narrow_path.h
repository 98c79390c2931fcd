// Paths between wide text and the code page of narrow paths.
#pragma once

#include <string>

#include "platform/win32_types.h"

namespace velkora {

// Both throw std::system_error with a Windows error as its code: 1113 for a path that the code
// page, or UTF-16, cannot express. A path is not empty.
std::string NarrowPath(const WideString& path);
WideString WidePath(const std::string& path);

}  // namespace velkora
