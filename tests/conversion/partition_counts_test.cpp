// Disks by their number of partitions, all with room for boot records.
#include "conversion/converted_disk_fixture.h"
#include "conversion/tools.h"

namespace conversion {
namespace {

class PartitionCounts : public ConversionTest {
 protected:
  void ConvertEven(std::size_t count, const std::string& transcript) {
    const Partitions partitions = EvenPartitions(count, 2, 1);
    MakeGptDisk(image(), (count * 3 + 4) * kMib, partitions);
    ExpectConversion(image(), partitions, transcript);
  }
};

TEST_F(PartitionCounts, One) {
  ConvertEven(1, "one_partition");
}

TEST_F(PartitionCounts, ThreeArePrimary) {
  ConvertEven(3, "three_partitions");
}

TEST_F(PartitionCounts, TheFourthIsLogical) {
  ConvertEven(4, "four_partitions");
}

TEST_F(PartitionCounts, FiveMakeAChain) {
  ConvertEven(5, "five_partitions");
}

TEST_F(PartitionCounts, Eight) {
  ConvertEven(8, "eight_partitions");
}

TEST_F(PartitionCounts, SixtyOfWhichMostHaveNoLetter) {
  ConvertEven(60, "sixty_partitions");
}

TEST_F(PartitionCounts, NoneIsLeftOfSystemAndReservedPartitions) {
  Partitions partitions = EvenPartitions(3, 2, 0);
  partitions[0].type = kEfiSystem;
  partitions[1].type = kReserved;
  partitions[2].type = kHidden;
  MakeGptDisk(image(), 16 * kMib, partitions);
  ExpectConversion(image(), partitions, "no_partitions_left");
}

TEST_F(PartitionCounts, AnEmptyDiskToo) {
  MakeGptDisk(image(), 16 * kMib, {});
  ExpectConversion(image(), {}, "empty_disk");
}

// The three that stay behind are no rows of the new table; their sectors are left alone.
TEST_F(PartitionCounts, DroppedPartitionsDoNotCount) {
  Partitions partitions = EvenPartitions(7, 2, 1);
  partitions[0].type = kEfiSystem;
  partitions[1].type = kReserved;
  partitions[4].type = kHidden;
  partitions[5].type = kLinux;
  MakeGptDisk(image(), 32 * kMib, partitions);
  ExpectConversion(image(), partitions, "dropped_partitions");
}

TEST_F(PartitionCounts, FiveOfATableBySgdisk) {
  const Partitions partitions = EvenPartitions(5, 2, 1);
  MakeGptDisk(image(), 20 * kMib, {});
  std::vector<std::string> argv = {"sgdisk", "--clear"};
  for (const Partition& partition : partitions) {
    argv.push_back("--new=0:" + std::to_string(partition.first) + ":" +
                   std::to_string(partition.last));
  }
  argv.push_back(image());
  Tool(argv);
  ExpectConversion(image(), partitions, "five_partitions_by_sgdisk");
}

}  // namespace
}  // namespace conversion
