// Sixteen-bit text from UTF-8, the code page of the simulated machine.
#pragma once

#include <string_view>

#include "platform/win32_types.h"

namespace simulator {

// What is no UTF-8 becomes the replacement character, and `*sound` (which may be null) false.
WideString Utf8ToUtf16(std::string_view text, bool* sound = nullptr);

}  // namespace simulator
