// File names of FAT32: the short form of eight and three characters, and long names in slots.
#pragma once

#include <array>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/storage/on_disk.h"

namespace simulator {

using Fat32ShortName = std::array<char, 11>;

// "MICROS~1.TXT" for eight and three characters as they lie on the disk.
std::string ShortNameText(const Fat32FileSlot& slot);

// True if the name can be kept in the short form alone: capitals, digits and a few signs.
bool IsShortName(std::string_view name);

// The short form for a name that none of `taken` (texts) has: the name itself in capitals where
// that is enough, else its beginning, "~" and a number.
Fat32ShortName MakeShortName(std::string_view name, const std::vector<std::string>& taken);

// The slots of a long name (UTF-8) in the order in which they lie in front of the file's own slot;
// empty for a name of more than 255 UTF-16 units.
std::vector<Fat32NameSlot> MakeNameSlots(std::string_view name, const Fat32ShortName& short_name);

// The long name in the slots in front of `file`, as UTF-8; empty when they do not belong to it.
std::string LongNameText(std::span<const Fat32NameSlot> slots, const Fat32FileSlot& file);

}  // namespace simulator
