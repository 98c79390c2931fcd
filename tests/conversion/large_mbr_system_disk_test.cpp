// MBR disks that the machine runs from, whose last partition ends behind 2 TiB. Its end is counted
// in 32 bits, so that the place behind it comes out near the start of the disk, while the EFI
// system partition keeps the number that it would have had behind the last one.
#include <gmock/gmock.h>
#include <utility>

#include "conversion/system_disk.h"
#include "conversion/volumes.h"

namespace conversion {
namespace {

using namespace ::testing;
using Lines = std::vector<std::string>;

constexpr std::uint64_t kTwoTib = std::uint64_t{1} << 32;  // sectors
constexpr std::uint64_t kLastCount = 64 * kSectorsPerMib;

class LargeMbrSystemDisk : public ConversionTest {
 protected:
  // A small volume that the machine runs from, a long partition behind it, and a last one, a FAT32
  // volume that ends at 2 TiB and 1 MiB. No gap is longer than 300 MiB, and 1 TiB is free behind.
  void MakeDisk(std::uint64_t first) {
    const std::uint64_t last = kTwoTib + kSectorsPerMib - kLastCount;
    rows_ = {{first, first + 16 * kSectorsPerMib - 1, kMbrNtfs},
             {first + 16 * kSectorsPerMib, last - 1, kMbrLinux},
             {last, last + kLastCount - 1, "c"}};
    MakeMbrDisk(image(), 3ULL << 40, {{rows_[0], rows_[1]}, {}});
    AddThirdEntry(rows_[2]);
    PutNtfs(image(), rows_[0], MakeFiles(1), folder_.path());
    PutFat32(image(), rows_[2], MakeFiles(2), folder_.path());
  }

  // sfdisk makes no partition that ends behind 2 TiB.
  void AddThirdEntry(const Partition& partition) {
    const ImageFile file(image());
    Sector table = file.ReadSector(0);
    std::uint8_t* const entry = table.data() + 446 + 2 * 16;
    entry[4] = 0x0C;
    for (int i = 0; i < 4; ++i) {
      entry[8 + i] = static_cast<std::uint8_t>(partition.first >> (8 * i));
      entry[12 + i] = static_cast<std::uint8_t>(partition.count() >> (8 * i));
    }
    file.WriteSector(0, table);
  }
  static std::string PlaceText(const Partition& partition) {
    return "StartingOffset: " + std::to_string(partition.offset()) +
           ", PartitionLength: " + std::to_string(partition.count() * kSectorBytes);
  }
  static Lines FormatScripts(const ConversionRun& run) {
    Lines scripts = run.Lines("script: ");
    std::erase_if(scripts, [](const std::string& script) {
      return script.find("format ") == std::string::npos;
    });
    return scripts;
  }

  Partitions rows_;
};

TEST_F(LargeMbrSystemDisk, ThePlatformRefusesAnEfiPartitionOverTheFirstOne) {
  MakeDisk(kSectorsPerMib);
  const auto hashes = PartitionHashes(image(), rows_);
  ConversionRun run(image());
  run.SetLetters('C');
  RunFrom(run, rows_[0]);
  EXPECT_EQ(run.Convert(), 1);
  EXPECT_THAT(
      run.Lines("log 1: [part] PartitionNumber: "),
      ElementsAre(HasSubstr(PlaceText(rows_[0])), HasSubstr(PlaceText(EfiAt(kSectorsPerMib))),
                  HasSubstr(PlaceText(rows_[1])), HasSubstr(PlaceText(rows_[2]))));
  EXPECT_THAT(run.Errors(), Contains("IOCTL_DISK_SET_DRIVE_LAYOUT_EX Error: 87"));
  EXPECT_EQ(FormatScripts(run), Lines());
  EXPECT_THAT(run.Callbacks(), Contains("status 4"));
  EXPECT_THAT(run.Callbacks(), Not(Contains("status 6")));
  EXPECT_EQ(PartitionHashes(image(), rows_), hashes);
}

// With the first partition at 301 MiB nothing lies there, and the gap is just too short to be one.
TEST_F(LargeMbrSystemDisk, WhereNothingOverlapsTheLastPartitionIsFormatted) {
  MakeDisk(301 * kSectorsPerMib);
  const std::uint64_t last = HashSectors(image(), rows_[2].range());
  ConversionRun run(image());
  run.SetLetters('C');
  RunFrom(run, rows_[0]);
  EXPECT_EQ(run.Convert(), 0);
  EXPECT_EQ(FormatScripts(run), Lines{"select disk 1\\r\\nselect part 4\\r\\n"
                                      "format fs=fat32 quick override\\r\\n"});
  std::vector<GptRow> rows = ExpectedGptRows({EfiAt(kSectorsPerMib), rows_[0], rows_[1], rows_[2]});
  std::swap(rows[0].type, rows[3].type);
  ExpectGptRows(image(), rows);
  EXPECT_NE(HashSectors(image(), rows_[2].range()), last);
  ExpectEfiVolume(image(), rows_[2], folder_.path());
}

}  // namespace
}  // namespace conversion
