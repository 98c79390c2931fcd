#include "disk/device_handle.h"
#include "frame/disk_records.h"
#include "frame/progress.h"
#include "frame/velkora.h"
#include "logging/log.h"
#include "shrink/fat32_shrink.h"
#include "shrink/ntfs_shrink.h"

namespace velkora {

bool Velkora::CompressPart(std::uint64_t start_offset, std::uint64_t size_mib) {
  LogEx(kLogModule, kLogProgress, "CompressPart Begin...");
  SendStatus(*this, VelkoraStatus::kShrinking);
  const VolumeInfo* volume = FindVolumeByOffset(*disk_info, start_offset);
  if (volume == nullptr) {
    LogEx(kLogModule, kLogProgress, "CompressPart End");
    return false;
  }
  if (volume->filesystem == VolumeFileSystem::kNtfs) {
    if (CompressNtfsPartition(disk_handle, FieldText(volume->volume_id), size_mib)) return true;
    LogEx(kLogModule, kLogError, "Compress ntfs part fail!");
    return false;
  }
  if (volume->filesystem == VolumeFileSystem::kFat32) {
    std::uint32_t partition_number = 0;
    if (!GetDeviceIndex(FieldText(volume->volume_id), &partition_number, /*want_device=*/false)) {
      return false;
    }
    if (CompressFat32Partition(FieldText(disk_info->id), FieldText(volume->volume_id),
                               partition_number, size_mib, volume->cluster_size)) {
      return true;
    }
    LogEx(kLogModule, kLogError, "Compress fat32 part fail!");
    return false;
  }
  // Level 1 on purpose, and the same text for every caller: a log filtered to errors shows nothing
  // from here.
  LogEx(
      kLogModule, kLogProgress,
      "GPT is larger than 4 partitions and there is no partition gap, and it is necessary "
      "\t\t\t\tto compress partitions to convert to MBR, but currently compressed partitions only "
      "support NTFS and fat32.");
  return false;
}

}  // namespace velkora
