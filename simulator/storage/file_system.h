// The file systems that the machine tells apart.
#pragma once

#include <string_view>

namespace simulator {

enum class FileSystem { kNone, kNtfs, kFat12, kFat16, kFat32, kExfat, kRefs, kExt2, kExt3, kExt4 };

// True for the kinds that Windows itself mounts: NTFS, the FAT family, exFAT and ReFS.
bool IsMountedByWindows(FileSystem kind);

// "NTFS", "FAT32", "ext4"…; "none" for kNone.
std::string_view FileSystemName(FileSystem kind);

}  // namespace simulator
