// The ground of the tests that convert the disk that the machine runs from.
#pragma once

#include <filesystem>
#include <string>

#include "conversion/converted_mbr_disk.h"

namespace conversion {

// The EFI system partition that a conversion makes: 300 MiB.
inline constexpr std::uint64_t kEfiSectors = 614'400;
Partition EfiAt(std::uint64_t first_sector);

// Lets the machine run from the volume of this partition, with a Windows folder on it, and marks
// disk and volume in the record. Letters must have been given before.
void RunFrom(ConversionRun& run, const Partition& system);

// fsck.fat finds nothing wrong with the volume, and in it mtools find the files that a machine with
// UEFI starts from and nothing else.
void ExpectEfiVolume(const std::filesystem::path& image, const Partition& efi,
                     const std::filesystem::path& scratch);

// Converts an MBR disk whose row at `system` the machine runs from, with letters from C on, and
// expects success with `rows` in the new table, one of them the EFI system partition. `expected`
// must have every change made but for the emptied ends, the table and that partition.
void ExpectSystemConversion(const std::filesystem::path& image, const Partition& system,
                            ExpectedImage& expected, const Partitions& rows,
                            const std::string& transcript);

}  // namespace conversion
