#include "frame/disk_records.h"

#include "logging/log.h"
#include "platform/guard.h"

namespace velkora {

const char* DiskTypeText(DiskType type) {
  switch (type) {
    case DiskType::kGpt:
      return "GPT";
    case DiskType::kMbr:
      return "MBR";
    default:
      return "RAW";
  }
}

const char* FileSystemText(VolumeFileSystem filesystem) {
  switch (filesystem) {
    case VolumeFileSystem::kMicrosoft:
      return "MICROSOFT";
    case VolumeFileSystem::kSystemHide:
      return "SYSTEM_HIDE";
    case VolumeFileSystem::kCoreStorage:
      return "CORE_STORAGE";
    case VolumeFileSystem::kUnknown:
      return "UNKNOWN";
    case VolumeFileSystem::kHfs:
      return "HFS";
    case VolumeFileSystem::kApfs:
      return "APFS";
    case VolumeFileSystem::kNtfs:
      return "NTFS";
    case VolumeFileSystem::kFat12:
      return "FAT12";
    case VolumeFileSystem::kFat16:
      return "FAT16";
    case VolumeFileSystem::kFat32:
      return "FAT32";
    case VolumeFileSystem::kExfat:
      return "EXFAT";
    case VolumeFileSystem::kExt2:
      return "EXT2";
    case VolumeFileSystem::kExt3:
      return "EXT3";
    case VolumeFileSystem::kExt4:
      return "EXT4";
    case VolumeFileSystem::kRefs:
      return "REFS";
    default:
      return "RAW";
  }
}

void LogDiskInfo(const DiskInfo& disk) {
  LogEx(kLogModule, kLogProgress, "-----------diskinfo-----------");
  LogEx(kLogModule, kLogProgress,
        "[disk] disk_type: %s, id: %s, index: %d, serial_num: %s, is_system: %d, size: %llu, "
        "volume_count: %d",
        DiskTypeText(disk.disk_type), FieldText(disk.id).c_str(), static_cast<int>(disk.index),
        FieldText(disk.serial_num).c_str(), static_cast<int>(disk.is_system),
        static_cast<unsigned long long>(disk.size), static_cast<int>(disk.volume_count));
  for (std::uint8_t i = 0; i < disk.volume_count; ++i) {
    const VolumeInfo& volume = VolumeAt(disk, i);
    LogEx(kLogModule, kLogProgress,
          "[part] offset: %llu, size: %llu, letter: %s, is_system: %d, filesystem: %s",
          static_cast<unsigned long long>(volume.offset),
          static_cast<unsigned long long>(volume.size), FieldText(volume.letter).c_str(),
          static_cast<int>(volume.is_system), FileSystemText(volume.filesystem));
  }
  LogEx(kLogModule, kLogProgress, "------------------------------");
}

VolumeInfo& VolumeAt(const DiskInfo& disk, std::uint8_t index) {
  if (index >= std::size(disk.volumes)) win32::RaiseFault(EXCEPTION_ACCESS_VIOLATION);
  return *disk.volumes[index];
}

VolumeInfo* FindVolumeByOffset(const DiskInfo& disk, std::uint64_t offset) {
  for (std::uint8_t i = 0; i < disk.volume_count; ++i) {
    VolumeInfo& volume = VolumeAt(disk, i);
    if (volume.offset == offset) return &volume;
  }
  return nullptr;
}

}  // namespace velkora
