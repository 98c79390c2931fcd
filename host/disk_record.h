// The library's record of a disk, filled from what the system says of one disk number.
#pragma once

#include <cstdint>
#include <deque>

#include "frame/velkora_sdk.h"

namespace velkora_host {

// Owns the DiskInfo and its VolumeInfo records, which must live until Convert returns.
class DiskRecord {
 public:
  // Asks the system, through its calls alone: size, style and serial number of the disk; of each
  // volume that begins on it, in disk order, its path, partition number, first letter, place, and
  // what its first bytes say of the file system. Index and device path are of the one number, so
  // they name one disk.
  //
  // Throws HostError, which names the disk or volume, when one of these is not told: a record that
  // leaves something out would lose it. So it does for more than 255 volumes.
  explicit DiskRecord(std::uint32_t disk_number);
  DiskRecord(const DiskRecord&) = delete;
  DiskRecord& operator=(const DiskRecord&) = delete;

  DiskInfo& disk() { return disk_; }
  std::deque<VolumeInfo>& volumes() { return volumes_; }

  // Marks the disk as the running system's, and as its volume the one that has `letter` (if any).
  void MarkSystem(char letter);

 private:
  DiskInfo disk_{};
  std::deque<VolumeInfo> volumes_;
};

}  // namespace velkora_host
