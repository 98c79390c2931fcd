// MBR disks that the machine runs from, on which a volume has to be shrunk: by 302 MiB for the EFI
// system partition, which takes the last 300 of them, and by 1 MiB for the table's second copy.
#include "conversion/system_disk.h"
#include "conversion/volumes.h"

namespace conversion {
namespace {

constexpr std::uint64_t kRoom = 302 * kSectorsPerMib;
constexpr std::uint64_t kSmall = 4 * kSectorsPerMib;
constexpr std::uint64_t kLong = 1100 * kSectorsPerMib;

Partition Shortened(Partition partition, std::uint64_t sectors) {
  partition.last -= sectors;
  return partition;
}

class MbrSystemShrink : public ConversionTest {
 protected:
  void MakeDisk(const MbrTable& table, std::uint64_t tail) {
    MakeMbrDisk(image(), (table.Rows().back().last + 1 + tail) * kSectorBytes, table);
  }
  void PutWindows(const Partition& partition) {
    PutNtfs(image(), partition, MakeFiles(1), folder_.path());
  }
};

// The row that is shrunk need not be the last: the others are too short.
TEST_F(MbrSystemShrink, TheBootPartitionTakesTheEndOfALongRowInTheMiddle) {
  Partitions rows = {{kSectorsPerMib, kSectorsPerMib + kSmall - 1, kMbrNtfs}};
  rows.push_back({rows[0].last + 1, rows[0].last + kLong, kMbrNtfs});
  rows.push_back({rows[1].last + 1, rows[1].last + kSmall, kMbrNtfs});
  MakeDisk({rows, {}}, kSectorsPerMib);
  PutWindows(rows[1]);
  const Partition shortened = Shortened(rows[1], kRoom);
  const Partition efi = EfiAt(rows[1].last + 1 - kEfiSectors);
  ExpectedImage expected(image(), File("expected.img"));
  expected.ShortenNtfs(rows[1].first, kRoom);
  ExpectSystemConversion(image(), rows[1], expected, {rows[0], shortened, efi, rows[2]},
                         "mbr_system_shrink_in_the_middle");
  ExpectShrunkNtfs(image(), shortened, MakeFiles(1), folder_.path());
}

TEST_F(MbrSystemShrink, OneSectorOver1GiBIsEnough) {
  const Partition row = {kSectorsPerMib, 1025 * kSectorsPerMib, kMbrNtfs};
  MakeDisk({{row}, {}}, kSectorsPerMib);
  PutWindows(row);
  const Partition shortened = Shortened(row, kRoom);
  ExpectedImage expected(image(), File("expected.img"));
  expected.ShortenNtfs(row.first, kRoom);
  ExpectSystemConversion(image(), row, expected, {shortened, EfiAt(row.last + 1 - kEfiSectors)},
                         "mbr_system_shrink_over_1_gib");
  ExpectShrunkNtfs(image(), shortened, MakeFiles(1), folder_.path());
}

// The boot record that tells the length of a logical partition changes too.
TEST_F(MbrSystemShrink, ALogicalRow) {
  const std::uint64_t record = kSectorsPerMib + kSmall;
  const std::uint64_t first = record + kSectorsPerMib;
  const Partition logical = {first, first + kLong - 1, kMbrNtfs};
  MakeDisk(
      {{{kSectorsPerMib, record - 1, kMbrNtfs}, {record, logical.last, kMbrContainer}}, {logical}},
      kSectorsPerMib);
  PutWindows(logical);
  const Partition shortened = Shortened(logical, kRoom);
  ExpectedImage expected(image(), File("expected.img"));
  expected.ShortenNtfs(first, kRoom);
  expected.ChangeLogical(record, shortened.range());
  ExpectSystemConversion(
      image(), logical, expected,
      {{kSectorsPerMib, record - 1}, shortened, EfiAt(logical.last + 1 - kEfiSectors)},
      "mbr_system_shrink_logical");
  ExpectShrunkNtfs(image(), shortened, MakeFiles(1), folder_.path());
}

// Room for the table is made first, then the same volume gives up the rest.
TEST_F(MbrSystemShrink, AVolumeUpToTheEndOfTheDiskIsShrunkTwice) {
  const Partition row = {kSectorsPerMib, kSectorsPerMib + kLong - 1, kMbrNtfs};
  MakeDisk({{row}, {}}, 0);
  PutWindows(row);
  const Partition once = Shortened(row, kSectorsPerMib);
  const Partition twice = Shortened(once, kRoom);
  ExpectedImage expected(image(), File("expected.img"));
  expected.ShortenNtfs(row.first, kSectorsPerMib + kRoom);
  ExpectSystemConversion(image(), row, expected, {twice, EfiAt(once.last + 1 - kEfiSectors)},
                         "mbr_system_shrunk_twice");
  ExpectShrunkNtfs(image(), twice, MakeFiles(1), folder_.path());
}

// With a gap for the boot partition the last volume gives only what the table needs.
TEST_F(MbrSystemShrink, TailRoomBesideAGap) {
  const std::uint64_t second = kSectorsPerMib + kSmall + kEfiSectors + 1;
  const Partitions rows = {{kSectorsPerMib, kSectorsPerMib + kSmall - 1, kMbrNtfs},
                           {second, second + 16 * kSectorsPerMib - 1, kMbrNtfs}};
  MakeDisk({rows, {}}, 0);
  PutWindows(rows[0]);
  PutNtfs(image(), rows[1], MakeFiles(2), folder_.path());
  const Partition shortened = Shortened(rows[1], kSectorsPerMib);
  ExpectedImage expected(image(), File("expected.img"));
  expected.ShortenNtfs(second, kSectorsPerMib);
  ExpectSystemConversion(image(), rows[0], expected, {rows[0], EfiAt(rows[0].last + 1), shortened},
                         "mbr_system_tail_beside_a_gap");
  ExpectNtfs(image(), rows[0], MakeFiles(1), folder_.path());
  ExpectShrunkNtfs(image(), shortened, MakeFiles(2), folder_.path());
}

}  // namespace
}  // namespace conversion
