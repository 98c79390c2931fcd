// What is selected of disks with a master boot record and of disks without any style.
#include "backup/disk_parser.h"

#include <gtest/gtest.h>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "backup/return_codes.h"
#include "platform/win32.h"
#include "simulator/handle_object.h"
#include "support/backup_disk_fixture.h"

namespace velkora {
namespace {

using namespace testing_support;

constexpr std::uint64_t kMiBSectors = 2048;

struct Row {
  std::uint8_t type = 0;
  std::uint32_t first = 0;
};

// A boot record with these rows, the rest of them empty.
Bytes Record(const std::vector<Row>& rows) {
  Bytes bytes(512);
  for (std::size_t i = 0; i < rows.size(); ++i) {
    PutNumber(bytes, 446 + 16 * i + 4, rows[i].type, 1);
    PutNumber(bytes, 446 + 16 * i + 8, rows[i].first, 4);
  }
  PutNumber(bytes, 510, 0xAA55, 2);
  return bytes;
}

class MbrParser : public DiskParserTest {
 protected:
  void PutRecord(std::uint64_t sector, const std::vector<Row>& rows) {
    WriteBytes(disk_, sector * 512, Record(rows));
  }
  std::int32_t Run(const PartitionOffsets& offsets = {}) {
    return Parse(handle_, offsets, blocks_);
  }
  std::size_t Reads() { return machine_.calls().Count("ReadFile"); }
};

// ---- No style -----------------------------------------------------------------------------------

TEST_F(MbrParser, ADiskWithoutASignatureGivesItsFirstSectorWhateverIsAskedFor) {
  MarkRange(disk_, 0, 512);
  MarkRange(disk_, kMiB, 2048);
  EXPECT_EQ(Run({0, kMiB}), 0);
  EXPECT_EQ(Places(blocks_), (PlaceMap{{0, 512}}));
  ExpectBytesOfDisk(blocks_);
  EXPECT_EQ(Reads(), 1U);
  EXPECT_TRUE(log_.empty());
}

TEST_F(MbrParser, ABootFlagOf1InTheFirstRowGivesTheFirstSectorAlone) {
  Bytes sector = Record({{7, kMiBSectors}});
  sector[446] = 1;
  WriteBytes(disk_, 0, sector);
  EXPECT_EQ(Run({kMiB}), 0);
  EXPECT_EQ(Places(blocks_), (PlaceMap{{0, 512}}));
  ExpectBytesOfDisk(blocks_);
}

TEST_F(MbrParser, TheFirstSectorIsReadWhereTheHandleStands) {
  MarkRange(disk_, 0, 1024);
  LARGE_INTEGER place{};
  place.QuadPart = 512;
  ASSERT_TRUE(win32::SetFilePointerEx(handle_, place, nullptr, FILE_BEGIN));
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(blocks_[0], ReadBytes(disk_, 512, 512));
}

// A device that gives half of what is asked for and calls it a success.
class HalvingDevice : public simulator::HandleObject {
 public:
  std::string Describe() const override { return "halving device"; }
  DWORD Read(std::span<std::byte> buffer, DWORD& done) override {
    done = static_cast<DWORD>(buffer.size() / 2);
    return ERROR_SUCCESS;
  }
  DWORD Seek(std::int64_t distance, DWORD, std::uint64_t& position) override {
    position = static_cast<std::uint64_t>(distance);
    return ERROR_SUCCESS;
  }
};

TEST_F(MbrParser, HalfOfAReadIsNone) {
  HANDLE device = machine_.handles().Add(std::make_unique<HalvingDevice>());
  win32::SetLastError(9);
  EXPECT_EQ(Parse(device, {}, blocks_), -10);
  EXPECT_EQ(ParseMBR(device, {}, blocks_), -10);
  EXPECT_EQ(ParseGPT(device, {}, blocks_), -12);
  EXPECT_EQ(ParseFileSystem(device, kMiB, blocks_), -13);
  EXPECT_EQ(AllLines(), (Texts{"3 [BackupRestore] Parse read mbr failed. ret=256, error=9",
                               "3 [BackupRestore] ParseMBR read offs 0x0 error:9",
                               "3 [BackupRestore] ParseGPT: read header error 9",
                               "3 [BackupRestore] ParseFileSystem read offs 0x100000 error:9"}));
  EXPECT_TRUE(blocks_.empty());
}

// ---- The table ----------------------------------------------------------------------------------

TEST_F(MbrParser, WithoutOffsetsTheTableAloneIsSelected) {
  WriteMbr(disk_, {{7, 2048, 2048}, {5, 8192, 32768}}, {{7, 10240, 2048}, {7, 16384, 2048}});
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(Places(blocks_), (PlaceMap{{0, 512}, {8192 * 512, 512}, {14336 * 512, 512}}));
  ExpectBytesOfDisk(blocks_);
  EXPECT_EQ(Reads(), 1U + 3U) << "the record without a link ends the walk";
  EXPECT_TRUE(log_.empty());
}

TEST_F(MbrParser, AnOffsetThatNoPartitionStartsAtDoesNothing) {
  WriteMbr(disk_, {{7, 2048, 2048}});
  EXPECT_EQ(Run({2047 * 512, 2049 * 512, 0}), 0);
  EXPECT_EQ(Places(blocks_), (PlaceMap{{0, 512}}));
}

TEST_F(MbrParser, EachSelectedPartitionOfUnknownKindGivesItsStart) {
  WriteMbr(disk_, {{7, 2048, 2048}, {0x83, 6144, 2048}, {7, 10240, 2048}, {7, 14336, 2048}});
  MarkRange(disk_, 2048 * 512, 2048);
  MarkRange(disk_, 14336 * 512, 2048);
  EXPECT_EQ(Run({14336 * 512, 2048 * 512}), 0);
  EXPECT_EQ(Places(blocks_), (PlaceMap{{0, 512}, {2048 * 512, 2048}, {14336 * 512, 2048}}));
  ExpectBytesOfDisk(blocks_);
}

TEST_F(MbrParser, AnEmptyRowIsPassedOverWhateverItsFirstSector) {
  PutRecord(0, {{0, 2048}, {7, 4096}});
  EXPECT_EQ(Run({2048 * 512, 4096 * 512}), 0);
  EXPECT_EQ(Places(blocks_), (PlaceMap{{0, 512}, {4096 * 512, 2048}}));
}

TEST_F(MbrParser, APrimaryBehindTheContainersRowIsNotLookedAt) {
  WriteMbr(disk_, {{7, 2048, 2048}, {5, 8192, 32768}, {7, 49152, 2048}}, {{7, 10240, 2048}});
  EXPECT_EQ(Run({2048 * 512, 10240 * 512, 49152 * 512}), 0);
  EXPECT_EQ(Places(blocks_),
            (PlaceMap{{0, 512}, {2048 * 512, 2048}, {8192 * 512, 512}, {10240 * 512, 2048}}));
}

TEST_F(MbrParser, BothTypesOfContainersAreFollowed) {
  for (const std::uint8_t type : {std::uint8_t{5}, std::uint8_t{15}}) {
    blocks_.clear();
    PutRecord(0, {{type, 4096}});
    PutRecord(4096, {{7, 2048}});
    LARGE_INTEGER start{};
    ASSERT_TRUE(win32::SetFilePointerEx(handle_, start, nullptr, FILE_BEGIN));
    EXPECT_EQ(Run({6144 * 512}), 0);
    EXPECT_EQ(Places(blocks_), (PlaceMap{{0, 512}, {4096 * 512, 512}, {6144 * 512, 2048}}));
  }
}

TEST_F(MbrParser, AnyOtherExtendedTypeIsAnOrdinaryPartition) {
  PutRecord(0, {{0x85, 4096}, {0x1F, 8192}, {0x15, 12288}});
  PutRecord(4096, {{7, 2048}});
  EXPECT_EQ(Run({4096 * 512, 6144 * 512}), 0);
  EXPECT_EQ(Places(blocks_), (PlaceMap{{0, 512}, {4096 * 512, 2048}}));
}

// A logical partition counts from the record that holds it, a link from the first container.
TEST_F(MbrParser, LogicalsCountFromTheirRecordAndLinksFromTheContainer) {
  PutRecord(0, {{7, 64}, {5, 10000}});
  PutRecord(10000, {{7, 100}, {5, 3000}});
  PutRecord(13000, {{7, 200}, {5, 5000}});
  PutRecord(15000, {{7, 300}});
  EXPECT_EQ(Run({10100 * 512, 13200 * 512, 15300 * 512, 300 * 512}), 0);
  EXPECT_EQ(Places(blocks_), (PlaceMap{{0, 512},
                                       {10000 * 512, 512},
                                       {10100 * 512, 2048},
                                       {13000 * 512, 512},
                                       {13200 * 512, 2048},
                                       {15000 * 512, 512},
                                       {15300 * 512, 2048}}));
  ExpectBytesOfDisk(blocks_);
}

TEST_F(MbrParser, ALinkedRecordNeedsNoSignature) {
  PutRecord(0, {{5, 4096}});
  Bytes record = Record({{7, 2048}});
  PutNumber(record, 510, 0, 2);
  WriteBytes(disk_, 4096 * 512, record);
  EXPECT_EQ(Run({6144 * 512}), 0);
  EXPECT_EQ(Places(blocks_), (PlaceMap{{0, 512}, {4096 * 512, 512}, {6144 * 512, 2048}}));
}

// A link in front of a logical partition hides it.
TEST_F(MbrParser, ARowBehindALinkOfALinkedRecordIsNotLookedAt) {
  PutRecord(0, {{5, 4096}});
  PutRecord(4096, {{5, 1000}, {7, 100}});
  EXPECT_EQ(Run({4196 * 512}), 0);
  EXPECT_EQ(Places(blocks_), (PlaceMap{{0, 512}, {4096 * 512, 512}, {5096 * 512, 512}}));
}

TEST_F(MbrParser, AChainEndsInSilenceAfterTheReadNumber129) {
  PutRecord(0, {{5, 2048}});
  for (std::uint32_t i = 0; i < 150; ++i) PutRecord(2048 + i, {{5, i + 1}});
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(blocks_.size(), 129U);
  EXPECT_EQ(Reads(), 1U + 129U) << "the first sector is read once more to tell the style";
  EXPECT_TRUE(blocks_.contains((2048 + 127) * 512));
  EXPECT_FALSE(blocks_.contains((2048 + 128) * 512));
  EXPECT_TRUE(log_.empty());
}

TEST_F(MbrParser, AChainThatPointsAtItselfIsReadUpToTheLimitAndSavedOnce) {
  PutRecord(0, {{5, 4096}});
  PutRecord(4096, {{7, 100}, {15, 0}});
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(Places(blocks_), (PlaceMap{{0, 512}, {4096 * 512, 512}}));
  EXPECT_EQ(Reads(), 1U + 129U);
}

TEST_F(MbrParser, AFirstLinkOfZeroReadsTheFirstSectorUpToTheLimit) {
  PutRecord(0, {{5, 0}});
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(Places(blocks_), (PlaceMap{{0, 512}}));
  EXPECT_EQ(Reads(), 1U + 129U);
}

TEST_F(MbrParser, ALinkedRecordBehindTheDiskEndsTheParse) {
  PutRecord(0, {{7, 2048}, {5, 0xFFFFFFFF}});
  EXPECT_EQ(Run(), -10);
  EXPECT_EQ(AllLines(), (Texts{"3 [BackupRestore] ParseMBR read offs 0xfffffe00 error:27"}));
  EXPECT_EQ(Places(blocks_), (PlaceMap{{0, 512}}));
}

// ---- The start of a volume ----------------------------------------------------------------------

TEST_F(MbrParser, AnUnreadableVolumeStartEndsTheParse) {
  PutRecord(0, {{7, 2048}, {7, 4096}, {7, 8192}});
  machine_.calls().FailOn("ReadFile", 4, 23);
  EXPECT_EQ(Run({2048 * 512, 4096 * 512, 8192 * 512}), -13);
  EXPECT_EQ(AllLines(), (Texts{"3 [BackupRestore] ParseFileSystem read offs 0x200000 error:23"}));
  EXPECT_EQ(Places(blocks_), (PlaceMap{{0, 512}, {2048 * 512, 2048}}));
}

TEST_F(MbrParser, AVolumeThatStartsWithTheDisksLastSectorsIsUnreadable) {
  PutRecord(0, {{7, kDiskSize / 512 - 3}});
  EXPECT_EQ(Run({kDiskSize - 3 * 512}), -13);
  EXPECT_EQ(AllLines(), (Texts{"3 [BackupRestore] ParseFileSystem read offs 0x3fffa00 error:27"}));
}

// In 32 bits of bytes both would lie on the disk.
TEST_F(MbrParser, PlacesOf4GibAndMoreDoNotWrap) {
  constexpr std::uint32_t k4GibSectors = 0x800000;
  PutRecord(0, {{7, k4GibSectors + 2048}});
  EXPECT_EQ(ParseMBR(handle_, {kMiB}, blocks_), 0);
  EXPECT_EQ(Places(blocks_), (PlaceMap{{0, 512}}));
  EXPECT_EQ(ParseMBR(handle_, {(std::uint64_t{k4GibSectors} + 2048) * 512}, blocks_), -13);
  PutRecord(0, {{5, k4GibSectors + 4096}});
  EXPECT_EQ(ParseMBR(handle_, {}, blocks_), -10);
  PutRecord(0, {{5, 4096}});
  PutRecord(4096, {{5, k4GibSectors}});
  EXPECT_EQ(ParseMBR(handle_, {}, blocks_), -10);
  EXPECT_EQ(AllLines(), (Texts{"3 [BackupRestore] ParseFileSystem read offs 0x100000 error:27",
                               "3 [BackupRestore] ParseMBR read offs 0x200000 error:27",
                               "3 [BackupRestore] ParseMBR read offs 0x200000 error:27"}));
}

TEST_F(MbrParser, AVolumeOfAnotherKindGivesItsStartAlone) {
  const struct {
    std::size_t place;
    const char* mark;
  } kMarks[] = {{54, "FAT12   "}, {3, "EXFAT   "},    {3, "ReFS"},    {32, "NXSB"},
                {1024, "H+"},     {1080, "\x53\xEF"}, {0, "anything"}};
  for (const auto& mark : kMarks) {
    blocks_.clear();
    Bytes start(2048, 0x11);
    PutText(start, mark.place, mark.mark);
    WriteBytes(disk_, kMiB, start);
    EXPECT_EQ(ParseFileSystem(handle_, kMiB, blocks_), 0) << mark.mark;
    EXPECT_EQ(Places(blocks_), (PlaceMap{{kMiB, 2048}})) << mark.mark;
    ExpectBytesOfDisk(blocks_);
  }
}

TEST_F(MbrParser, AnOffsetTakenTwiceKeepsOneBlockOfTheLastLength) {
  SelectBlock(blocks_, kMiB, 4096);
  PutRecord(0, {{7, 2048}, {7, 2048}});
  EXPECT_EQ(Run({kMiB}), 0);
  EXPECT_EQ(Places(blocks_), (PlaceMap{{0, 512}, {kMiB, 2048}}));
}

TEST_F(MbrParser, TheSectorHandedOverIsARawDisksOnlyBlock) {
  const std::vector<std::byte> sector(512, std::byte{0x5A});
  EXPECT_EQ(ParseRawDisk(std::span<const std::byte, 512>(sector), blocks_), 0);
  EXPECT_EQ(blocks_, (BlockMap{{0, sector}}));
}

}  // namespace
}  // namespace velkora
