#include "tools/text_encoding.h"

#include <cstddef>
#include <cstdint>
#include <stdexcept>

namespace velkora {
namespace {

constexpr std::uint32_t kHighestCodePoint = 0x10FFFF;
constexpr std::uint32_t kFirstSurrogate = 0xD800;
constexpr std::uint32_t kFirstLowSurrogate = 0xDC00;
constexpr std::uint32_t kLastSurrogate = 0xDFFF;
constexpr std::uint32_t kFirstSupplementary = 0x10000;
constexpr std::uint32_t kBadCodePoint = 0xFFFFFFFF;

std::uint32_t ByteAt(std::string_view text, std::size_t index) {
  return static_cast<unsigned char>(text[index]);
}

struct LeadByte {
  std::size_t length;   // of the whole sequence; 0 for a byte that cannot lead one
  std::uint32_t bits;   // what it gives of the code point
  std::uint32_t least;  // smallest code point that needs a sequence of this length
};

LeadByte ReadLeadByte(std::uint32_t byte) {
  if (byte < 0x80) return {1, byte, 0};
  if (byte >= 0xC0 && byte < 0xE0) return {2, byte & 0x1F, 0x80};
  if (byte >= 0xE0 && byte < 0xF0) return {3, byte & 0x0F, 0x800};
  if (byte >= 0xF0 && byte < 0xF8) return {4, byte & 0x07, kFirstSupplementary};
  return {0, 0, 0};
}

bool IsSurrogate(std::uint32_t value) {
  return value >= kFirstSurrogate && value <= kLastSurrogate;
}

// Takes one code point off `text` at `position`.
std::uint32_t NextCodePoint(std::string_view text, std::size_t& position) {
  const LeadByte lead = ReadLeadByte(ByteAt(text, position));
  if (lead.length == 0 || lead.length > text.size() - position) return kBadCodePoint;
  std::uint32_t value = lead.bits;
  for (std::size_t i = 1; i < lead.length; ++i) {
    const std::uint32_t byte = ByteAt(text, position + i);
    if ((byte & 0xC0) != 0x80) return kBadCodePoint;
    value = value << 6 | (byte & 0x3F);
  }
  if (value < lead.least || value > kHighestCodePoint || IsSurrogate(value)) return kBadCodePoint;
  position += lead.length;
  return value;
}

void AppendUtf16(WideString& wide, std::uint32_t value) {
  if (value < kFirstSupplementary) {
    wide.push_back(static_cast<WCHAR>(value));
    return;
  }
  const std::uint32_t rest = value - kFirstSupplementary;
  wide.push_back(static_cast<WCHAR>(kFirstSurrogate + (rest >> 10)));
  wide.push_back(static_cast<WCHAR>(kFirstLowSurrogate + (rest & 0x3FF)));
}

void AppendUtf8(std::string& text, std::uint32_t value) {
  const auto append = [&text](std::uint32_t byte) { text.push_back(static_cast<char>(byte)); };
  const auto continuation = [&](unsigned shift) { append(0x80 | (value >> shift & 0x3F)); };
  if (value < 0x80) {
    append(value);
  } else if (value < 0x800) {
    append(0xC0 | value >> 6);
    continuation(0);
  } else if (value < kFirstSupplementary) {
    append(0xE0 | value >> 12);
    continuation(6);
    continuation(0);
  } else {
    append(0xF0 | value >> 18);
    continuation(12);
    continuation(6);
    continuation(0);
  }
}

}  // namespace

bool TryUtf8ToWide(std::string_view text, WideString& wide) {
  wide.clear();
  wide.reserve(text.size());
  for (std::size_t position = 0; position < text.size();) {
    const std::uint32_t value = NextCodePoint(text, position);
    if (value == kBadCodePoint) return false;
    AppendUtf16(wide, value);
  }
  return true;
}

WideString Utf8ToWide(std::string_view text) {
  WideString wide;
  if (!TryUtf8ToWide(text, wide)) throw std::range_error("bad conversion");
  return wide;
}

std::string WideToUtf8(const WideString& text) {
  std::string narrow;
  for (std::size_t i = 0; i < text.size(); ++i) {
    std::uint32_t value = text[i];
    if (IsSurrogate(value)) {
      const std::uint32_t low = i + 1 < text.size() ? text[i + 1] : 0u;
      if (value >= kFirstLowSurrogate || low < kFirstLowSurrogate || low > kLastSurrogate) {
        throw std::range_error("bad conversion");
      }
      value = kFirstSupplementary + ((value - kFirstSurrogate) << 10) + (low - kFirstLowSurrogate);
      ++i;
    }
    AppendUtf8(narrow, value);
  }
  return narrow;
}

}  // namespace velkora
