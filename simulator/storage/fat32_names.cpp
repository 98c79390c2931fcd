#include "simulator/storage/fat32_names.h"

#include <algorithm>
#include <filesystem>

#include "simulator/text.h"

namespace simulator {
namespace {

constexpr std::size_t kBaseLength = 8;
constexpr std::size_t kExtensionLength = 3;
constexpr std::size_t kCharactersInSlot = 13;
constexpr std::size_t kLongestName = 255;
constexpr std::uint8_t kLowerBase = 8;
constexpr std::uint8_t kLowerExtension = 16;

struct NameParts {
  std::string base;
  std::string extension;
};

NameParts SplitAtLastDot(std::string_view name) {
  const std::size_t dot = name.rfind('.');
  if (dot == std::string_view::npos || dot == 0) return {std::string(name), {}};
  return {std::string(name.substr(0, dot)), std::string(name.substr(dot + 1))};
}

bool IsShortCharacter(char character) {
  const bool alphanumeric =
      (character >= 'A' && character <= 'Z') || (character >= '0' && character <= '9');
  return alphanumeric || std::string_view("!#$%&'()-@^_`{}~").find(character) != std::string::npos;
}

bool IsShort(const NameParts& parts) {
  return !parts.base.empty() && parts.base.size() <= kBaseLength &&
         parts.extension.size() <= kExtensionLength &&
         std::all_of(parts.base.begin(), parts.base.end(), IsShortCharacter) &&
         std::all_of(parts.extension.begin(), parts.extension.end(), IsShortCharacter);
}

// Capitals; blanks and dots go; what has no place in a short name becomes an underscore.
std::string ShortCharacters(std::string_view text) {
  std::string result;
  for (const char character : text) {
    if (character == ' ' || character == '.') continue;
    const char upper = ToUpperAscii(character);
    result += IsShortCharacter(upper) ? upper : '_';
  }
  return result;
}

Fat32ShortName Pack(const NameParts& parts) {
  Fat32ShortName packed;
  packed.fill(' ');
  std::copy_n(parts.base.begin(), std::min(parts.base.size(), kBaseLength), packed.begin());
  std::copy_n(parts.extension.begin(), std::min(parts.extension.size(), kExtensionLength),
              packed.begin() + kBaseLength);
  return packed;
}

std::string TextOf(const NameParts& parts) {
  return parts.extension.empty() ? parts.base : parts.base + '.' + parts.extension;
}

std::uint8_t Checksum(const Fat32ShortName& name) {
  std::uint8_t sum = 0;
  for (const char character : name) {
    const int rotated = (sum & 1) << 7 | sum >> 1;
    sum = static_cast<std::uint8_t>(rotated + static_cast<std::uint8_t>(character));
  }
  return sum;
}

std::array<std::uint16_t, kCharactersInSlot> CharactersOf(const Fat32NameSlot& slot) {
  std::array<std::uint16_t, kCharactersInSlot> characters{};
  auto out = std::copy(slot.first.begin(), slot.first.end(), characters.begin());
  out = std::copy(slot.second.begin(), slot.second.end(), out);
  std::copy(slot.third.begin(), slot.third.end(), out);
  return characters;
}

// Behind the name comes a zero, and then ones to the end of the slot.
std::uint16_t CharacterAt(const std::u16string& name, std::size_t index) {
  if (index < name.size()) return name[index];
  return index == name.size() ? 0 : 0xFFFF;
}

std::string Trimmed(std::string_view text) {
  return std::string(text.substr(0, text.find_last_not_of(' ') + 1));
}

}  // namespace

std::string ShortNameText(const Fat32FileSlot& slot) {
  const std::string_view name(slot.name.data(), slot.name.size());
  NameParts parts{Trimmed(name.substr(0, kBaseLength)), Trimmed(name.substr(kBaseLength))};
  if ((slot.case_flags & kLowerBase) != 0) parts.base = ToLowerAscii(parts.base);
  if ((slot.case_flags & kLowerExtension) != 0) parts.extension = ToLowerAscii(parts.extension);
  return TextOf(parts);
}

bool IsShortName(std::string_view name) {
  const NameParts parts = SplitAtLastDot(name);
  return IsShort(parts) && TextOf(parts) == name;
}

Fat32ShortName MakeShortName(std::string_view name, const std::vector<std::string>& taken) {
  const auto is_free = [&taken](const NameParts& parts) {
    return std::find(taken.begin(), taken.end(), TextOf(parts)) == taken.end();
  };
  const NameParts whole = SplitAtLastDot(name);
  NameParts parts{ShortCharacters(whole.base), ShortCharacters(whole.extension)};
  const bool nothing_lost = parts.base.size() == whole.base.size() &&
                            parts.extension.size() == whole.extension.size() && IsShort(parts) &&
                            parts.base.find('_') == std::string::npos;
  if (nothing_lost && is_free(parts)) return Pack(parts);
  const std::string base = parts.base;
  parts.extension.resize(std::min(parts.extension.size(), kExtensionLength));
  for (std::size_t number = 1;; ++number) {
    const std::string tail = "~" + std::to_string(number);
    parts.base = base.substr(0, kBaseLength - tail.size()) + tail;
    if (is_free(parts)) return Pack(parts);
  }
}

std::vector<Fat32NameSlot> MakeNameSlots(std::string_view name, const Fat32ShortName& short_name) {
  const std::u16string text =
      std::filesystem::path(std::u8string(name.begin(), name.end())).u16string();
  if (text.size() > kLongestName) return {};
  const std::size_t count = (text.size() + kCharactersInSlot - 1) / kCharactersInSlot;
  std::vector<Fat32NameSlot> slots;
  for (std::size_t part = count; part > 0; --part) {
    Fat32NameSlot slot{};
    const bool is_last = part == count;
    slot.order = static_cast<std::uint8_t>(is_last ? part | kFat32LastNamePart : part);
    slot.attributes = kFat32AttributesLongName;
    slot.checksum = Checksum(short_name);
    std::size_t index = (part - 1) * kCharactersInSlot;
    for (Little16& character : slot.first) character = CharacterAt(text, index++);
    for (Little16& character : slot.second) character = CharacterAt(text, index++);
    for (Little16& character : slot.third) character = CharacterAt(text, index++);
    slots.push_back(slot);
  }
  return slots;
}

std::string LongNameText(std::span<const Fat32NameSlot> slots, const Fat32FileSlot& file) {
  std::basic_string<WCHAR> text;
  for (std::size_t part = 1; part <= slots.size(); ++part) {
    const Fat32NameSlot& slot = slots[slots.size() - part];
    const bool is_last = part == slots.size();
    const std::size_t order = is_last ? part | kFat32LastNamePart : part;
    if (slot.order != order || slot.checksum != Checksum(file.name)) return {};
    for (const std::uint16_t character : CharactersOf(slot)) {
      if (character == 0) break;
      text += static_cast<WCHAR>(character);
    }
  }
  return Utf16ToUtf8(text.c_str());
}

}  // namespace simulator
