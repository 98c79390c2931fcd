// The library's record of a disk of a simulated machine, filled as an application fills it.
#pragma once

#include <cstdint>
#include <deque>

#include "frame/velkora_sdk.h"
#include "simulator/simulated_machine.h"

namespace velkora_image {

// Owns the DiskInfo and its VolumeInfo records. The volumes are those that the machine shows on the
// disk, in disk order, with their paths, letters, file systems and cluster sizes.
class DiskRecord {
 public:
  // Throws std::invalid_argument for a disk that is not attached or has more than 255 volumes.
  DiskRecord(simulator::SimulatedMachine& machine, std::uint32_t disk_number);
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

}  // namespace velkora_image
