// Partition tables as the campaign reads them: bytes of sectors, without the library and the
// simulated machine's table code.
#pragma once

#include <cstdint>
#include <vector>

#include "campaign/base_disk.h"
#include "simulator/storage/block_device.h"

namespace campaign {

struct GptRange {
  std::uint64_t first = 0;  // sectors
  std::uint64_t last = 0;
  bool efi_system = false;
  bool operator==(const GptRange&) const = default;
};
// The used entries of the primary array.
std::vector<GptRange> ReadGpt(simulator::BlockDevice& disk);

// Sectors of the boot records that hold logical partitions.
std::vector<std::uint64_t> ReadBootRecordChain(simulator::BlockDevice& disk);

// First cluster of the MFT in bytes from the start of the disk, for a partition at `offset` that
// holds NTFS; 0 for any other.
std::uint64_t MftOffset(simulator::BlockDevice& disk, std::uint64_t offset);

}  // namespace campaign
