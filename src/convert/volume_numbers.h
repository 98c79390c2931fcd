// Tells the caller's records the partition numbers of the new table.
#pragma once

#include <cstdint>
#include <vector>

#include "frame/velkora_sdk.h"

namespace velkora {

// Gives the first volume at each offset (bytes) that offset's place in the list, from 1. Volumes
// without an offset in the list keep their number. The place is counted in 8 bits.
void UpdateVolumePartNumbers(std::vector<std::uint64_t> offsets, DiskInfo& disk);

}  // namespace velkora
