#include <algorithm>

#include "fat32_directories_fixture.h"

namespace velkora {
namespace {

using namespace testing_support;

using Runs = std::vector<ClusterRun>;

// ---- Which fragments move ----------------------------------------------------------------------

TEST_F(MoveDirectoryDebrisTest, WithoutAFragmentBehindTheBoundaryBothFatsAreRewrittenAlike) {
  const Bytes fat = Fat(0);
  ASSERT_NE(Fat(1), fat);
  EXPECT_TRUE(Move({{0, 40, 0, 1, 0}}));
  EXPECT_EQ(Fat(0), fat);
  EXPECT_EQ(Fat(1), fat);
  EXPECT_EQ(runs_, (Runs{{kNew, 10}}));
  EXPECT_EQ(machine_.calls().Count("WriteFile"), 2U);
  EXPECT_EQ(log_.size(), 0U);
}

TEST_F(MoveDirectoryDebrisTest, FragmentThatStartsAtTheBoundaryStays) {
  EXPECT_TRUE(Move({{0, kBoundary, 0, 5, 0}}));
  EXPECT_EQ(runs_, (Runs{{kNew, 10}}));
}

TEST_F(MoveDirectoryDebrisTest, FragmentThatStartsBehindTheBoundaryMoves) {
  PutDirectory(kBoundary + 1, 0);
  EXPECT_TRUE(Move({{0, kBoundary + 1, 0, 1, 0}}));
  EXPECT_EQ(runs_, (Runs{{kNew + 1, 9}}));
  EXPECT_EQ(EntryCluster(kNew, 0), kNew);
}

TEST_F(MoveDirectoryDebrisTest, RunOfTheFragmentsVeryLengthIsNotLongEnough) {
  runs_ = {{50, 3}, {60, 1}};
  EXPECT_TRUE(Move({{0, kOld, 0, 3, 0}}));
  EXPECT_EQ(runs_, (Runs{{50, 3}, {60, 1}}));
  EXPECT_EQ(FatEntry(0, kOld), kLast);
  EXPECT_EQ(EntryCluster(2, 1), kOld);
}

TEST_F(MoveDirectoryDebrisTest, FirstRunThatIsLongerIsTaken) {
  runs_ = {{50, 1}, {60, 3}, {70, 9}};
  EXPECT_TRUE(Move({{0, kOld, 0, 1, 0}}));
  EXPECT_EQ(runs_, (Runs{{50, 1}, {61, 2}, {70, 9}}));
  EXPECT_EQ(EntryCluster(2, 1), 60U);
}

TEST_F(MoveDirectoryDebrisTest, RunBehindTheBoundaryCanBeTaken) {
  runs_ = {{50, 1}, {2000, 80'002}};
  EXPECT_TRUE(Move({{0, kOld, 0, 1, 0}}));
  EXPECT_EQ(runs_, (Runs{{50, 1}, {2001, 80'001}}));
  EXPECT_EQ(EntryCluster(2, 1), 2000U);
}

TEST_F(MoveDirectoryDebrisTest, RunsAreUsedUpFragmentByFragment) {
  PutDirectory(1200, 0);
  runs_ = {{50, 2}, {60, 2}};
  EXPECT_TRUE(Move({{0, kOld, 0, 1, 0}, {0, 1200, 0, 1, 0}}));
  EXPECT_EQ(runs_, (Runs{{51, 1}, {61, 1}}));
}

// ---- What a move changes -----------------------------------------------------------------------

TEST_F(MoveDirectoryDebrisTest, DirectoryIsCopiedAndEverythingThatNamesItRepaired) {
  const Bytes before = Cluster(kOld);
  EXPECT_TRUE(Move({{0, kOld, 0, 1, 0}}));
  EXPECT_EQ(EntryCluster(kNew, 0), kNew);
  EXPECT_EQ(EntryCluster(kNew, 1), 0U);
  Bytes copy = Cluster(kNew);
  for (const std::size_t field : {20U, 26U}) std::copy_n(&before[field], 2, &copy[field]);
  EXPECT_EQ(copy, before);
  EXPECT_EQ(EntryCluster(40, 0), 40U) << "only .. of a subdirectory is repaired";
  EXPECT_EQ(EntryCluster(40, 1), kNew);
  EXPECT_EQ(EntryCluster(2, 1), kNew);
  EXPECT_EQ(EntryCluster(2, 0), 30U);
  for (const std::uint64_t fat : {0U, 1U}) {
    EXPECT_EQ(FatEntry(fat, kOld), 0U);
    EXPECT_EQ(FatEntry(fat, kNew), kLast);
  }
  EXPECT_EQ(Fat(0), Fat(1));
  EXPECT_EQ(Cluster(kOld), before) << "the old place keeps its bytes";
  EXPECT_EQ(log_.size(), 0U);
}

TEST_F(MoveDirectoryDebrisTest, DeletedSubdirectoryIsFollowedLikeALiveOne) {
  EXPECT_TRUE(Move({{0, kOld, 0, 1, 0}}));
  EXPECT_EQ(EntryCluster(41, 1), kNew);
}

TEST_F(MoveDirectoryDebrisTest, PassOverSubdirectoriesEndsAtEightZeroBytes) {
  PutDirectory(kOld, 0, {{'S', kFolder, 40}, {'\0', kFolder, 0}, {'T', kFolder, 41}});
  EXPECT_TRUE(Move({{0, kOld, 0, 1, 0}}));
  EXPECT_EQ(EntryCluster(40, 1), kNew);
  EXPECT_EQ(EntryCluster(41, 1), kOld);
}

TEST_F(MoveDirectoryDebrisTest, NameThatOnlyBeginsWithZeroIsNoEnd) {
  PutDirectory(kOld, 0, {{'S', kFolder, 40}, {'T', kFolder, 41}});
  WriteBytes(disk_, SectorOf(kOld) * 512 + 64, Bytes(7));
  EXPECT_TRUE(Move({{0, kOld, 0, 1, 0}}));
  EXPECT_EQ(EntryCluster(40, 1), kNew);
  EXPECT_EQ(EntryCluster(41, 1), kNew);
}

TEST_F(MoveDirectoryDebrisTest, DirectoryThatIsFullToItsEndIsPatchedToItsEnd) {
  std::vector<RawEntry> entries(14, {'F', kArchive, 31});
  entries.back() = {'S', kFolder, 40};
  PutDirectory(kOld, 0, entries);
  EXPECT_TRUE(Move({{0, kOld, 0, 1, 0}}));
  EXPECT_EQ(EntryCluster(40, 1), kNew);
}

TEST_F(MoveDirectoryDebrisTest, ParentThatIsNotTheRootIsFoundByItsCluster) {
  Chain({900});
  PutDirectory(900, 0, {{'F', kArchive, 30}, {'D', kFolder, kOld}});
  PutDirectory(kOld, 900);
  EXPECT_TRUE(Move({{0, kOld, 0, 1, 0}}));
  EXPECT_EQ(EntryCluster(900, 3), kNew);
  EXPECT_EQ(EntryCluster(2, 1), kOld);
}

TEST_F(MoveDirectoryDebrisTest, ParentZeroIsCluster2WhateverTheBootSectorSays) {
  SetBootField(44, 900, 4);
  EXPECT_TRUE(Move({{0, kOld, 0, 1, 0}}));
  EXPECT_EQ(EntryCluster(2, 1), kNew);
}

TEST_F(MoveDirectoryDebrisTest, ParentMovesBeforeItsChild) {
  PutDirectory(1200, kOld);
  PutDirectory(kOld, 0, {{'S', kFolder, 1200}});
  EXPECT_TRUE(Move({{0, kOld, 0, 1, 0}, {0, 1200, 0, 1, 0}}));
  EXPECT_EQ(EntryCluster(2, 1), kNew);
  EXPECT_EQ(EntryCluster(kNew, 2), kNew + 1);
  EXPECT_EQ(EntryCluster(kNew + 1, 0), kNew + 1);
  EXPECT_EQ(EntryCluster(kNew + 1, 1), kNew);
  EXPECT_EQ(FatEntry(0, kNew), kLast);
  EXPECT_EQ(FatEntry(0, kNew + 1), kLast);
}

TEST_F(MoveDirectoryDebrisTest, FragmentOfSeveralClustersIsChainedToItsEnd) {
  Chain({kOld, kOld + 1, kOld + 2});
  FillCluster(kOld + 1, 0x51);
  FillCluster(kOld + 2, 0);
  EXPECT_TRUE(Move({{0, kOld, 0, 3, 0}}));
  EXPECT_EQ(FatEntry(0, kNew), kNew + 1);
  EXPECT_EQ(FatEntry(0, kNew + 1), kNew + 2);
  EXPECT_EQ(FatEntry(0, kNew + 2), kLast);
  for (const std::uint32_t cluster : {kOld, kOld + 1, kOld + 2}) {
    EXPECT_EQ(FatEntry(0, cluster), 0U) << cluster;
  }
  EXPECT_EQ(Cluster(kNew + 1), Cluster(kOld + 1));
  EXPECT_EQ(runs_, (Runs{{kNew + 3, 7}}));
}

TEST_F(MoveDirectoryDebrisTest, NewEntriesDoNotKeepTheUpperBitsOfOldOnes) {
  SetFat(kNew, 0xA0000000);
  SetFat(kOld, 0xAFFFFFFF);
  SetFat(500, 0xA0000000);
  EXPECT_TRUE(Move({{0, kOld, 0, 1, 0}}));
  EXPECT_EQ(FatEntry(0, kNew), kLast);
  EXPECT_EQ(FatEntry(0, kOld), 0U);
  EXPECT_EQ(FatEntry(0, 500), 0xA0000000U);
}

TEST_F(MoveDirectoryDebrisTest, UpperHalfOfTheFatSizeIsNotRead) {
  SetBootField(38, 1, 2);
  EXPECT_TRUE(Move({{0, kOld, 0, 1, 0}}));
  EXPECT_EQ(EntryCluster(2, 1), kNew);
  EXPECT_EQ(machine_.calls().Count("WriteFile"), 6U);
}

// ---- Directories of several fragments ----------------------------------------------------------

TEST_F(MoveDirectoryDebrisTest, OfALaterFragmentTheChainMovesWithoutTheData) {
  Chain({500, kOld});
  FillCluster(kOld, 0x51);
  FillCluster(kNew, 0x77);
  EXPECT_TRUE(Move({{0, 500, 0, 1, kOld}, {500, kOld, 1, 1, 0}}));
  EXPECT_EQ(FatEntry(0, 500), kNew);
  EXPECT_EQ(FatEntry(0, kNew), kLast);
  EXPECT_EQ(FatEntry(0, kOld), 0U);
  EXPECT_EQ(Cluster(kNew), Bytes(512, std::byte{0x77}));
  EXPECT_EQ(EntryCluster(2, 1), kOld);
  EXPECT_EQ(machine_.calls().Count("WriteFile"), 2U);
  EXPECT_EQ(runs_, (Runs{{kNew + 1, 9}}));
}

TEST_F(MoveDirectoryDebrisTest, FirstFragmentIsChainedToItsNext) {
  Chain({kOld, 600});
  EXPECT_TRUE(Move({{0, kOld, 0, 1, 600}, {kOld, 600, 1, 1, 0}}));
  EXPECT_EQ(FatEntry(0, kNew), 600U);
  EXPECT_EQ(FatEntry(0, 600), kLast);
}

TEST_F(MoveDirectoryDebrisTest, TwoNeighboursThatBothMoveKeepTheOldLinks) {
  Chain({kOld, 1200});
  EXPECT_TRUE(Move({{0, kOld, 0, 1, 1200}, {kOld, 1200, 1, 1, 0}}));
  EXPECT_EQ(FatEntry(0, kNew), 1200U) << "still the old next";
  EXPECT_EQ(FatEntry(0, kOld), kNew + 1) << "an entry that had just been freed";
  EXPECT_EQ(FatEntry(0, 1200), 0U);
  EXPECT_EQ(FatEntry(0, kNew + 1), kLast);
}

TEST_F(MoveDirectoryDebrisTest, SubdirectoryInALaterFragmentKeepsItsParent) {
  Chain({kOld, 600});
  PutEntries(600, {{'S', kFolder, 42}});
  PutDirectory(42, kOld);
  EXPECT_TRUE(Move({{0, kOld, 0, 1, 600}, {kOld, 600, 1, 1, 0}}));
  EXPECT_EQ(EntryCluster(40, 1), kNew);
  EXPECT_EQ(EntryCluster(42, 1), kOld);
}

}  // namespace
}  // namespace velkora
