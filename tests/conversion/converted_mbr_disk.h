// The ground of the tests that convert an MBR disk, and the whole judgement of a conversion that
// went well.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "conversion/converted_disk_fixture.h"
#include "conversion/mbr_disk.h"

namespace conversion {

// Rows of the new table for rows of the old one, given in disk order: type 0xFF becomes a hidden
// partition, a row of kEfiSystem the boot partition, everything else basic data.
std::vector<GptRow> ExpectedGptRows(const Partitions& rows);

// Converts the image, a data disk with letters from D on and room for the table at its end,
// compares the transcript, and expects success: the table as independent tools read it, every byte
// as worked out beforehand, the letters back in place, the numbers in the record, the handles
// closed.
void ExpectGptConversion(const std::filesystem::path& image, const MbrTable& table,
                         const std::string& transcript);

// What a data disk looks like after a conversion to GPT that wrote `rows`; `expected` holds what it
// was before, with every other change made already.
void ExpectConvertedGpt(const std::filesystem::path& image, ExpectedImage& expected,
                        const Partitions& rows);

}  // namespace conversion
