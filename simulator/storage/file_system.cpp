#include "simulator/storage/file_system.h"

namespace simulator {

bool IsMountedByWindows(FileSystem kind) {
  switch (kind) {
    case FileSystem::kNtfs:
    case FileSystem::kFat12:
    case FileSystem::kFat16:
    case FileSystem::kFat32:
    case FileSystem::kExfat:
    case FileSystem::kRefs:
      return true;
    default:
      return false;
  }
}

std::string_view FileSystemName(FileSystem kind) {
  switch (kind) {
    case FileSystem::kNtfs:
      return "NTFS";
    case FileSystem::kFat12:
      return "FAT12";
    case FileSystem::kFat16:
      return "FAT16";
    case FileSystem::kFat32:
      return "FAT32";
    case FileSystem::kExfat:
      return "exFAT";
    case FileSystem::kRefs:
      return "ReFS";
    case FileSystem::kExt2:
      return "ext2";
    case FileSystem::kExt3:
      return "ext3";
    case FileSystem::kExt4:
      return "ext4";
    case FileSystem::kNone:
      break;
  }
  return "none";
}

}  // namespace simulator
