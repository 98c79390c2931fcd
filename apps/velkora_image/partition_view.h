// What a disk looks like to a person: its partitions, their file systems and letters.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "simulator/simulated_machine.h"

namespace velkora_image {

struct PartitionView {
  std::uint32_t number = 0;  // as Windows counts: primaries, then logical partitions
  std::uint64_t start = 0;   // bytes
  std::uint64_t length = 0;  // bytes
  std::string type;          // as sfdisk writes it: a GUID in capitals, or hex digits such as "c"
  std::string kind;          // the type in words
  std::string file_system;   // empty for none
  std::string letter;        // "C", or empty
  bool logical = false;
};

struct DiskView {
  std::string style;                      // "mbr", "gpt", "raw"
  std::uint64_t size = 0;                 // bytes
  std::vector<PartitionView> partitions;  // in disk order
};

// Reads the table from the image itself, and the letters as the machine has given them. Throws
// InputError for a table that cannot be read.
DiskView ReadDiskView(simulator::SimulatedMachine& machine, simulator::Disk& disk);

// "MBR", "GPT", "RAW".
std::string StyleName(const DiskView& view);

// "partition 3 (FAT32, C:)".
std::string PartitionName(const PartitionView& partition);

}  // namespace velkora_image
