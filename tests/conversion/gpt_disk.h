// GPT disks made by sfdisk, with bytes in them that show any change.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "conversion/image_bytes.h"

namespace conversion {

inline constexpr std::uint64_t kMib = std::uint64_t{1} << 20;

// Types of partitions.
inline constexpr char kBasicData[] = "EBD0A0A2-B9E5-4433-87C0-68B6B72699C7";
inline constexpr char kReserved[] = "E3C9E316-0B5C-4DB8-817D-F92DF00215AE";
inline constexpr char kEfiSystem[] = "C12A7328-F81F-11D2-BA4B-00A0C93EC93B";
inline constexpr char kLinux[] = "0FC63DAF-8483-4772-8E79-3D69D8477DE4";
inline constexpr char kHidden[] = "FFFFFFFF-FFFF-FFFF-FFFF-FFFFFFFFFFFF";

struct Partition {
  std::uint64_t first = 0;  // sectors
  std::uint64_t last = 0;
  std::string type = kBasicData;

  SectorRange range() const { return {first, last}; }
  std::uint64_t count() const { return last - first + 1; }
  std::uint64_t offset() const { return first * kSectorBytes; }  // bytes
};
using Partitions = std::vector<Partition>;

// `count` partitions of `mib` MiB, the first at 1 MiB, with `gap_mib` MiB behind each.
Partitions EvenPartitions(std::size_t count, std::uint64_t mib, std::uint64_t gap_mib);

// An image of `size` bytes with the partitions in the table's places 1, 2, 3… in the order given.
// Outside the table the first 4 MiB, the last MiB, and 8 sectors to both sides of each end of a
// partition are marked, each sector with its number.
void MakeGptDisk(const std::filesystem::path& image, std::uint64_t size,
                 const Partitions& partitions);

// Marks sectors with their number.
void MarkSectors(const ImageFile& image, const SectorRange& range);
// Marks, as far as `usable` reaches, the first 4 MiB, the last MiB, and 8 sectors to both sides of
// each end of a partition.
void MarkDisk(const ImageFile& image, const Partitions& partitions, const SectorRange& usable);

// Puts a volume, made as a file of its own, in place of what the partition holds.
void PlaceVolume(const std::filesystem::path& image, const Partition& partition,
                 const std::filesystem::path& volume);
// The partition's sectors as a file of their own.
void ExtractVolume(const std::filesystem::path& image, const SectorRange& range,
                   const std::filesystem::path& volume);

}  // namespace conversion
