#include "simulator/storage/fat32_files.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "simulator/storage/fat32_format.h"
#include "simulator/storage/fat32_names.h"
#include "simulator/storage_disk.h"

namespace simulator::storage_testing {
namespace {

using Names = std::vector<std::string>;

constexpr std::uint64_t kVolumeSectors = 40 * 2048;
constexpr std::uint32_t kUnknown = 0xFFFFFFFF;

class Fat32FilesTest : public ::testing::Test {
 protected:
  // Clusters of 512 bytes, 1 MiB into the disk.
  void SetUp() override {
    ASSERT_EQ(FormatFat32(disk_.device(), {kMiB, kVolumeSectors * 512, 2048, 1}), ERROR_SUCCESS);
  }

  Fat32Files Files() { return {disk_.device(), kMiB}; }
  std::string Content(std::string_view path) {
    std::string content;
    EXPECT_EQ(Files().Read(path, content), ERROR_SUCCESS) << path;
    return content;
  }
  Names Listed(std::string_view path) {
    std::vector<Fat32Entry> entries;
    EXPECT_EQ(Files().List(path, entries), ERROR_SUCCESS) << path;
    Names names;
    for (const Fat32Entry& entry : entries) names.push_back(entry.name);
    return names;
  }
  Fat32FsInfo Info() { return Load<Fat32FsInfo>(disk_.Sector(2048 + 1)); }
  std::uint32_t TableEntry(std::uint32_t table, std::uint32_t cluster) {
    const auto boot = Load<Fat32BootSector>(disk_.Sector(2048));
    const std::uint64_t sector = 2048 + 32 + std::uint64_t{table} * boot.fat_sectors;
    const auto bytes = disk_.Sector(sector + cluster / 128);
    return Load<Little32>(std::span(bytes).subspan(cluster % 128 * 4));
  }
  void SetTableEntry(std::uint32_t cluster, std::uint32_t value) {
    auto bytes = disk_.Sector(2048 + 32 + cluster / 128);
    Store(Little32(value), std::span(bytes).subspan(cluster % 128 * 4));
    ASSERT_TRUE(disk_.SetSector(2048 + 32 + cluster / 128, bytes));
  }

  StorageDisk disk_{48 * kMiB};
};

TEST_F(Fat32FilesTest, AFileIsReadAsItWasWritten) {
  const std::string content = std::string(1300, 'x') + std::string(1, '\0') + "end";
  EXPECT_EQ(Files().Write("\\BCD", content), ERROR_SUCCESS);
  EXPECT_EQ(Content("bcd"), content);
  EXPECT_EQ(Files().Write("\\empty", ""), ERROR_SUCCESS);
  EXPECT_EQ(Content("\\EMPTY"), "");
  EXPECT_EQ(Listed("\\"), (Names{"BCD", "empty"}));
}

TEST_F(Fat32FilesTest, LongNamesKeepTheirCase) {
  EXPECT_EQ(Files().MakeFolder("\\EFI"), ERROR_SUCCESS);
  EXPECT_EQ(Files().MakeFolder("\\EFI\\Microsoft"), ERROR_SUCCESS);
  const std::string longest(255, 'n');
  EXPECT_EQ(Files().Write("\\EFI\\Microsoft\\" + longest, "1"), ERROR_SUCCESS);
  EXPECT_EQ(Files().Write("\\efi\\microsoft\\bootmgfw.efi", "2"), ERROR_SUCCESS);
  EXPECT_EQ(Files().Write("\\efi\\microsoft\\a b+c.txt", "3"), ERROR_SUCCESS);
  EXPECT_EQ(Files().Write("\\efi\\microsoft\\журнал", "4"), ERROR_SUCCESS);
  EXPECT_EQ(Listed("\\EFI"), (Names{"Microsoft"}));
  EXPECT_EQ(Listed("\\EFI\\Microsoft"), (Names{longest, "bootmgfw.efi", "a b+c.txt", "журнал"}));
  EXPECT_EQ(Content("\\EFI\\MICROS~1\\" + longest), "1");
  EXPECT_EQ(Content("\\EFI\\Microsoft\\журнал"), "4");
  EXPECT_EQ(Files().Write("\\" + longest + "n", ""), ERROR_INVALID_NAME);
}

TEST_F(Fat32FilesTest, ReplacingFreesWhatTheOldContentHad) {
  ASSERT_EQ(Files().Write("\\file", std::string(5 * 512, 'a')), ERROR_SUCCESS);
  const std::uint32_t free = Info().free_clusters;
  EXPECT_EQ(Files().Write("\\file", std::string(512, 'b')), ERROR_SUCCESS);
  EXPECT_EQ(Info().free_clusters, free + 4);
  EXPECT_EQ(Content("\\file"), std::string(512, 'b'));
  EXPECT_EQ(Listed("\\"), (Names{"file"}));
}

TEST_F(Fat32FilesTest, RemovingFreesTheClustersInBothTablesAndTheSlots) {
  const std::uint32_t free = Info().free_clusters;
  ASSERT_EQ(Files().Write("\\A long name of some slots", std::string(1025, 'a')), ERROR_SUCCESS);
  EXPECT_EQ(Info().free_clusters, free - 3);
  EXPECT_EQ(TableEntry(0, 3), 4U);
  EXPECT_EQ(TableEntry(1, 3), 4U);
  EXPECT_EQ(Files().Remove("\\a LONG name of some slots"), ERROR_SUCCESS);
  EXPECT_EQ(Info().free_clusters, free);
  for (const std::uint32_t cluster : {3U, 4U, 5U}) {
    EXPECT_EQ(TableEntry(0, cluster), 0U);
    EXPECT_EQ(TableEntry(1, cluster), 0U);
  }
  EXPECT_EQ(Listed("\\"), Names());
  EXPECT_EQ(Files().Remove("\\A long name of some slots"), ERROR_FILE_NOT_FOUND);
}

TEST_F(Fat32FilesTest, AFolderGrowsWithItsEntriesAndUsesFreedSlotsAgain) {
  ASSERT_EQ(Files().MakeFolder("\\folder"), ERROR_SUCCESS);
  Names expected;
  for (int i = 0; i < 40; ++i) {
    expected.push_back("file number " + std::to_string(i));
    ASSERT_EQ(Files().Write("\\folder\\" + expected.back(), expected.back()), ERROR_SUCCESS);
  }
  EXPECT_EQ(Listed("\\folder"), expected);
  for (const std::string& name : expected) EXPECT_EQ(Content("\\folder\\" + name), name);
  const std::uint32_t free = Info().free_clusters;
  EXPECT_EQ(Files().Remove("\\folder\\file number 7"), ERROR_SUCCESS);
  EXPECT_EQ(Files().Write("\\folder\\file number X", "x"), ERROR_SUCCESS);
  expected[7] = "file number X";
  EXPECT_EQ(Listed("\\folder"), expected);
  EXPECT_EQ(Info().free_clusters, free);
}

TEST_F(Fat32FilesTest, ErrorsTellWhatIsMissing) {
  std::string content = "before";
  EXPECT_EQ(Files().Read("\\none", content), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(Files().Read("\\none\\file", content), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(Files().Write("\\none\\file", ""), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(Files().Remove("\\none"), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(Files().Remove("\\none\\file"), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(Files().Write("\\a*b", ""), ERROR_INVALID_NAME);
  EXPECT_EQ(Files().Write("\\", ""), ERROR_INVALID_NAME);
  EXPECT_EQ(content, "before");
  ASSERT_EQ(Files().MakeFolder("\\folder"), ERROR_SUCCESS);
  EXPECT_EQ(Files().MakeFolder("\\FOLDER"), ERROR_ALREADY_EXISTS);
  EXPECT_EQ(Files().Write("\\folder", ""), ERROR_ACCESS_DENIED);
  EXPECT_EQ(Files().Remove("\\folder"), ERROR_ACCESS_DENIED);
  EXPECT_EQ(Files().Read("\\folder", content), ERROR_ACCESS_DENIED);
}

TEST_F(Fat32FilesTest, ExistsKnowsFilesFoldersAndTheRoot) {
  ASSERT_EQ(Files().MakeFolder("\\folder"), ERROR_SUCCESS);
  ASSERT_EQ(Files().Write("\\folder\\file", ""), ERROR_SUCCESS);
  EXPECT_TRUE(Files().Exists("\\"));
  EXPECT_TRUE(Files().Exists("\\folder\\"));
  EXPECT_TRUE(Files().Exists("/folder/file"));
  EXPECT_FALSE(Files().Exists("\\file"));
  EXPECT_FALSE(Files().Exists("\\folder\\file\\file"));
}

TEST_F(Fat32FilesTest, AFullVolumeRefusesAndStaysAsItWas) {
  const std::uint32_t free = Info().free_clusters;
  EXPECT_EQ(Files().Write("\\big", std::string((free + 1) * 512, 'b')), ERROR_DISK_FULL);
  EXPECT_EQ(Info().free_clusters, free);
  EXPECT_EQ(Listed("\\"), Names());
  EXPECT_EQ(Files().Write("\\big", std::string(free * 512, 'b')), ERROR_SUCCESS);
  EXPECT_EQ(Info().free_clusters, 0U);
  EXPECT_EQ(Files().MakeFolder("\\folder"), ERROR_DISK_FULL);
  EXPECT_EQ(Files().Write("\\empty", ""), ERROR_SUCCESS);
}

TEST_F(Fat32FilesTest, AnUnknownCountOfFreeClustersStaysUnknown) {
  Fat32FsInfo info = Info();
  info.free_clusters = kUnknown;
  ASSERT_TRUE(disk_.Put(2048 + 1, info));
  EXPECT_EQ(Files().Write("\\file", "text"), ERROR_SUCCESS);
  EXPECT_EQ(Info().free_clusters, kUnknown);
}

TEST_F(Fat32FilesTest, TheUpperBitsOfATableEntryStay) {
  SetTableEntry(3, 0xA0000000);
  ASSERT_EQ(Files().Write("\\file", "text"), ERROR_SUCCESS);
  EXPECT_EQ(TableEntry(0, 3), 0xAFFFFFFFU);
  ASSERT_EQ(Files().Remove("\\file"), ERROR_SUCCESS);
  EXPECT_EQ(TableEntry(0, 3), 0xA0000000U);
}

TEST_F(Fat32FilesTest, AChainInACircleIsCorrupt) {
  ASSERT_EQ(Files().Write("\\file", std::string(1024, 'a')), ERROR_SUCCESS);
  SetTableEntry(4, 3);
  std::string content;
  EXPECT_EQ(Files().Read("\\file", content), ERROR_FILE_CORRUPT);
  EXPECT_EQ(Files().Write("\\other", "works"), ERROR_SUCCESS);
}

TEST_F(Fat32FilesTest, AChainThatLeavesTheVolumeOrEndsEarlyIsCorrupt) {
  ASSERT_EQ(Files().Write("\\file", std::string(1024, 'a')), ERROR_SUCCESS);
  std::string content;
  SetTableEntry(3, 0x0FFFFFF0);
  EXPECT_EQ(Files().Read("\\file", content), ERROR_FILE_CORRUPT);
  SetTableEntry(3, 0);
  EXPECT_EQ(Files().Read("\\file", content), ERROR_FILE_CORRUPT);
  SetTableEntry(3, 0x0FFFFFFF);
  EXPECT_EQ(Files().Read("\\file", content), ERROR_FILE_CORRUPT);
}

TEST_F(Fat32FilesTest, WhatIsNoSoundVolumeIsNotRecognised) {
  Fat32Files nothing(disk_.device(), 45 * kMiB);
  EXPECT_EQ(nothing.Write("\\file", ""), kErrorUnrecognizedVolume);
  EXPECT_FALSE(nothing.Exists("\\"));
  auto boot = Load<Fat32BootSector>(disk_.Sector(2048));
  boot.root_cluster = 1;
  ASSERT_TRUE(disk_.Put(2048, boot));
  EXPECT_EQ(Files().Write("\\file", ""), kErrorUnrecognizedVolume);
  boot.root_cluster = 2;
  boot.fat_sectors = 1;
  ASSERT_TRUE(disk_.Put(2048, boot));
  EXPECT_EQ(Files().Write("\\file", ""), kErrorUnrecognizedVolume);
}

std::string Packed(std::string_view name, const Names& taken = {}) {
  const Fat32ShortName packed = MakeShortName(name, taken);
  return {packed.begin(), packed.end()};
}

TEST(Fat32ShortNames, AreTheNameItselfWhereThatIsEnough) {
  EXPECT_EQ(Packed("BCD"), "BCD        ");
  EXPECT_EQ(Packed("memtest.efi"), "MEMTEST EFI");
  EXPECT_EQ(Packed("memtest.efi", {"MEMTEST.EFI"}), "MEMTES~1EFI");
}

TEST(Fat32ShortNames, GetANumberOtherwise) {
  EXPECT_EQ(Packed("Microsoft"), "MICROS~1   ");
  EXPECT_EQ(Packed("Microsoft", {"MICROS~1", "MICROS~2"}), "MICROS~3   ");
  EXPECT_EQ(Packed("a b.c.text"), "ABC~1   TEX");
  EXPECT_EQ(Packed(".profile"), "PROFIL~1   ");
  EXPECT_EQ(Packed("a+b"), "A_B~1      ");
}

TEST(Fat32ShortNames, NeedCapitalsOfEightAndThree) {
  EXPECT_TRUE(IsShortName("BOOTNXT"));
  EXPECT_TRUE(IsShortName("A-B_1.TX"));
  EXPECT_FALSE(IsShortName("bootmgr"));
  EXPECT_FALSE(IsShortName("NINECHARS"));
  EXPECT_FALSE(IsShortName("A.B.C"));
  EXPECT_FALSE(IsShortName("A."));
  EXPECT_FALSE(IsShortName(".A"));
}

}  // namespace
}  // namespace simulator::storage_testing
