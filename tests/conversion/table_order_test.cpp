// Rows that do not stand in the table as they lie on the disk, and boot records that land on what
// is there because of it.
#include <algorithm>
#include <gmock/gmock.h>

#include "conversion/converted_disk_fixture.h"
#include "simulator/disk.h"
#include "support/machine_fixture.h"
#include "support/tools/run_tool.h"

namespace conversion {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

// The partitions in another order.
Partitions InOrder(const Partitions& partitions, const std::vector<std::size_t>& order) {
  Partitions ordered;
  for (const std::size_t place : order) ordered.push_back(partitions[place]);
  return ordered;
}

class TableOrder : public ConversionTest {
 protected:
  // Converts, expects success and every byte as worked out, and returns the sectors lost outside
  // the first and last MiB.
  SectorRanges Convert(const Partitions& partitions, const std::string& transcript) {
    CopyImage(image(), File("before.img"));
    ExpectedImage expected(image(), File("expected.img"));
    ConversionRun run(image());
    const PartNumbers numbers = PartNumbersOf(run);
    EXPECT_EQ(run.Convert(), 0);
    ExpectTranscript(run.transcript(), transcript);
    EXPECT_EQ(PartNumbersOf(run), NewPartNumbers(numbers, Kept(partitions)));
    expected.Convert(Kept(partitions));
    EXPECT_EQ(DifferingSectors(expected.path(), image()), SectorRanges());
    return LostSectors(File("before.img"), image());
  }

  // The entries and the mark are new, what stands in front of them is not.
  void ExpectBootRecordAt(std::uint64_t sector) {
    const Sector before = ImageFile(File("before.img")).ReadSector(sector);
    const Sector after = ImageFile(image()).ReadSector(sector);
    constexpr std::ptrdiff_t kEntries = 446;
    EXPECT_TRUE(std::equal(before.begin(), before.begin() + kEntries, after.begin()));
    EXPECT_FALSE(std::equal(before.begin() + kEntries, before.end(), after.begin() + kEntries));
    EXPECT_EQ(after[510], 0x55);
    EXPECT_EQ(after[511], 0xAA);
  }
};

TEST_F(TableOrder, RowsAreSortedByTheirPlaceOnTheDisk) {
  const Partitions partitions = InOrder(EvenPartitions(5, 2, 1), {4, 2, 0, 1, 3});
  MakeGptDisk(image(), 20 * kMib, partitions);
  ExpectConversion(image(), partitions, "out_of_order_with_room");
}

// Neighbours in the table are far apart, neighbours on the disk are not: no gap is missed, and the
// boot records take the place of the first sectors of the logical partitions.
TEST_F(TableOrder, PackedPartitionsLoseTheirFirstSectorsToBootRecords) {
  const Partitions on_disk = EvenPartitions(5, 2, 0);
  const Partitions partitions = InOrder(on_disk, {1, 3, 0, 2, 4});
  MakeGptDisk(image(), 14 * kMib, partitions);
  const std::uint64_t fourth = on_disk[3].first;
  const std::uint64_t fifth = on_disk[4].first;
  EXPECT_THAT(Convert(partitions, "out_of_order_packed"),
              ElementsAre(SectorRange{fourth, fourth}, SectorRange{fifth, fifth}));
  ExpectBootRecordAt(fourth);
  ExpectBootRecordAt(fifth);
  ExpectMbrBySfdisk(image(), partitions, kSignature);
  // A logical partition that begins with its own boot record is too much for parted.
  const auto parted = testing_support::RunTool({"parted", "-s", "-m", image(), "print"});
  EXPECT_EQ(parted.exit_status, 1);
  EXPECT_THAT(parted.output, HasSubstr("recursive partition"));
}

TEST_F(TableOrder, ABootRecordLandsOnADroppedPartition) {
  Partitions partitions = EvenPartitions(5, 2, 0);
  partitions[3].type = kReserved;
  MakeGptDisk(image(), 14 * kMib, partitions);
  const std::uint64_t reserved = partitions[3].first;
  EXPECT_THAT(Convert(partitions, "boot_record_on_reserved_partition"),
              ElementsAre(SectorRange{reserved, reserved}));
  ExpectBootRecordAt(reserved);
  ExpectMbr(image(), Kept(partitions), kSignature);
}

// The third partition lies within the second, and the boot record behind it as well.
TEST_F(TableOrder, ABootRecordLandsInsideAPartitionThatOverlaps) {
  const Partitions partitions = {{2048, 4095}, {4096, 16383}, {6144, 8191}, {18432, 20479}};
  MakeGptDisk(image(), 14 * kMib, {});
  {
    simulator::Disk disk(1, image(), 512);
    std::vector<testing_support::GptEntry> entries;
    std::uint8_t unique = 1;
    for (const Partition& partition : partitions) {
      entries.push_back(
          {testing_support::kBasicDataGuid, partition.first, partition.last, unique++});
    }
    testing_support::WriteGpt(disk, entries);
  }
  EXPECT_THAT(Convert(partitions, "boot_record_inside_a_partition"),
              ElementsAre(SectorRange{8192, 8192}));
  ExpectBootRecordAt(8192);
}

}  // namespace
}  // namespace conversion
