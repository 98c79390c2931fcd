#include "simulator/wide_text.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace simulator {
namespace {

constexpr std::uint32_t kReplacementCharacter = 0xFFFD;

// How many bytes the character takes that begins with `lead`; 0 for a byte that begins none.
std::size_t LengthOf(std::uint32_t lead) {
  if (lead < 0x80) return 1;
  if (lead >= 0xC2 && lead < 0xE0) return 2;
  if (lead >= 0xE0 && lead < 0xF0) return 3;
  return lead >= 0xF0 && lead < 0xF5 ? 4 : 0;
}

// Overlong forms, surrogates and what lies behind the last plane are no characters.
bool IsAllowed(std::uint32_t code, std::size_t length) {
  if (length == 3) return code >= 0x800 && (code < 0xD800 || code > 0xDFFF);
  return length != 4 || (code >= 0x10000 && code <= 0x10FFFF);
}

// The character at the start of the text, which is not empty.
std::optional<std::uint32_t> Decode(std::string_view text, std::size_t& length) {
  const auto byte = [text](std::size_t i) {
    return std::uint32_t{static_cast<unsigned char>(text[i])};
  };
  length = LengthOf(byte(0));
  if (length == 0 || length > text.size()) return std::nullopt;
  std::uint32_t code = length == 1 ? byte(0) : byte(0) & (0x7Fu >> length);
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return std::nullopt;
    code = code << 6 | (byte(i) & 0x3F);
  }
  return IsAllowed(code, length) ? std::optional(code) : std::nullopt;
}

}  // namespace

WideString Utf8ToUtf16(std::string_view text, bool* sound) {
  const auto ascii_end = std::find_if(text.begin(), text.end(), [](char character) {
    return static_cast<unsigned char>(character) >= 0x80;
  });
  WideString wide(text.begin(), ascii_end);
  text.remove_prefix(wide.size());
  if (sound != nullptr) *sound = true;
  while (!text.empty()) {
    std::size_t length = 0;
    const auto decoded = Decode(text, length);
    if (!decoded && sound != nullptr) *sound = false;
    const std::uint32_t code = decoded.value_or(kReplacementCharacter);
    text.remove_prefix(decoded ? length : 1);
    if (code < 0x10000) {
      wide += static_cast<WCHAR>(code);
    } else {
      wide += static_cast<WCHAR>(0xD800 + ((code - 0x10000) >> 10));
      wide += static_cast<WCHAR>(0xDC00 + ((code - 0x10000) & 0x3FF));
    }
  }
  return wide;
}

}  // namespace simulator
