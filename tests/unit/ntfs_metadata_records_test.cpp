// What one MFT record adds, and the arithmetic of its runs.
#include <gtest/gtest.h>
#include <limits>
#include <vector>

#include "backup/ntfs_metadata.h"
#include "platform/guard.h"
#include "support/backup_disk_fixture.h"

namespace velkora {
namespace {

using namespace testing_support;

using Numbers = std::vector<std::uint64_t>;

constexpr std::uint64_t kVolume = 1 << 20;
constexpr std::uint64_t kCluster = 4096;
constexpr std::size_t kCap = 4194304;

class MftRecords : public DiskParserTest {
 protected:
  std::int32_t Run(const Bytes& bytes, bool collect = false) {
    const auto view = std::as_bytes(std::span(bytes));
    const std::vector<std::byte> block(view.begin(), view.end());
    return ParseNtfsMftRecord(MftRecord(block, 0), collect, handle_, kVolume, kCluster, blocks_,
                              references_);
  }
  std::int32_t Run(const MftRecordBytes& record, bool collect = false) {
    return Run(record.Build(), collect);
  }

  Numbers references_;
};

// ---- Attributes ---------------------------------------------------------------------------------

TEST_F(MftRecords, BothTypesWithRunsAreTaken) {
  MarkRange(disk_, kVolume, 1 << 20);
  EXPECT_EQ(Run(MftRecordBytes().AddRuns(0x80, {0x11, 2, 10}).AddRuns(0xA0, {0x11, 1, 20})), 0);
  EXPECT_EQ(Places(blocks_), (PlaceMap{{kVolume + 10 * kCluster, 2 * kCluster},
                                       {kVolume + 20 * kCluster, kCluster}}));
  ExpectBytesOfDisk(blocks_);
}

TEST_F(MftRecords, OtherTypesAndResidentOnesAddNothing) {
  MftRecordBytes record;
  record.AddRuns(0x10, {0x11, 1, 10}).AddRuns(0xB0, {0x11, 1, 11}).AddRuns(0x90, {0x11, 1, 12});
  record.AddResident(0x80).AddResident(0xA0);
  EXPECT_EQ(Run(record), 0);
  EXPECT_TRUE(blocks_.empty());
  EXPECT_TRUE(references_.empty());
}

// Of the type the low byte is looked at, and of the form of storage the one value.
TEST_F(MftRecords, TheTypesUpperBytesAreNotRead) {
  Bytes bytes = MftRecordBytes().AddRuns(0x80, {0x11, 1, 10}).Build();
  PutNumber(bytes, 57, 0xABCDEF, 3);
  EXPECT_EQ(Run(bytes), 0);
  EXPECT_EQ(Places(blocks_), (PlaceMap{{kVolume + 10 * kCluster, kCluster}}));
}

TEST_F(MftRecords, AnyOtherFormOfStorageIsPassedOver) {
  for (const unsigned form : {0u, 2u, 0xFFu}) {
    Bytes bytes = MftRecordBytes().AddRuns(0x80, {0x11, 1, 10}).Build();
    PutNumber(bytes, 64, form, 1);
    EXPECT_EQ(Run(bytes), 0);
    EXPECT_TRUE(blocks_.empty()) << form;
  }
}

TEST_F(MftRecords, AFirstAttributeAt1024OrBehindAddsNothing) {
  for (const std::uint16_t first : {std::uint16_t{1024}, std::uint16_t{0xFFFF}}) {
    Bytes bytes = MftRecordBytes().AddRuns(0x80, {0x11, 1, 10}).Build();
    PutNumber(bytes, 20, first, 2);
    EXPECT_EQ(Run(bytes), 0);
  }
  EXPECT_TRUE(blocks_.empty());
}

TEST_F(MftRecords, AFirstAttributeOfNoLengthAddsNothing) {
  Bytes bytes = MftRecordBytes().AddRuns(0x80, {0x11, 1, 10}).Build();
  PutNumber(bytes, 60, 0, 4);
  EXPECT_EQ(Run(bytes), 0);
  EXPECT_TRUE(blocks_.empty());
}

// The mark has a length here, which would lead to the second attribute.
TEST_F(MftRecords, WhatFollowsAnEndMarkIsNotTakenAndWhatFollowsATypeOfZeroIs) {
  Bytes bytes = MftRecordBytes().AddRuns(0x80, {0x11, 1, 10}).AddRuns(0x80, {0x11, 1, 20}).Build();
  PutNumber(bytes, 56, 0xFF, 1);
  EXPECT_EQ(Run(bytes), 0);
  EXPECT_TRUE(blocks_.empty());
  PutNumber(bytes, 56, 0, 1);
  EXPECT_EQ(Run(bytes), 0);
  EXPECT_EQ(Places(blocks_), (PlaceMap{{kVolume + 20 * kCluster, kCluster}}));
}

TEST_F(MftRecords, AnEndMarkIsOneByte) {
  Bytes bytes = MftRecordBytes().AddRuns(0x80, {0x11, 1, 10}).Build();
  PutNumber(bytes, 56, 0xFF, 4);
  EXPECT_EQ(Run(bytes), 0);
  EXPECT_TRUE(blocks_.empty());
}

TEST_F(MftRecords, AnAttributeThatEndsBehindTheRecordIsItsLast) {
  for (const std::uint32_t length : {1024u - 56u, 5000u, 0xFFFFFFFFu}) {
    blocks_.clear();
    Bytes bytes =
        MftRecordBytes().AddRuns(0x80, {0x11, 1, 10}).AddRuns(0x80, {0x11, 1, 20}).Build();
    PutNumber(bytes, 60, length, 4);
    EXPECT_EQ(Run(bytes), 0);
    EXPECT_EQ(Places(blocks_), (PlaceMap{{kVolume + 10 * kCluster, kCluster}})) << length;
  }
}

TEST_F(MftRecords, SignatureAndFlagsAreNotLookedAt) {
  Bytes bytes = MftRecordBytes().AddRuns(0x80, {0x11, 1, 10}).Build();
  PutNumber(bytes, 0, 0x44414142, 4);
  PutNumber(bytes, 22, 0, 2);
  EXPECT_EQ(Run(bytes), 0);
  EXPECT_EQ(blocks_.size(), 1U);
}

// An attribute may begin in the record's last bytes; its header is looked for behind them.
TEST_F(MftRecords, AHeaderThatLeavesTheBlockIsAFault) {
  for (const std::uint16_t first : {std::uint16_t{1023}, std::uint16_t{1020}}) {
    Bytes bytes(1024);
    PutNumber(bytes, 20, first, 2);
    PutNumber(bytes, first, 0x80, 1);
    EXPECT_THROW(Run(bytes), win32::Fault) << first;
  }
}

TEST(MftRecord, ReadsUpToTheBlocksLastByteAndNoFurther) {
  const std::vector<std::byte> block(2048, std::byte{7});
  const MftRecord record(block, 1024);
  EXPECT_EQ(record.Load<std::uint8_t>(1023), 7U);
  EXPECT_EQ(record.Load<std::uint32_t>(1020), 0x07070707U);
  EXPECT_THROW(record.Load<std::uint8_t>(1024), win32::Fault);
  EXPECT_THROW(record.Load<std::uint32_t>(1021), win32::Fault);
  EXPECT_THROW(record.Load<std::uint8_t>(1025), win32::Fault);
  EXPECT_THROW(record.Load<std::uint32_t>(100'000), win32::Fault);
}

// The header and the run of an attribute that begins at `position`, which adds cluster 10.
Bytes BlockWithAttributeAt(std::size_t position) {
  Bytes bytes(2048);
  PutNumber(bytes, 20, position, 2);
  PutNumber(bytes, position, 0x80, 1);
  PutNumber(bytes, position + 4, 72, 4);
  PutNumber(bytes, position + 8, 1, 1);
  PutNumber(bytes, position + 32, 64, 2);
  PutNumber(bytes, position + 64, 0x0A0111, 3);
  return bytes;
}

TEST_F(MftRecords, TheLastByteOfTheRecordMayBeginAnAttributeAndTheNextOneNot) {
  EXPECT_EQ(Run(BlockWithAttributeAt(1024)), 0);
  EXPECT_TRUE(blocks_.empty());
  EXPECT_EQ(Run(BlockWithAttributeAt(1023)), 0);
  EXPECT_EQ(Places(blocks_), (PlaceMap{{kVolume + 10 * kCluster, kCluster}}));
}

// ---- Runs ---------------------------------------------------------------------------------------

TEST_F(MftRecords, OfSeveralRunsTheFirstIsTaken) {
  EXPECT_EQ(Run(MftRecordBytes().AddRuns(0x80, {0x11, 1, 10, 0x11, 1, 10, 0})), 0);
  EXPECT_EQ(Places(blocks_), (PlaceMap{{kVolume + 10 * kCluster, kCluster}}));
}

TEST_F(MftRecords, ARunOfExactlyTheCapAndALongerOneGiveTheCap) {
  MftRecordBytes record;
  record.AddRuns(0x80, {0x12, 0, 4, 1}).AddRuns(0x80, {0x12, 1, 4, 2});
  record.AddRuns(0x80, {0x12, 0xFF, 3, 3}).AddRuns(0x80, {0x13, 0xFF, 0xFF, 0xFF, 4});
  EXPECT_EQ(Run(record), 0);
  EXPECT_EQ(Places(blocks_), (PlaceMap{{kVolume + 1 * kCluster, kCap},
                                       {kVolume + 2 * kCluster, kCap},
                                       {kVolume + 3 * kCluster, kCap - kCluster},
                                       {kVolume + 4 * kCluster, kCap}}));
}

TEST_F(MftRecords, LengthAndPlaceOf4GibAndMoreDoNotWrap) {
  MftRecordBytes record;
  record.AddRuns(0x80, {0x13, 1, 0, 0x10, 1}).AddRuns(0x80, {0x31, 1, 10, 0, 0x10});
  EXPECT_EQ(Run(record), -16);
  EXPECT_EQ(Places(blocks_),
            (PlaceMap{{kVolume + kCluster, kCap}, {kVolume + 0x10000A * kCluster, kCluster}}));
  EXPECT_EQ(AllLines(), (Texts{"3 [BackupRestore] ParseNtfsMftRecord: read ntfs meta error 27"}));
}

// Compared without a sign, a negative length is a long one.
TEST_F(MftRecords, ANegativeLengthIsCapped) {
  EXPECT_EQ(Run(MftRecordBytes().AddRuns(0x80, {0x14, 0xFF, 0xFF, 0xFF, 0xFF, 1})), 0);
  EXPECT_EQ(Places(blocks_), (PlaceMap{{kVolume + kCluster, kCap}}));
}

TEST_F(MftRecords, AnOffsetOfThreeBytesIsNotNegative) {
  MftRecordBytes record;
  record.AddRuns(0x80, {0x11, 1, 0xF0}).AddRuns(0x80, {0x21, 1, 0x00, 0x20});
  EXPECT_EQ(Run(record), 0);
  EXPECT_EQ(Places(blocks_), (PlaceMap{{kVolume + 0xF0 * kCluster, kCluster},
                                       {kVolume + 0x2000 * kCluster, kCluster}}));
}

TEST_F(MftRecords, AnOffsetOfFourBytesWithItsTopBitLiesInFrontOfTheVolume) {
  EXPECT_EQ(Run(MftRecordBytes().AddRuns(0x80, {0x41, 1, 0xFE, 0xFF, 0xFF, 0xFF})), 0);
  EXPECT_EQ(Places(blocks_), (PlaceMap{{kVolume - 2 * kCluster, kCluster}}));
}

TEST_F(MftRecords, TheFifthByteOfAnOffsetFallsOntoTheFirst) {
  EXPECT_EQ(Run(MftRecordBytes().AddRuns(0x80, {0x51, 1, 10, 0, 0, 0, 7})), 0);
  EXPECT_EQ(Places(blocks_), (PlaceMap{{kVolume + 17 * kCluster, kCluster}}));
}

TEST_F(MftRecords, FieldsHaveUpTo15Bytes) {
  MftRecordBytes record;
  record.AddRuns(0x80, {0x1F, 3, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 10});
  record.AddRuns(0x80, {0xF1, 2, 20, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
  EXPECT_EQ(Run(record), 0);
  EXPECT_EQ(Places(blocks_), (PlaceMap{{kVolume + 10 * kCluster, 3 * kCluster},
                                       {kVolume + 20 * kCluster, 2 * kCluster}}));
}

TEST_F(MftRecords, AKeyThatIsThereIsResizedAndReadAgain) {
  MarkRange(disk_, kVolume, 1 << 20);
  SelectBytes(blocks_, kVolume + 10 * kCluster, std::vector<std::byte>(50000, std::byte{1}));
  EXPECT_EQ(Run(MftRecordBytes().AddRuns(0x80, {0x11, 2, 10})), 0);
  EXPECT_EQ(Places(blocks_), (PlaceMap{{kVolume + 10 * kCluster, 2 * kCluster}}));
  ExpectBytesOfDisk(blocks_);
}

TEST_F(MftRecords, AFailedReadReturnsItsCodeAndKeepsTheZeros) {
  machine_.calls().FailOn("ReadFile", 1, 23);
  EXPECT_EQ(Run(MftRecordBytes().AddRuns(0x80, {0x11, 2, 10})), -16);
  EXPECT_EQ(AllLines(), (Texts{"3 [BackupRestore] ParseNtfsMftRecord: read ntfs meta error 23"}));
  EXPECT_EQ(blocks_, (BlockMap{{kVolume + 10 * kCluster, std::vector<std::byte>(2 * kCluster)}}));
}

TEST_F(MftRecords, APlaceThatIsNotReachedReturnsTheSameCode) {
  machine_.calls().FailOn("SetFilePointerEx", 1, 131);
  EXPECT_EQ(Run(MftRecordBytes().AddRuns(0x80, {0x11, 2, 10})), -16);
  EXPECT_EQ(AllLines(), (Texts{"3 [BackupRestore] ParseNtfsMftRecord: read ntfs meta error 131"}));
}

// ---- Index entries ------------------------------------------------------------------------------

TEST_F(MftRecords, AnIndexRootNamesRecordsWhenAskedTo) {
  const MftRecordBytes record =
      MftRecordBytes().AddIndexRoot({{24, 16}, {0x80000001, 104}, {25, 16}});
  EXPECT_EQ(Run(record, true), 0);
  EXPECT_EQ(references_, (Numbers{24, 0x80000001, 25}));
  references_.clear();
  EXPECT_EQ(Run(record, false), 0);
  EXPECT_TRUE(references_.empty());
}

TEST_F(MftRecords, ARecordNumberOfZeroOrAllOnesEndsTheIndex) {
  EXPECT_EQ(Run(MftRecordBytes().AddIndexRoot({{24, 16}, {0, 16}, {25, 16}}), true), 0);
  EXPECT_EQ(Run(MftRecordBytes().AddIndexRoot({{26, 16}, {0xFFFFFFFF, 16}, {27, 16}}), true), 0);
  EXPECT_EQ(references_, (Numbers{24, 26}));
}

TEST_F(MftRecords, AnEntryOfNoLengthEndsTheIndexAfterItsNumber) {
  Bytes bytes = MftRecordBytes().AddIndexRoot({{24, 16}, {25, 16}, {26, 16}}).Build();
  PutNumber(bytes, 56 + 64 + 16 + 8, 0, 2);
  EXPECT_EQ(Run(bytes, true), 0);
  EXPECT_EQ(references_, (Numbers{24, 25}));
}

TEST_F(MftRecords, TheAttributesEndEndsTheIndex) {
  Bytes bytes = MftRecordBytes().AddIndexRoot({{24, 16}, {25, 16}, {26, 16}}).Build();
  PutNumber(bytes, 60, 64 + 17, 4);
  PutNumber(bytes, 56 + 64 + 17, 0xFF, 1);
  PutNumber(bytes, 56 + 64 + 16, 25, 1);
  EXPECT_EQ(Run(bytes, true), 0);
  ASSERT_EQ(references_.size(), 2U) << "an entry that begins one byte in front of it is taken";
  EXPECT_EQ(references_[0], 24U);
  references_.clear();
  PutNumber(bytes, 60, 64 + 16, 4);
  PutNumber(bytes, 56 + 64 + 16, 0xFF, 1);
  EXPECT_EQ(Run(bytes, true), 0);
  EXPECT_EQ(references_, (Numbers{24}));
}

TEST_F(MftRecords, AnIndexThatLeavesTheBlockIsAFault) {
  Bytes bytes(1024);
  PutNumber(bytes, 20, 56, 2);
  PutNumber(bytes, 56, 0x90, 4);
  PutNumber(bytes, 60, 0xFFFF, 4);
  PutNumber(bytes, 56 + 64, 24, 4);
  PutNumber(bytes, 56 + 64 + 8, 2000, 2);
  EXPECT_THROW(Run(bytes, true), win32::Fault);
}

// ---- The arithmetic -----------------------------------------------------------------------------

TEST(RunField, FieldsOfOnesOfEachLength) {
  const std::int64_t kValues[] = {0,  255, 65535, 16777215, -1, 254, 65534, 16777214,
                                  -2, 253, 65533, 16777213, -3, 252, 65532, 16777212};
  for (std::size_t length = 0; length < 16; ++length) {
    EXPECT_EQ(DecodeRunField(Bytes(length, 0xFF)), kValues[length]) << length;
  }
}

TEST(RunField, EachBitOfEachByteHasItsValue) {
  for (std::size_t byte = 0; byte < 15; ++byte) {
    for (unsigned bit = 0; bit < 8; ++bit) {
      Bytes field(15);
      field[byte] = static_cast<std::uint8_t>(1u << bit);
      std::int64_t expected = std::int64_t{1} << (8 * (byte % 4) + bit);
      if (expected == 0x80000000) expected = -0x80000000LL;
      EXPECT_EQ(DecodeRunField(field), expected) << "byte " << byte << " bit " << bit;
    }
  }
}

TEST(RunField, ValuesWorkedOutByHand) {
  EXPECT_EQ(DecodeRunField(Bytes{0x7F}), 127);
  EXPECT_EQ(DecodeRunField(Bytes{0x34, 0x12}), 0x1234);
  EXPECT_EQ(DecodeRunField(Bytes{0x56, 0x34, 0x92}), 0x923456);
  EXPECT_EQ(DecodeRunField(Bytes{0x78, 0x56, 0x34, 0x12}), 0x12345678);
  EXPECT_EQ(DecodeRunField(Bytes{0, 0, 0, 0x80}), std::numeric_limits<std::int32_t>::min());
  EXPECT_EQ(DecodeRunField(Bytes{0x01, 0x00, 0x00, 0xFF}), -16777215);
  EXPECT_EQ(DecodeRunField(Bytes{1, 0, 0, 0, 1}), 2);
  EXPECT_EQ(DecodeRunField(Bytes{0, 0, 0, 0x7F, 0, 0, 0, 0x7F}), 0xFE000000);
  EXPECT_EQ(DecodeRunField(Bytes{0, 0, 0, 0x80, 0, 0, 0, 0x80}), -0x100000000);
  // 0x44332211 + (0x776655 - 0x78000000)
  EXPECT_EQ(DecodeRunField(Bytes{0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88}), -861239194);
  // 0x04030201 + 0x08070605 + 0x0C0B0A09 + 0x0F0E0D
  EXPECT_EQ(DecodeRunField(Bytes{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}), 405020700);
}

}  // namespace
}  // namespace velkora
