// The converter object behind the public interface.
#pragma once

#include <cstdint>
#include <vector>

#include "frame/velkora_sdk.h"
#include "platform/win32_types.h"

namespace velkora {

struct BackupStorage;

class Velkora final : public VelkoraSDK {
 public:
  std::int32_t Convert(DiskInfo* disk, VelkoraCallback progress) override;
  void Stop() override;

  // Shrinks the volume that starts at `start_offset` (bytes from the start of the disk) by
  // `size_mib` MiB from its end. Sends status 5 first, also when no such volume exists. Returns
  // false when no record has that offset (logged "CompressPart End", level 1), when its file system
  // cannot be shrunk (the long text, level 1), or when the shrink failed ("Compress ntfs part
  // fail!" or "Compress fat32 part fail!", level 3, behind the lines of the failing step). A FAT32
  // volume whose partition number cannot be asked gives false too, with the lines of that query
  // alone. Writes to the volume and the partition table; undoes nothing on failure. What the shrink
  // of a FAT32 volume throws passes through (see CompressFat32Partition).
  bool CompressPart(std::uint64_t start_offset, std::uint64_t size_mib);

  // The caller's record, borrowed from Convert's start to its end.
  DiskInfo* disk_info = nullptr;
  // The whole disk, open read and write for the length of Convert.
  HANDLE disk_handle = INVALID_HANDLE_VALUE;
  VelkoraCallback callback = nullptr;
  // Metadata backup of the running conversion.
  BackupStorage* backup_data = nullptr;
  // Byte offsets of the partitions, in table order; rewritten once the new table is set.
  std::vector<std::uint64_t> partition_offsets;
};

}  // namespace velkora
