// Disks on which a conversion finds no room but in a FAT32 volume, whose files and folders lie at
// both ends of it.
#pragma once

#include <cstdint>
#include <filesystem>

#include "conversion/fat32_volume_fixture.h"

namespace conversion {

struct Fat32Room {
  Partition partition;          // the volume that gives
  std::uint64_t taken_off = 0;  // sectors
  Partitions others;            // in disk order
  Tree tree;                    // what is in the volume

  Partition Shortened() const {
    Partition shortened = partition;
    shortened.last -= taken_off;
    return shortened;
  }
};

// A GPT with four partitions, the third, of `mib` MiB, without a gap behind it.
Fat32Room MakeRoomForABootRecord(const std::filesystem::path& image,
                                 const std::filesystem::path& scratch, std::uint64_t mib = 48,
                                 std::uint64_t cluster_sectors = 1);
// An MBR whose last partition ends with the disk.
Fat32Room MakeRoomForASecondGpt(const std::filesystem::path& image,
                                const std::filesystem::path& scratch);
// An MBR with a short NTFS volume and a FAT32 volume of more than 1 GiB.
Fat32Room MakeRoomForAnEfiPartition(const std::filesystem::path& image,
                                    const std::filesystem::path& scratch);

// fsck.fat finds nothing but the old second boot sector and free count, and all files are there.
void ExpectFilesOfRoom(const std::filesystem::path& image, const Fat32Room& room,
                       const std::filesystem::path& scratch);

}  // namespace conversion
