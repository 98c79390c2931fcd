// Small text helpers of the simulated machine.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/win32_types.h"

namespace simulator {

// ASCII letters only, in any locale.
std::string ToLowerAscii(std::string_view text);
char ToUpperAscii(char character);
bool EqualsIgnoringCase(std::string_view left, std::string_view right);
bool StartsWithIgnoringCase(std::string_view text, std::string_view prefix);
// FNV-1a; the same for texts that are equal in that sense.
std::uint64_t HashIgnoringCase(std::string_view text);

// Null gives an empty text, half a surrogate pair the replacement character.
std::string Utf16ToUtf8(const WCHAR* text);

// "0x7c058".
std::string HexText(std::uint64_t value);

// What stands behind the last separator of a Windows path.
std::string_view FileNameOf(std::string_view path);

// Whether a name can stand in a path and means what it says: not empty, "." or "..".
bool IsPlainName(std::string_view name);

// The names of a Windows path without its drive. Both kinds of separator count, doubled ones as
// one; "." and ".." are resolved. Nothing when a name is not allowed.
std::optional<std::vector<std::string_view>> SplitPath(std::string_view path);

// `{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}` in lower case.
std::string GuidText(const GUID& guid);

}  // namespace simulator
