// The ground of tests that convert a GPT disk.
#pragma once

#include <cstdint>
#include <vector>

#include "convert/partition_row.h"
#include "support/disk_conversion_fixture.h"

namespace testing_support {

// A disk of 256 MiB.
class GptDiskTest : public DiskConversionTest {
 protected:
  static constexpr std::uint64_t kDiskSize = 256 << 20;

  GptDiskTest() : DiskConversionTest(DiskType::kGpt, kDiskSize) {}

  // Writes the table and a small NTFS volume into each entry, lets the machine see them, and opens
  // the disk for the converter. With `with_record` each entry's volume is in the record too.
  void SetUpDisk(const std::vector<GptEntry>& entries, bool with_record = true);

  // `count` basic data entries of 16 MiB, 1 MiB apart, the first at 1 MiB.
  static std::vector<GptEntry> SpacedEntries(std::size_t count);
  static velkora::GptPartitionList Rows(const std::vector<GptEntry>& entries);
};

}  // namespace testing_support
