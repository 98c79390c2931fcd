#include "convert/volume_numbers.h"

#include "frame/disk_records.h"

namespace velkora {

void UpdateVolumePartNumbers(std::vector<std::uint64_t> offsets, DiskInfo& disk) {
  // The place is counted in 8 bits, so that the 257th offset has number 1 again.
  std::uint8_t place = 0;
  for (const std::uint64_t offset : offsets) {
    VolumeInfo* volume = FindVolumeByOffset(disk, offset);
    if (volume != nullptr) volume->part_number = static_cast<std::uint16_t>(place + 1);
    ++place;
  }
}

}  // namespace velkora
