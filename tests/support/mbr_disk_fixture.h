// The ground of tests that convert an MBR disk.
#pragma once

#include <cstdint>
#include <vector>

#include "convert/partition_row.h"
#include "support/disk_conversion_fixture.h"

namespace testing_support {

class MbrDiskTest : public DiskConversionTest {
 protected:
  static constexpr std::uint64_t kMiB = 2048;  // in sectors

  explicit MbrDiskTest(std::uint64_t size_mib)
      : DiskConversionTest(DiskType::kMbr, size_mib << 20) {}

  // Writes the table and a small NTFS volume into each partition that begins on the disk, lets the
  // machine see them, and opens the disk for the converter. With `with_record` the volumes are in
  // the record too, in the order given.
  void SetUpDisk(const std::vector<MbrEntry>& primaries, const std::vector<MbrEntry>& logicals = {},
                 bool with_record = true);

  // `count` entries of 16 MiB, 1 MiB apart, the first at 1 MiB.
  static std::vector<MbrEntry> SpacedEntries(std::size_t count);
  // An entry that begins and ends at these MiB.
  static MbrEntry Between(std::uint64_t first_mib, std::uint64_t end_mib);

  // The first `count` entries of the GPT's array, as they lie on the disk.
  std::vector<velkora::GptPartitionRow> GptRowsOnDisk(std::size_t count);
  // Their names, which are ASCII.
  std::vector<std::string> Names(std::size_t count);
};

// What a test expects of a row, without the bytes that nothing looks at.
struct RowPlace {
  std::uint64_t first_sector = 0;
  std::uint64_t sector_count = 0;
  bool operator==(const RowPlace&) const = default;
};
void PrintTo(const RowPlace& place, std::ostream* out);

std::vector<RowPlace> PlacesOf(const velkora::MbrPartitionList& rows);
std::vector<RowPlace> PlacesOf(const std::vector<velkora::GptPartitionRow>& rows);

// The entries as the library lists them.
velkora::MbrPartitionList MbrRowsOf(const std::vector<MbrEntry>& entries);

}  // namespace testing_support
