// Texts for the caller's records, and the one way to walk their volumes.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

#include "frame/velkora_sdk.h"

namespace velkora {

// The text of a field of fixed size, up to its NUL or, where there is none, its end.
template <std::size_t kCapacity>
std::string FieldText(const char (&field)[kCapacity]) {
  return std::string(field, std::find(field, field + kCapacity, '\0'));
}

// "GPT", "MBR", or "RAW" for anything else.
const char* DiskTypeText(DiskType type);

// "NTFS", "FAT32", …; "RAW" for a value that has no text.
const char* FileSystemText(VolumeFileSystem filesystem);

// Prints the record to the log, level 1: a head line, the disk, a line for each volume, an end
// line. Raises an access violation when the walk leaves the array, that is for more than 255
// volumes.
void LogDiskInfo(const DiskInfo& disk);

// The entry at `index` of the record's volumes. Raises an access violation for index 255, which
// lies behind the array.
VolumeInfo& VolumeAt(const DiskInfo& disk, std::uint8_t index);

// The first volume, in list order, that starts at `offset` (bytes); null when there is none.
VolumeInfo* FindVolumeByOffset(const DiskInfo& disk, std::uint64_t offset);

}  // namespace velkora
