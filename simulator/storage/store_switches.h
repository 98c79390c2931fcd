// Ways of writing a partition table in which real systems differ.
#pragma once

namespace simulator {

struct StoreSwitches {
  // MBR values that do not fit 32 bits of sectors are cut to 32 bits instead of being refused.
  bool truncate_mbr_values = false;
};

}  // namespace simulator
