// A volume as the simulated system sees it, and the identity by which letters are remembered.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "simulator/storage/file_system.h"

namespace simulator {

class Fat32Files;

struct VolumeExtent {
  std::uint32_t disk_number = 0;
  std::uint64_t offset = 0;  // bytes
  std::uint64_t length = 0;  // bytes
};

struct Volume {
  // `\\?\Volume{…}` without a trailing backslash.
  std::string path;
  // What the mount manager remembers letters by: signature and offset, or the partition's GUID.
  std::string identity;
  // One for a partition; none for an optical drive; several for a spanned volume.
  std::vector<VolumeExtent> extents;
  std::uint32_t partition_number = 0;
  // Windows gives EFI system partitions and hidden types no letter by itself.
  bool automatic_letter = true;
  // What the system found when it last looked; the bytes on the disk may have changed since.
  FileSystem file_system = FileSystem::kNone;
  // Of the file system, known since it was mounted: the boot area at the start, which stays
  // writable through a volume handle, and the space that it claims. Bytes.
  std::uint64_t boot_area = 0;
  std::uint64_t file_system_space = 0;
  // While a volume is mounted, raw writes into its extent are refused. Opening a volume that is not
  // mounted by name looks at its file system again.
  bool mounted = false;
  // The file system driver's view of a mounted FAT32 volume; null for any other.
  std::shared_ptr<Fat32Files> fat32;
  // FSCTL_DISMOUNT_VOLUME was the last word on it.
  bool dismounted = false;
  // How often it was dismounted: a handle that is older than the last time is of no use any more.
  std::uint32_t dismount_count = 0;
  bool locked = false;
  // Tells this volume from one of the same name that was here before; given on arrival.
  std::uint64_t arrival = 0;
};

}  // namespace simulator
