// MBR data disks that become GPT disks: each row of the old table becomes an entry of the new one,
// in disk order, around partitions that stay where they are.
#include "conversion/converted_mbr_disk.h"
#include "conversion/volumes.h"

namespace conversion {
namespace {

class MbrDataDisk : public ConversionTest {
 protected:
  void Convert(const MbrTable& table, std::uint64_t mib, const std::string& transcript) {
    MakeMbrDisk(image(), mib * kMib, table);
    ExpectGptConversion(image(), table, transcript);
  }
};

TEST_F(MbrDataDisk, OnePrimary) {
  Convert({EvenPrimaries(1, 2), {}}, 16, "mbr_one_primary");
}

TEST_F(MbrDataDisk, TwoPrimaries) {
  Convert({EvenPrimaries(2, 2), {}}, 16, "mbr_two_primaries");
}

TEST_F(MbrDataDisk, ThreePrimaries) {
  Convert({EvenPrimaries(3, 2), {}}, 16, "mbr_three_primaries");
}

TEST_F(MbrDataDisk, FourPrimaries) {
  Convert({EvenPrimaries(4, 2), {}}, 16, "mbr_four_primaries");
}

TEST_F(MbrDataDisk, OneLogical) {
  Convert(EvenLogicals(1, 2), 16, "mbr_one_logical");
}

TEST_F(MbrDataDisk, TwoLogicals) {
  Convert(EvenLogicals(2, 2), 16, "mbr_two_logicals");
}

TEST_F(MbrDataDisk, FiveLogicals) {
  Convert(EvenLogicals(5, 2), 32, "mbr_five_logicals");
}

TEST_F(MbrDataDisk, TwentyLogicals) {
  Convert(EvenLogicals(20, 1), 48, "mbr_twenty_logicals");
}

// The container is no row: its area, with the boot records in it, is unclaimed afterwards.
TEST_F(MbrDataDisk, ThreePrimariesAroundLogicals) {
  const Partitions rows = EvenPrimaries(5, 2);
  const MbrTable table = {
      {rows[0], rows[4], {rows[0].last + 1, rows[2].last, kMbrContainer}, rows[3]},
      {rows[1], rows[2]}};
  Convert(table, 20, "mbr_primaries_around_logicals");
}

TEST_F(MbrDataDisk, AnEmptyContainerIsNoRow) {
  MbrTable table = {EvenPrimaries(2, 2), {}};
  table.primaries.push_back({7 * kSectorsPerMib, 10 * kSectorsPerMib - 1, kMbrContainer});
  Convert(table, 16, "mbr_two_primaries");
}

TEST_F(MbrDataDisk, RowsOutOfOrderAreNumberedInDiskOrder) {
  const Partitions rows = EvenPrimaries(4, 2);
  Convert({{rows[2], rows[0], rows[3], rows[1]}, {}}, 16, "mbr_out_of_order");
}

TEST_F(MbrDataDisk, TheHiddenTypeBecomesAHiddenPartition) {
  MbrTable table = EvenLogicals(2, 2);
  table.primaries[0].type = kMbrHidden;
  Convert(table, 16, "mbr_hidden_primary");
}

TEST_F(MbrDataDisk, AHiddenLogicalToo) {
  MbrTable table = EvenLogicals(3, 2);
  table.logicals[1].type = kMbrHidden;
  Convert(table, 16, "mbr_hidden_logical");
}

TEST_F(MbrDataDisk, EveryOtherTypeBecomesBasicData) {
  Partitions rows = EvenPrimaries(4, 2);
  rows[0].type = kMbrLinux;
  rows[1].type = "ef";
  rows[2].type = "27";
  rows[3].type = "a5";
  Convert({rows, {}}, 16, "mbr_four_primaries");
}

// A data disk needs no boot partition, however much room there is for one.
TEST_F(MbrDataDisk, AFirstPartitionFarFromTheStartStaysTheFirst) {
  const std::uint64_t first = 302 * kSectorsPerMib;
  Convert({{{first, first + 4 * kSectorsPerMib - 1, kMbrNtfs}}, {}}, 320, "mbr_far_first");
}

TEST_F(MbrDataDisk, NoPartitionsLeaveAnEmptyTable) {
  Convert({}, 16, "mbr_no_partitions");
}

TEST_F(MbrDataDisk, FilesReadBackAsTheyWere) {
  const Partitions rows = EvenPrimaries(5, 36);
  MbrTable table = {{rows[0], rows[1]}, {rows[2], rows[3], rows[4]}};
  table.primaries.push_back({rows[1].last + 1, rows[4].last, kMbrContainer});
  MakeMbrDisk(image(), 200 * kMib, table);
  const std::filesystem::path& scratch = folder_.path();
  PutNtfs(image(), rows[0], MakeFiles(1), scratch);
  PutFat32(image(), rows[1], MakeFiles(2), scratch);
  PutExt4(image(), rows[2], MakeFiles(3), scratch);
  PutFat32(image(), rows[3], MakeFiles(4), scratch);
  PutNtfs(image(), rows[4], MakeFiles(5), scratch);

  ExpectGptConversion(image(), table, "mbr_five_file_systems");

  ExpectNtfs(image(), rows[0], MakeFiles(1), scratch);
  ExpectFat32(image(), rows[1], MakeFiles(2), scratch);
  ExpectExt4(image(), rows[2], MakeFiles(3), scratch);
  ExpectFat32(image(), rows[3], MakeFiles(4), scratch);
  ExpectNtfs(image(), rows[4], MakeFiles(5), scratch);
}

}  // namespace
}  // namespace conversion
