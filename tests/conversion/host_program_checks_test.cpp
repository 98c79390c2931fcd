// Disks that the host program refuses, since the library's conversion or rollback would harm them:
// status 2, one line with the field and its value, nothing touched.
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ostream>
#include <span>
#include <string>
#include <vector>

#include "conversion/conversion_run.h"
#include "conversion/host_program_fixture.h"
#include "conversion/image_bytes.h"
#include "conversion/tools.h"
#include "conversion/volumes.h"

namespace conversion {
namespace {

using ::testing::IsEmpty;
using ::testing::StartsWith;

constexpr std::uint64_t kSize = 256 * kMib;

class RefusedDisk : public HostProgram {
 protected:
  void ExpectRefused(const std::vector<std::string>& arguments, const std::string& line) {
    const std::uint64_t hash = Hash(Image());
    const Outcome outcome = Run(arguments);
    EXPECT_EQ(outcome.status, 2);
    EXPECT_THAT(outcome.out, IsEmpty());
    EXPECT_EQ(outcome.err, "velkora-image: disk.img: " + line + "\n");
    EXPECT_EQ(Hash(Image()), hash);
    EXPECT_TRUE(std::filesystem::is_empty(File("tmp")));
  }

  void MakeSpacedDisk(std::size_t count) { MakeDisk(EvenPartitions(count, 16, 1), kSize); }

  void PutByte(std::uint64_t offset, std::uint8_t byte) {
    const ImageFile image(Image());
    Sector sector = image.ReadSector(offset / kSectorBytes);
    sector[offset % kSectorBytes] = byte;
    image.WriteSector(offset / kSectorBytes, sector);
  }
  // Sums the primary table up again, with the size of the array that the header tells.
  void SignHeader() {
    const ImageFile image(Image());
    Sector header = image.ReadSector(1);
    const auto number = [&](std::size_t at) {
      std::uint32_t value = 0;
      for (std::size_t i = 0; i < 4; ++i) value |= std::uint32_t{header[at + i]} << (8 * i);
      return value;
    };
    const auto store = [&](std::size_t at, std::uint32_t value) {
      for (std::size_t i = 0; i < 4; ++i) {
        header[at + i] = static_cast<std::uint8_t>(value >> (8 * i));
      }
    };
    std::vector<std::uint8_t> array(number(80) * number(84));
    image.Read(number(72) * kSectorBytes, array);
    store(88, Crc32(array));
    store(16, 0);
    store(16, Crc32({header.data(), 92}));
    image.WriteSector(1, header);
  }

 private:
  static std::uint32_t Crc32(std::span<const std::uint8_t> bytes) {
    std::uint32_t crc = 0xFFFFFFFF;
    for (const std::uint8_t byte : bytes) {
      crc ^= byte;
      for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ ((crc & 1) != 0 ? 0xEDB88320 : 0);
    }
    return ~crc;
  }
};

// ---- One byte of a sound table --------------------------------------------------------------

struct BrokenByte {
  std::string name;
  std::uint64_t offset;
  std::uint8_t byte;
  std::string line;
};

void PrintTo(const BrokenByte& broken, std::ostream* out) {
  *out << broken.name;
}

class BrokenGpt : public RefusedDisk, public ::testing::WithParamInterface<BrokenByte> {};

TEST_P(BrokenGpt, IsRefusedByItsField) {
  MakeSpacedDisk(3);
  PutByte(GetParam().offset, GetParam().byte);
  SignHeader();
  ExpectRefused(ToMbr({}), GetParam().line);
}

constexpr std::uint64_t kHeader = 512;
constexpr std::uint64_t kEntries = 1024;

const BrokenByte kBrokenGpts[] = {
    {"Signature", 510, 0, "sector 0, signature: 0xAA00 is not 0xAA55, in front of a GPT"},
    {"BootFlag", 446, 1, "sector 0, boot flag of the first row: 0x01 is neither 0x00 nor 0x80"},
    {"ArraySector", kHeader + 72, 3, "GPT header, PartitionEntryLBA: 3 is not 2"},
    {"FewerEntries", kHeader + 80, 64, "GPT header, NumberOfPartitionEntries: 64 is not 128"},
    {"MoreEntries", kHeader + 80, 132, "GPT header, NumberOfPartitionEntries: 132 is not 128"},
    {"EntrySize", kHeader + 84, 136, "GPT header, SizeOfPartitionEntry: 136 is not 128"},
    {"AlternateOnTheDisk", kHeader + 34, 1,
     "GPT header, AlternateLBA: 131071 is not the disk's last sector, 524287"},
    {"AlternateFarBehindTheDisk", kHeader + 39, 1,
     "GPT header, AlternateLBA: 72057594038452223 is not the disk's last sector, 524287"},
};

INSTANTIATE_TEST_SUITE_P(Fields, BrokenGpt, ::testing::ValuesIn(kBrokenGpts),
                         [](const auto& run) { return run.param.name; });

// A rollback would write a GPT header over sector 0.
TEST_F(RefusedDisk, AlternateHeaderInSectorZero) {
  MakeSpacedDisk(1);
  for (std::uint64_t i = 0; i < 8; ++i) PutByte(kHeader + 32 + i, 0);
  SignHeader();
  ExpectRefused(ToMbr({}), "GPT header, AlternateLBA: 0 is not the disk's last sector, 524287");
}

// Such as a disk that was made larger.
TEST_F(RefusedDisk, SecondTableInFrontOfTheEnd) {
  MakeSpacedDisk(1);
  std::filesystem::resize_file(Image(), kSize + kMib);
  ExpectRefused(ToMbr({}),
                "GPT header, AlternateLBA: 524287 is not the disk's last sector, 526335");
}

TEST_F(RefusedDisk, PrimaryHeaderMissing) {
  MakeSpacedDisk(1);
  ImageFile(Image()).WriteSector(1, {});
  ExpectRefused(ToMbr({}), "sector 1, signature: not that of a GPT header");
}

TEST_F(RefusedDisk, ArrayMovedByItsTool) {
  MakeSpacedDisk(1);
  Tool({"sgdisk", "--move-main-table=10", Image().string()});
  ExpectRefused(ToMbr({}), "GPT header, PartitionEntryLBA: 10 is not 2");
}

TEST_F(RefusedDisk, ArrayLengthenedByItsTool) {
  MakeSpacedDisk(1);
  Tool({"sgdisk", "--resize-table=256", Image().string()});
  ExpectRefused(ToMbr({}), "GPT header, NumberOfPartitionEntries: 256 is not 128");
}

// ---- Entries --------------------------------------------------------------------------------

// The library's list of partitions ends at the first empty entry.
TEST_F(RefusedDisk, PartitionBehindAnEmptyEntry) {
  MakeSpacedDisk(4);
  Tool({"sgdisk", "-d", "2", Image().string()});
  ExpectRefused(ToMbr({}), "GPT entry 3: in use behind entry 2, which is empty");
}

TEST_F(RefusedDisk, LastEntryBehindEmptyOnes) {
  MakeSpacedDisk(1);
  Tool({"sgdisk", "-n", "128:100M:+1M", Image().string()});
  ExpectRefused(ToMbr({}), "GPT entry 128: in use behind entry 2, which is empty");
}

TEST_F(RefusedDisk, FirstEntryEmpty) {
  MakeSpacedDisk(2);
  Tool({"sgdisk", "-d", "1", Image().string()});
  ExpectRefused(ToMbr({}), "GPT entry 2: in use behind entry 1, which is empty");
}

TEST_F(RefusedDisk, EntryWithoutUniqueGuid) {
  MakeSpacedDisk(3);
  for (std::uint64_t i = 0; i < 16; ++i) PutByte(kEntries + 128 + 16 + i, 0);
  SignHeader();
  ExpectRefused(ToMbr({}), "GPT entry 2, unique GUID: all zero, though there is a type");
}

TEST_F(RefusedDisk, EntryWithoutType) {
  MakeSpacedDisk(3);
  for (std::uint64_t i = 0; i < 16; ++i) PutByte(kEntries + 2 * 128 + i, 0);
  SignHeader();
  ExpectRefused(ToMbr({}), "GPT entry 3, type GUID: all zero, though there is a unique GUID");
}

TEST_F(RefusedDisk, ASoundGptIsNot) {
  MakeSpacedDisk(2);
  SignHeader();
  EXPECT_EQ(Run(ToMbr({})).status, 0);
}

// ---- MBR ------------------------------------------------------------------------------------

TEST_F(RefusedDisk, MbrWithAnOddBootFlag) {
  MakeMbrDisk("start=2048, size=2048, type=7\n", 64 * kMib);
  PutByte(446, 0x81);
  ExpectRefused(ToGpt({}), "sector 0, boot flag of the first row: 0x81 is neither 0x00 nor 0x80");
}

TEST_F(RefusedDisk, MbrThatIsMarkedAsAGptDisk) {
  MakeMbrDisk("start=1, size=2047, type=ee\nstart=2048, size=2048, type=7\n", 64 * kMib);
  ExpectRefused(ToGpt({}), "sector 0, type of the first row: 0xEE is that of a GPT disk");
}

TEST_F(RefusedDisk, ActivePartitionIsNot) {
  MakeMbrDisk("start=2048, size=2048, type=7, bootable\n", 64 * kMib);
  EXPECT_EQ(Run(ToGpt({})).status, 0);
}

// A partition that ends at exactly 2 TiB. On a data disk its end is not counted.
class EndAt2Tib : public RefusedDisk {
 protected:
  static constexpr std::uint64_t kTwoTib = std::uint64_t{1} << 32;  // sectors

  void MakeSystemDisk(std::uint64_t end) {
    MakeMbrDisk("start=2048, size=73728, type=c\nstart=75776, size=" + std::to_string(end - 75776) +
                    ", type=83\n",
                3ULL << 40);
    MakeFat32({2048, 75775});
  }
};

TEST_F(EndAt2Tib, IsRefusedOnASystemDisk) {
  MakeSystemDisk(kTwoTib);
  ExpectRefused(ToGpt({"--system"}),
                "partition 2 (83 Linux): its end, sector 4294967296, is not below 2 TiB, as it "
                "must be on a system disk");
}

TEST_F(EndAt2Tib, IsConvertedOnADataDisk) {
  MakeSystemDisk(kTwoTib);
  EXPECT_EQ(Run(ToGpt({})).status, 0);
}

TEST_F(EndAt2Tib, OneSectorInFrontOfItIsConverted) {
  MakeSystemDisk(kTwoTib - 1);
  const Outcome outcome = Run(ToGpt({"--system"}));
  EXPECT_EQ(outcome.status, 0) << outcome.err;
}

// ---- The backup -----------------------------------------------------------------------------

// Which read of a conversion, counted from 1, is this one; told by a conversion of a copy.
std::size_t NumberOfRead(const std::filesystem::path& copy, const std::string& arguments) {
  ConversionRun run(copy);
  EXPECT_EQ(run.Convert(), 0);
  std::size_t number = 0;
  for (const simulator::Call& call : run.machine().calls().calls()) {
    if (call.name != "ReadFile") continue;
    ++number;
    if (call.arguments == arguments) return number;
  }
  ADD_FAILURE() << "no read " << arguments;
  return 0;
}

// The library takes zeros for what it cannot read of an NTFS volume's own files, and a rollback
// would write them. The list of bad clusters makes it read the volume's first 4 MiB.
TEST_F(HostProgram, EndsWhenTheBackupCouldNotReadAFileSystem) {
  const Partition partition = {2048, 34815};
  MakeDisk({partition});
  PutNtfs(Image(), partition, MakeFiles(1), File("tmp"));
  CopyImage(Image(), File("copy.img"));
  const std::size_t read = NumberOfRead(File("copy.img"), "offset 1048576 length 4194304");
  ASSERT_NE(read, 0u);
  const std::uint64_t hash = Hash(Image());
  const Outcome outcome =
      Run(ToMbr({"--fail", "ReadFile:" + std::to_string(read) + ":23", "--events", "events"}));
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.err,
              StartsWith("velkora-image: disk.img: a part of a file system could not be read for "
                         "the backup, so the conversion was ended before anything was touched\n"
                         "  [BackupRestore] ParseNtfsMftRecord: read ntfs meta error 23\n"
                         "  logs: "));
  EXPECT_EQ(Hash(Image()), hash);
  const std::vector<Json> events = EventsOf(File("events"));
  EXPECT_THAT(Callbacks(events), IsEmpty());
  EXPECT_EQ(events.back(), ResultEvent(1));
}

}  // namespace
}  // namespace conversion
