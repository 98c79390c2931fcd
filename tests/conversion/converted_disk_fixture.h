// The ground of the conversion tests: a folder, a disk in it, and the whole judgement of a
// conversion that went well.
#pragma once

#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <string>

#include "conversion/conversion_run.h"
#include "conversion/expected_image.h"
#include "conversion/gpt_disk.h"
#include "conversion/judges.h"
#include "support/temp_folder.h"

namespace conversion {

class ConversionTest : public ::testing::Test {
 protected:
  std::filesystem::path File(const std::string& name) const { return folder_.path() / name; }
  std::filesystem::path image() const { return File("disk.img"); }

  testing_support::TempFolder folder_;
};

// Partitions that a conversion keeps: neither EFI system nor reserved nor hidden.
Partitions Kept(const Partitions& partitions);

// Converts the image with letters from M on, compares the transcript with the one of that name, and
// expects success: the table as independent tools read it, every byte as
// worked out beforehand, the letters back in place, the numbers in the record, the handles closed.
// `partitions` are those of the table before.
void ExpectConversion(const std::filesystem::path& image, const Partitions& partitions,
                      const std::string& transcript);

// The hash of each partition's bytes.
std::map<std::uint64_t, std::uint64_t> PartitionHashes(const std::filesystem::path& image,
                                                       const Partitions& partitions);

// Partition numbers in the record, by byte offset: as they are, and as a conversion leaves them,
// which counts the partitions of the new table in disk order. One that the record does not hold
// takes up its number.
using PartNumbers = std::map<std::uint64_t, unsigned>;
PartNumbers PartNumbersOf(ConversionRun& run);
PartNumbers NewPartNumbers(const PartNumbers& before, const Partitions& kept);

// The sectors outside the first and last MiB in which two images differ.
SectorRanges LostSectors(const std::filesystem::path& before, const std::filesystem::path& after);

}  // namespace conversion
