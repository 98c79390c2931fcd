// MBR disks made by sfdisk, with bytes in them that show any change.
#pragma once

#include <cstdint>
#include <filesystem>

#include "conversion/gpt_disk.h"

namespace conversion {

// Types of partitions as an MBR has them, in hexadecimal.
inline constexpr char kMbrNtfs[] = "7";
inline constexpr char kMbrLinux[] = "83";
inline constexpr char kMbrHidden[] = "ff";
inline constexpr char kMbrContainer[] = "f";

// The signature of the disks that are made here.
inline constexpr std::uint32_t kOldSignature = 0x1A2B3C4D;

struct MbrTable {
  Partitions primaries;  // up to four, a container among them if there are logicals
  Partitions logicals;   // in the order of the chain, each with room for its boot record

  // Without the container, in disk order.
  Partitions Rows() const;
};

// `count` primary partitions of `mib` MiB of type 7, the first at 1 MiB, 1 MiB apart.
Partitions EvenPrimaries(std::size_t count, std::uint64_t mib);
// One such partition, and behind it a container with `count` logical ones of `mib` MiB.
MbrTable EvenLogicals(std::size_t count, std::uint64_t mib);

// An image of `size` bytes with the table. Outside the table the disk is marked as by MarkDisk.
void MakeMbrDisk(const std::filesystem::path& image, std::uint64_t size, const MbrTable& table);

}  // namespace conversion
