// What is selected of disks with a GPT.
#include <gtest/gtest.h>
#include <vector>

#include "backup/disk_parser.h"
#include "platform/win32.h"
#include "support/backup_disk_fixture.h"

namespace velkora {
namespace {

using namespace testing_support;

constexpr std::uint64_t kSecondary = (64 << 20) - 512;
const PlaceMap kTable = {{512, 512}, {1024, 16384}, {kSecondary - 16384, 16384}, {kSecondary, 512}};

PlaceMap With(PlaceMap places, std::uint64_t offset, std::size_t length) {
  places[offset] = length;
  return places;
}

class GptParser : public DiskParserTest {
 protected:
  static GptEntry Entry(std::uint64_t first, std::uint8_t unique) {
    return {kBasicDataGuid, first, first + 2047, unique};
  }
  void SetAlternate(std::uint64_t sector) {
    Bytes field(512);
    const std::vector<std::byte> header = ReadBytes(disk_, 512, 512);
    for (std::size_t i = 0; i < 512; ++i) field[i] = static_cast<std::uint8_t>(header[i]);
    PutNumber(field, 32, sector, 8);
    WriteBytes(disk_, 512, field);
  }
  std::int32_t Run(const PartitionOffsets& offsets = {}) {
    return Parse(handle_, offsets, blocks_);
  }
};

TEST_F(GptParser, WithoutOffsetsTheFourPiecesOfTheTableAreSelected) {
  WriteGpt(disk_, {Entry(2048, 1), Entry(4096, 2)});
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(Places(blocks_), kTable);
  EXPECT_FALSE(blocks_.contains(0)) << "the protective record is made anew by the rollback";
  EXPECT_TRUE(log_.empty());
}

TEST_F(GptParser, TheSecondaryTableIsSavedWithThePrimarysBytes) {
  WriteGpt(disk_, {Entry(2048, 1)});
  MarkRange(disk_, kSecondary - 16384, 16384 + 512);
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(blocks_[512], ReadBytes(disk_, 512, 512));
  EXPECT_EQ(blocks_[1024], ReadBytes(disk_, 1024, 16384));
  EXPECT_EQ(blocks_[kSecondary], blocks_[512]);
  EXPECT_EQ(blocks_[kSecondary - 16384], blocks_[1024]);
  EXPECT_EQ(machine_.calls().Count("ReadFile"), 3U) << "the secondary table is not read";
}

TEST_F(GptParser, SelectedPartitionsGiveTheirStart) {
  WriteGpt(disk_, {Entry(2048, 1), Entry(4096, 2), Entry(8192, 3)});
  MarkRange(disk_, 8192 * 512, 2048);
  EXPECT_EQ(Run({8192 * 512, 4096 * 512 + 512}), 0);
  EXPECT_EQ(Places(blocks_), With(kTable, 8192 * 512, 2048));
  EXPECT_EQ(blocks_[8192 * 512], ReadBytes(disk_, 8192 * 512, 2048));
}

TEST_F(GptParser, AnEntryWithoutATypeEndsTheScanWhateverElseItHolds) {
  WriteGpt(disk_, {{{}, 2048, 4095, /*unique=*/1}, Entry(8192, 3)});
  ASSERT_NE(ReadBytes(disk_, 1024 + 16, 1)[0], std::byte{0});
  EXPECT_EQ(Run({2048 * 512, 8192 * 512}), 0);
  EXPECT_EQ(Places(blocks_), kTable);
}

TEST_F(GptParser, AnEmptyEntryEndsTheScan) {
  WriteGpt(disk_, {Entry(2048, 1), {}, Entry(8192, 3)});
  EXPECT_EQ(Run({2048 * 512, 8192 * 512}), 0);
  EXPECT_EQ(Places(blocks_), With(kTable, 2048 * 512, 2048));
}

// Only the type tells an empty entry: one whose other fields are zero is still used.
TEST_F(GptParser, AnEntryWithATypeAndNothingElseIsUsed) {
  WriteGpt(disk_, {});
  for (const std::size_t byte : {0u, 7u, 15u}) {
    Bytes entry(128);
    entry.at(byte) = 1;
    WriteBytes(disk_, 1024, entry);
    Bytes second(128);
    PutNumber(second, 0, 1, 1);
    PutNumber(second, 32, 4096, 8);
    WriteBytes(disk_, 1024 + 128, second);
    blocks_.clear();
    LARGE_INTEGER start{};
    ASSERT_TRUE(win32::SetFilePointerEx(handle_, start, nullptr, FILE_BEGIN));
    EXPECT_EQ(Run({4096 * 512}), 0);
    EXPECT_EQ(Places(blocks_), With(kTable, 4096 * 512, 2048)) << byte;
  }
}

TEST_F(GptParser, All128EntriesAreLookedAt) {
  std::vector<GptEntry> entries;
  for (std::uint64_t i = 0; i < 128; ++i) {
    entries.push_back(Entry(2048 + 8 * i, static_cast<std::uint8_t>(i + 1)));
  }
  WriteGpt(disk_, entries);
  EXPECT_EQ(Run({(2048 + 8 * 127) * 512}), 0);
  EXPECT_EQ(Places(blocks_), With(kTable, (2048 + 8 * 127) * 512, 2048));
}

// The array is where it customarily is, whatever the header says.
TEST_F(GptParser, TheHeadersOwnWordOnTheArrayIsNotTaken) {
  WriteGpt(disk_, {Entry(2048, 1)});
  Bytes header(512, 0xFF);
  PutNumber(header, 32, kSecondary / 512, 8);
  WriteBytes(disk_, 512, header);
  EXPECT_EQ(Run({2048 * 512}), 0);
  EXPECT_EQ(Places(blocks_), With(kTable, 2048 * 512, 2048));
}

// ---- The place of the secondary table -----------------------------------------------------------

TEST_F(GptParser, AnAlternateOfZeroGivesPlacesAtBothEndsOfTheNumbers) {
  WriteGpt(disk_, {Entry(2048, 1)});
  SetAlternate(0);
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(Places(blocks_),
            (PlaceMap{{512, 512}, {1024, 16384}, {0, 512}, {std::uint64_t{0} - 16384, 16384}}));
  EXPECT_EQ(blocks_[0], ReadBytes(disk_, 512, 512));
  EXPECT_TRUE(log_.empty());
}

TEST_F(GptParser, AnAlternateWhoseByteOffsetNeedsMoreThan64BitsWraps) {
  WriteGpt(disk_, {Entry(2048, 1)});
  SetAlternate((std::uint64_t{1} << 55) + 100);
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(Places(blocks_),
            (PlaceMap{{512, 512}, {1024, 16384}, {51200 - 16384, 16384}, {51200, 512}}));
}

TEST_F(GptParser, WhereSecondaryAndPrimaryMeetTheLaterSelectionWins) {
  WriteGpt(disk_, {Entry(2048, 1)});
  SetAlternate(2);
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(Places(blocks_),
            (PlaceMap{{512, 512}, {1024, 512}, {std::uint64_t{1024} - 16384, 16384}}));
  EXPECT_EQ(blocks_[1024], blocks_[512]);
}

TEST_F(GptParser, AnEntrysByteOffsetWrapsAt64Bits) {
  WriteGpt(disk_, {Entry((std::uint64_t{1} << 55) + 4096, 1)});
  EXPECT_EQ(Run({4096 * 512}), 0);
  EXPECT_EQ(Places(blocks_), With(kTable, 4096 * 512, 2048));
}

// ---- Failures -----------------------------------------------------------------------------------

TEST_F(GptParser, AFailingVolumeEndsTheScanWithItsCode) {
  WriteGpt(disk_, {Entry(2048, 1), Entry(4096, 2), Entry(8192, 3)});
  machine_.calls().FailOn("ReadFile", 5, 23);
  EXPECT_EQ(Run({2048 * 512, 4096 * 512, 8192 * 512}), -13);
  EXPECT_EQ(AllLines(), (Texts{"3 [BackupRestore] ParseFileSystem read offs 0x200000 error:23"}));
  EXPECT_EQ(Places(blocks_), With(kTable, 2048 * 512, 2048));
}

TEST_F(GptParser, APartitionBehindTheDiskFailsItsRead) {
  WriteGpt(disk_, {Entry(kDiskSize / 512 + 100, 1)});
  EXPECT_EQ(Run({kDiskSize + 51200}), -13);
  EXPECT_EQ(AllLines(), (Texts{"3 [BackupRestore] ParseFileSystem read offs 0x400c800 error:27"}));
}

}  // namespace
}  // namespace velkora
