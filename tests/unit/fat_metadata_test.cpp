#include "backup/fat_metadata.h"

#include <gtest/gtest.h>
#include <new>
#include <vector>

#include "platform/guard.h"
#include "support/backup_disk_fixture.h"

namespace velkora {
namespace {

using namespace testing_support;

constexpr std::uint64_t kVolume = 1 << 20;

// ---- FAT16 --------------------------------------------------------------------------------------

class Fat16Metadata : public DiskParserTest {
 protected:
  std::int32_t Run(const FatFields& fields) {
    MarkRange(disk_, kVolume, 1 << 20);
    const Bytes start = Fat16Start(fields);
    WriteBytes(disk_, kVolume, start);
    return ParseFat16Volume(handle_, kVolume, std::as_bytes(std::span(start)), blocks_);
  }
};

TEST_F(Fat16Metadata, EverythingInFrontOfTheDataIsOneBlock) {
  FatFields fields;
  fields.reserved_sectors = 3;
  fields.fats = 2;
  fields.sectors_per_fat = 20;
  fields.root_entries = 512;
  EXPECT_EQ(Run(fields), 0);
  EXPECT_EQ(Places(blocks_), (PlaceMap{{kVolume, (2 * 20 + 3) * 512 + 512 * 32}}));
  ExpectBytesOfDisk(blocks_);
  EXPECT_TRUE(log_.empty());
}

TEST_F(Fat16Metadata, TheVolumesOwnSectorSizeCounts) {
  FatFields fields;
  fields.bytes_per_sector = 2048;
  fields.sectors_per_fat = 5;
  fields.root_entries = 16;
  EXPECT_EQ(Run(fields), 0);
  EXPECT_EQ(Places(blocks_), (PlaceMap{{kVolume, (2 * 5 + 4) * 2048 + 16 * 32}}));
}

TEST_F(Fat16Metadata, ASectorSizeOfZeroLeavesTheRootFolder) {
  FatFields fields;
  fields.bytes_per_sector = 0;
  fields.root_entries = 32;
  EXPECT_EQ(Run(fields), 0);
  EXPECT_EQ(Places(blocks_), (PlaceMap{{kVolume, 1024}}));
}

TEST_F(Fat16Metadata, FieldsOfZeroGiveAnEmptyBlock) {
  FatFields fields;
  fields.bytes_per_sector = 0;
  EXPECT_EQ(Run(fields), 0);
  EXPECT_EQ(Places(blocks_), (PlaceMap{{kVolume, 0}}));
}

TEST_F(Fat16Metadata, AnAreaThatLeavesTheDiskFails) {
  FatFields fields;
  fields.fats = 255;
  fields.sectors_per_fat = 1000;
  EXPECT_EQ(Run(fields), -14);
  EXPECT_EQ(AllLines(), (Texts{"3 [BackupRestore] ParseFat16Volume: read error 27"}));
}

TEST_F(Fat16Metadata, AnAreaBehind32BitsOfBytesHasNoMemory) {
  FatFields fields;
  fields.fats = 255;
  fields.sectors_per_fat = 65535;
  EXPECT_THROW(Run(fields), std::bad_alloc);
}

TEST_F(Fat16Metadata, ALengthThatIsNoMultipleOfASectorFails) {
  FatFields fields;
  fields.root_entries = 1;
  EXPECT_EQ(Run(fields), -14);
  EXPECT_EQ(AllLines(), (Texts{"3 [BackupRestore] ParseFat16Volume: read error 87"}));
}

// ---- FAT32 --------------------------------------------------------------------------------------

class Fat32Metadata : public DiskParserTest {
 protected:
  // What lies in front of the data, with the fields' defaults.
  static constexpr std::uint64_t kArea = (2 * 8 + 4) * 512;
  static constexpr std::uint64_t kData = kVolume + kArea;

  // The volume's bytes: boot sector, and `fat` (numbers of 32 bits) in the first FAT.
  void Write(const FatFields& fields, const std::vector<std::uint32_t>& fat) {
    fields_ = fields;
    MarkRange(disk_, kVolume, 1 << 20);
    WriteBytes(disk_, kVolume, Fat32Start(fields));
    Bytes table(static_cast<std::size_t>(8) * 512);
    for (std::size_t i = 0; i < fat.size(); ++i) PutNumber(table, 4 * i, fat[i], 4);
    WriteBytes(disk_, kVolume + 4 * 512, table);
  }
  std::int32_t Run() {
    const Bytes start = Fat32Start(fields_);
    return ParseFat32Volume(handle_, kVolume, std::as_bytes(std::span(start)), blocks_);
  }
  std::int32_t Run(const FatFields& fields, const std::vector<std::uint32_t>& fat) {
    Write(fields, fat);
    return Run();
  }
  static FatFields Root(std::uint32_t cluster) {
    FatFields fields;
    fields.root_cluster = cluster;
    return fields;
  }
  static std::uint64_t Cluster(std::uint64_t number) { return kData + (number - 2) * 512; }

  FatFields fields_;
};

TEST_F(Fat32Metadata, TheAreaAndEachClusterOfTheRootFolderAreBlocks) {
  EXPECT_EQ(Run(Root(5), {0, 0, 9, 0, 0, 7, 0, 2, 0, 0x0FFFFFFF}), 0);
  EXPECT_EQ(Places(blocks_), (PlaceMap{{kVolume, kArea},
                                       {Cluster(5), 512},
                                       {Cluster(7), 512},
                                       {Cluster(2), 512},
                                       {Cluster(9), 512}}));
  ExpectBytesOfDisk(blocks_);
  EXPECT_TRUE(log_.empty());
}

TEST_F(Fat32Metadata, AClusterHasItsSectors) {
  FatFields fields = Root(3);
  fields.sectors_per_cluster = 8;
  EXPECT_EQ(Run(fields, {0, 0, 0, 0x0FFFFFFF}), 0);
  EXPECT_EQ(Places(blocks_), (PlaceMap{{kVolume, kArea}, {kData + 4096, 4096}}));
  ExpectBytesOfDisk(blocks_);
}

TEST_F(Fat32Metadata, TheVolumesOwnSectorSizeCounts) {
  FatFields fields;
  fields.bytes_per_sector = 1024;
  fields.reserved_sectors = 2;
  EXPECT_EQ(Run(fields, {0, 0, 0x0FFFFFFF}), 0);
  EXPECT_EQ(Places(blocks_), (PlaceMap{{kVolume, 18 * 1024}, {kVolume + 18 * 1024, 1024}}));
}

TEST_F(Fat32Metadata, ARootClusterOfZeroIsTakenForTwo) {
  EXPECT_EQ(Run(Root(0), {0, 0, 0x0FFFFFFF}), 0);
  EXPECT_EQ(Places(blocks_), (PlaceMap{{kVolume, kArea}, {Cluster(2), 512}}));
}

TEST_F(Fat32Metadata, ARootClusterBehindTheFatLeavesTheAreaAlone) {
  EXPECT_EQ(Run(Root(1024), {}), 0);
  EXPECT_EQ(Places(blocks_), (PlaceMap{{kVolume, kArea}}));
  blocks_.clear();
  EXPECT_EQ(Run(Root(0xFFFFFFFF), {}), 0);
  EXPECT_EQ(Places(blocks_), (PlaceMap{{kVolume, kArea}}));
}

TEST_F(Fat32Metadata, TheLastEntryOfTheFatIsStillPartOfIt) {
  std::vector<std::uint32_t> fat(1024);
  fat[1023] = 0x0FFFFFFF;
  EXPECT_EQ(Run(Root(1023), fat), 0);
  EXPECT_EQ(Places(blocks_), (PlaceMap{{kVolume, kArea}, {Cluster(1023), 512}}));
}

// Only one value is an end mark; each other one ends the walk by pointing behind the FAT.
TEST_F(Fat32Metadata, OtherEndMarksAndUnmaskedTopBitsEndTheWalkToo) {
  for (const std::uint32_t next : {0x0FFFFFF8u, 0xFFFFFFFFu, 0x10000003u, 0xF0000000u, 1024u}) {
    blocks_.clear();
    EXPECT_EQ(Run(Root(2), {0, 0, next, 0x0FFFFFFF}), 0);
    EXPECT_EQ(Places(blocks_), (PlaceMap{{kVolume, kArea}, {Cluster(2), 512}})) << next;
  }
}

TEST_F(Fat32Metadata, AnEntryOfZeroGoesOnWithClusterZeroInFrontOfTheData) {
  EXPECT_EQ(Run(Root(2), {0x0FFFFFF8, 0, 0}), 0);
  EXPECT_EQ(Places(blocks_),
            (PlaceMap{{kVolume, kArea}, {Cluster(2), 512}, {kData - 2 * 512, 512}}));
  ExpectBytesOfDisk(blocks_);
}

TEST_F(Fat32Metadata, AnEntryOfOneGoesOnWithClusterOne) {
  EXPECT_EQ(Run(Root(2), {0, 3, 1, 0x0FFFFFFF}), 0);
  EXPECT_EQ(Places(blocks_),
            (PlaceMap{{kVolume, kArea}, {Cluster(2), 512}, {kData - 512, 512}, {Cluster(3), 512}}));
}

TEST_F(Fat32Metadata, OfTheFatsTheFirstIsWalked) {
  Write(Root(2), {0, 0, 0x0FFFFFFF});
  Bytes second(512);
  PutNumber(second, 8, 3, 4);
  WriteBytes(disk_, kVolume + 12 * 512, second);
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(Places(blocks_), (PlaceMap{{kVolume, kArea}, {Cluster(2), 512}}));
}

TEST_F(Fat32Metadata, AChainThatLoopsRunsOutOfMemory) {
  Write(Root(2), {0, 0, 3, 2});
  EXPECT_THROW(Run(), std::bad_alloc);
  Write(Root(7), {0, 0, 0, 0, 0, 0, 0, 7});
  EXPECT_THROW(Run(), std::bad_alloc);
}

TEST_F(Fat32Metadata, AnAreaOfNoLengthIsAnEmptyBlock) {
  FatFields fields;
  fields.bytes_per_sector = 0;
  EXPECT_EQ(Run(fields, {0, 0, 0x0FFFFFFF}), 0);
  EXPECT_EQ(Places(blocks_), (PlaceMap{{kVolume, 0}}));
  EXPECT_EQ(machine_.calls().Count("ReadFile"), 0U);
}

// FATs, their sectors and the reserved sectors make a number of 32 bits.
TEST_F(Fat32Metadata, TheSectorsInFrontOfTheDataWrapAt32Bits) {
  FatFields fields;
  fields.sectors_per_fat = 0x80000000;
  fields.reserved_sectors = 0;
  EXPECT_EQ(Run(fields, {}), 0);
  EXPECT_EQ(Places(blocks_), (PlaceMap{{kVolume, 0}}));
}

// The FAT is then said to be longer than the block that holds it.
TEST_F(Fat32Metadata, AWalkThatLeavesTheAreaIsAFault) {
  FatFields fields;
  fields.sectors_per_fat = 0x80000000;
  fields.reserved_sectors = 8;
  fields.root_cluster = 4;
  EXPECT_THROW(Run(fields, {}), win32::Fault);
}

TEST_F(Fat32Metadata, AnAreaBehind32BitsOfBytesHasNoMemory) {
  FatFields fields;
  fields.sectors_per_fat = 0x00FFFFFF;
  EXPECT_THROW(Run(fields, {}), std::bad_alloc);
}

TEST_F(Fat32Metadata, AnUnreadableRootClusterFailsAndTheNextAreNotTried) {
  Write(Root(2), {0, 0, 3, 4, 5, 0x0FFFFFFF});
  machine_.calls().FailOn("ReadFile", 3, 23);
  EXPECT_EQ(Run(), -15);
  EXPECT_EQ(AllLines(), (Texts{"3 [BackupRestore] ParseFat32Volume: read root error 23"}));
  EXPECT_EQ(machine_.calls().Count("ReadFile"), 3U);
}

// Its number times 512 needs more than 32 bits, and without the upper ones lies in the data.
TEST_F(Fat32Metadata, ARootClusterBehind4GibIsNotTakenForOneInFront) {
  FatFields fields = Root(0x800002);
  fields.fats = 1;
  fields.sectors_per_fat = 0x10001;
  EXPECT_EQ(Run(fields, {0x0FFFFFFF}), -15);
  EXPECT_EQ(AllLines(), (Texts{"3 [BackupRestore] ParseFat32Volume: read root error 27"}));
}

TEST_F(Fat32Metadata, ARootClusterBehindTheDiskFails) {
  FatFields fields = Root(1000);
  fields.sectors_per_cluster = 255;
  std::vector<std::uint32_t> fat(1001);
  fat[1000] = 0x0FFFFFFF;
  EXPECT_EQ(Run(fields, fat), -15);
  EXPECT_EQ(AllLines(), (Texts{"3 [BackupRestore] ParseFat32Volume: read root error 27"}));
}

}  // namespace
}  // namespace velkora
