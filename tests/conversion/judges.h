// What independent tools say of a disk. Every finding is a failure of the running test.
#pragma once

#include <cstdint>
#include <filesystem>
#include <iosfwd>
#include <string>
#include <vector>

#include "conversion/gpt_disk.h"

namespace conversion {

// An entry of an MBR as sfdisk tells it.
struct MbrRow {
  unsigned number = 0;  // from 5 on for logical partitions
  std::uint64_t start = 0;
  std::uint64_t size = 0;
  std::string type;
  bool operator==(const MbrRow&) const = default;
};
void PrintTo(const MbrRow& row, std::ostream* out);

// The table that a conversion makes of `partitions`, given in any order, on a disk of
// `sector_count` sectors.
std::vector<MbrRow> ExpectedRows(Partitions partitions, std::uint64_t sector_count);

// sfdisk reads exactly the expected table and the signature, and finds no error in it.
void ExpectMbrBySfdisk(const std::filesystem::path& image, const Partitions& partitions,
                       std::uint32_t signature);
// And parted reads the same.
void ExpectMbr(const std::filesystem::path& image, const Partitions& partitions,
               std::uint32_t signature);

// Numbers of the entries that sfdisk shows with the boot mark.
std::vector<unsigned> BootableRows(const std::filesystem::path& image);

// An entry of a GPT as sfdisk tells it.
struct GptRow {
  unsigned number = 0;
  std::uint64_t start = 0;
  std::uint64_t size = 0;
  std::string type;
  std::string name;
  std::string attributes;  // "GUID:62,63", "" for none
  bool operator==(const GptRow&) const = default;
};
void PrintTo(const GptRow& row, std::ostream* out);

// sfdisk reads exactly these entries, whose unique GUIDs all differ, and sgdisk finds no problem.
void ExpectGptRows(const std::filesystem::path& image, const std::vector<GptRow>& expected);

// sgdisk finds no problem in the GPT and it holds exactly these partitions, in table order.
void ExpectGpt(const std::filesystem::path& image, const Partitions& partitions);

}  // namespace conversion
