#include "simulator/text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>

namespace simulator {
namespace {

constexpr std::uint32_t kReplacementCharacter = 0xFFFD;

char ToLowerAscii(char character) {
  const bool upper = character >= 'A' && character <= 'Z';
  return upper ? static_cast<char>(character - 'A' + 'a') : character;
}

bool IsSeparator(char character) {
  return character == '\\' || character == '/';
}

bool IsHighSurrogate(std::uint32_t unit) {
  return unit >= 0xD800 && unit <= 0xDBFF;
}
bool IsLowSurrogate(std::uint32_t unit) {
  return unit >= 0xDC00 && unit <= 0xDFFF;
}

void AppendUtf8(std::string& text, std::uint32_t code) {
  const auto append = [&text](std::uint32_t byte) { text += static_cast<char>(byte); };
  if (code < 0x80) {
    append(code);
    return;
  }
  if (code < 0x800) {
    append(0xC0 | (code >> 6));
  } else {
    if (code < 0x10000) {
      append(0xE0 | (code >> 12));
    } else {
      append(0xF0 | (code >> 18));
      append(0x80 | ((code >> 12) & 0x3F));
    }
    append(0x80 | ((code >> 6) & 0x3F));
  }
  append(0x80 | (code & 0x3F));
}

// True for what may not stand in a name.
constexpr std::array<bool, 256> kForbidden = [] {
  std::array<bool, 256> forbidden{};
  for (std::size_t control = 0; control < 0x20; ++control) forbidden[control] = true;
  for (const char character : std::string_view("<>:\"|?*")) {
    forbidden[static_cast<unsigned char>(character)] = true;
  }
  return forbidden;
}();

bool IsAllowedName(std::string_view name) {
  return std::none_of(name.begin(), name.end(), [](char character) {
    return kForbidden[static_cast<unsigned char>(character)];
  });
}

}  // namespace

std::string ToLowerAscii(std::string_view text) {
  std::string lower(text);
  for (char& character : lower) character = ToLowerAscii(character);
  return lower;
}

char ToUpperAscii(char character) {
  const bool lower = character >= 'a' && character <= 'z';
  return lower ? static_cast<char>(character - 'a' + 'A') : character;
}

bool EqualsIgnoringCase(std::string_view left, std::string_view right) {
  // Most texts that are equal at all are wholly equal.
  return left == right ||
         std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [](char one, char other) { return ToLowerAscii(one) == ToLowerAscii(other); });
}

bool StartsWithIgnoringCase(std::string_view text, std::string_view prefix) {
  return EqualsIgnoringCase(text.substr(0, prefix.size()), prefix);
}

std::uint64_t HashIgnoringCase(std::string_view text) {
  std::uint64_t hash = 0xCBF29CE484222325;
  for (const char character : text) {
    hash ^= static_cast<unsigned char>(ToLowerAscii(character));
    hash *= 0x100000001B3;
  }
  return hash;
}

std::string Utf16ToUtf8(const WCHAR* text) {
  if (text == nullptr) return {};
  const WCHAR* ascii_end = text;
  while (*ascii_end != 0 && static_cast<std::uint16_t>(*ascii_end) < 0x80) ++ascii_end;
  std::string result(text, ascii_end);
  text = ascii_end;
  while (*text != 0) {
    std::uint32_t code = static_cast<std::uint16_t>(*text++);
    const std::uint32_t next = static_cast<std::uint16_t>(*text);
    if (IsHighSurrogate(code) && IsLowSurrogate(next)) {
      code = 0x10000 + ((code - 0xD800) << 10) + (next - 0xDC00);
      ++text;
    } else if (IsHighSurrogate(code) || IsLowSurrogate(code)) {
      code = kReplacementCharacter;
    }
    AppendUtf8(result, code);
  }
  return result;
}

std::string HexText(std::uint64_t value) {
  std::array<char, 18> buffer{'0', 'x'};
  const auto end = std::to_chars(buffer.data() + 2, buffer.data() + buffer.size(), value, 16).ptr;
  return {buffer.data(), end};
}

std::string_view FileNameOf(std::string_view path) {
  const auto name = std::find_if(path.rbegin(), path.rend(), IsSeparator).base();
  return {name, path.end()};
}

bool IsPlainName(std::string_view name) {
  return !name.empty() && name != "." && name != ".." && IsAllowedName(name);
}

std::optional<std::vector<std::string_view>> SplitPath(std::string_view path) {
  std::vector<std::string_view> names;
  names.reserve(8);
  while (!path.empty()) {
    const std::string_view name(path.begin(), std::find_if(path.begin(), path.end(), IsSeparator));
    path.remove_prefix(std::min(path.size(), name.size() + 1));
    if (name.empty() || name == ".") continue;
    if (!IsAllowedName(name)) return std::nullopt;
    if (name != "..") {
      names.push_back(name);
    } else if (!names.empty()) {
      names.pop_back();
    }
  }
  return names;
}

std::string GuidText(const GUID& guid) {
  std::array<char, 40> buffer{};
  std::snprintf(buffer.data(), buffer.size(), "{%08lx-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x}",
                static_cast<unsigned long>(guid.Data1), unsigned{guid.Data2}, unsigned{guid.Data3},
                unsigned{guid.Data4[0]}, unsigned{guid.Data4[1]}, unsigned{guid.Data4[2]},
                unsigned{guid.Data4[3]}, unsigned{guid.Data4[4]}, unsigned{guid.Data4[5]},
                unsigned{guid.Data4[6]}, unsigned{guid.Data4[7]});
  return buffer.data();
}

}  // namespace simulator
