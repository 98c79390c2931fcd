// Disks larger than 2 TiB, of which an MBR reaches only the first 2 TiB.
#include <stdexcept>

#include "conversion/converted_disk_fixture.h"
#include "conversion/rolled_back_disk.h"

namespace conversion {
namespace {

constexpr std::uint64_t kTib = std::uint64_t{1} << 40;
constexpr std::uint64_t kLimit = std::uint64_t{1} << 32;  // sectors: 2 TiB
constexpr std::uint64_t kLimitBytes = 2 * kTib;

class LargeDisk : public ConversionTest {
 protected:
  // Converts, expects that the platform refuses the table, and that the disk gets its own back. The
  // record keeps the lowered size.
  void ExpectRefusal(const Partitions& partitions, const std::string& transcript) {
    MakeGptDisk(image(), 3 * kTib, partitions);
    RolledBackDisk disk(image(), partitions);
    ConversionRun run(image());
    const PartNumbers numbers = PartNumbersOf(run);
    ExpectFailure(run,
                  {"percent 0", "status 1", "percent 20", "status 2", "percent 40", "status 3",
                   "percent 60", "status 4"},
                  {"DeviceIoControl with IOCTL_DISK_SET_DRIVE_LAYOUT_EX error 87"}, transcript);
    EXPECT_EQ(run.record().disk().size, kLimitBytes);
    EXPECT_EQ(PartNumbersOf(run), numbers);
    disk.Expect();
  }

  void ExpectLoweredSize(std::uint64_t size, const Partitions& partitions,
                         const std::string& transcript) {
    ExpectedImage expected(image(), File("expected.img"));
    ConversionRun run(image());
    EXPECT_EQ(run.record().disk().size, size);
    EXPECT_EQ(run.Convert(), 0);
    ExpectTranscript(run.transcript(), transcript);
    EXPECT_EQ(run.record().disk().size, kLimitBytes);
    expected.Convert(partitions);
    EXPECT_EQ(DifferingSectors(expected.path(), image()), SectorRanges());
    ExpectMbr(image(), partitions, kSignature);
  }
};

TEST_F(LargeDisk, TheContainerEndsAt2TiBAndTheRecordSaysSo) {
  Partitions partitions = EvenPartitions(4, 2, 1);
  partitions.push_back({kLimit - 4096, kLimit - 1});
  MakeGptDisk(image(), 3 * kTib, partitions);
  ExpectLoweredSize(3 * kTib, partitions, "three_tib");
}

TEST_F(LargeDisk, ThreePartitionsLowerTheSizeToo) {
  const Partitions partitions = EvenPartitions(3, 2, 1);
  MakeGptDisk(image(), 3 * kTib, partitions);
  ExpectLoweredSize(3 * kTib, partitions, "three_tib_primary");
}

TEST_F(LargeDisk, AnEmptyTableLeavesTheSizeInTheRecord) {
  MakeGptDisk(image(), 3 * kTib, {});
  ConversionRun run(image());
  EXPECT_EQ(run.Convert(), 0);
  EXPECT_EQ(run.record().disk().size, 3 * kTib);
  ExpectMbr(image(), {}, kSignature);
}

TEST_F(LargeDisk, ExactlyTwoTiBStays) {
  const Partitions partitions = EvenPartitions(4, 2, 1);
  MakeGptDisk(image(), kLimitBytes, partitions);
  ExpectLoweredSize(kLimitBytes, partitions, "two_tib");
}

// Both numbers of its entry fit, so that the platform takes it as it stands.
TEST_F(LargeDisk, APartitionAcross2TiBKeepsItsLength) {
  Partitions partitions = EvenPartitions(2, 2, 1);
  partitions.push_back({kLimit - 4096, kLimit + 4095});
  MakeGptDisk(image(), 3 * kTib, partitions);
  ExpectLoweredSize(3 * kTib, partitions, "three_tib_across");
}

TEST_F(LargeDisk, APartitionBehind2TiBIsRefused) {
  Partitions partitions = EvenPartitions(2, 2, 1);
  partitions.push_back({kLimit, kLimit + 4095});
  ExpectRefusal(partitions, "three_tib_beyond");
}

TEST_F(LargeDisk, ALogicalPartitionBehind2TiBIsRefused) {
  Partitions partitions = EvenPartitions(4, 2, 1);
  partitions.push_back({kLimit + 1024 * kSectorsPerMib, kLimit + 1025 * kSectorsPerMib});
  ExpectRefusal(partitions, "three_tib_beyond_logical");
}

// As large as the file system of the temporary folder holds; 16 TiB is one block too many for some.
TEST_F(LargeDisk, SixteenTiB) {
  std::uint64_t size = 16 * kTib;
  const Partitions partitions = EvenPartitions(5, 2, 1);
  try {
    MakeGptDisk(image(), size, partitions);
  } catch (const std::runtime_error&) {
    size -= kMib;
    MakeGptDisk(image(), size, partitions);
  }
  ConversionRun run(image());
  ExpectedImage expected(image(), File("expected.img"));
  EXPECT_EQ(run.Convert(), 0);
  EXPECT_EQ(run.record().disk().size, kLimitBytes);
  expected.Convert(partitions);
  EXPECT_EQ(DifferingSectors(expected.path(), image()), SectorRanges());
  ExpectMbr(image(), partitions, kSignature);
}

}  // namespace
}  // namespace conversion
