// UTF-8 to UTF-16 and back. Texts inside the library are narrow and hold UTF-8; only the calls that
// take wide texts see UTF-16.
#pragma once

#include <string>
#include <string_view>

#include "platform/win32_types.h"

namespace velkora {

// An empty text gives an empty text, and no byte order mark is made or removed. Throws
// std::range_error("bad conversion") for input that is not well-formed: overlong or cut sequences,
// surrogates in UTF-8 or unpaired ones in UTF-16, values above 0x10FFFF.
WideString Utf8ToWide(std::string_view text);
std::string WideToUtf8(const WideString& text);

// The same without throwing: false for input that is not well-formed, with `wide` unspecified.
[[nodiscard]] bool TryUtf8ToWide(std::string_view text, WideString& wide);

}  // namespace velkora
