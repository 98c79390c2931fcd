// What a shrink of a FAT32 volume does not carry over, or fails on: exactly that and no more.
#include "conversion/fat32_volume_fixture.h"

namespace conversion {
namespace {

using Lines = std::vector<std::string>;

constexpr std::uint64_t kTakenOff = 5;  // MiB
constexpr std::size_t kCluster = 512;

class Fat32Losses : public Fat32VolumeTest {
 protected:
  Fat32Losses() { MakeVolume(48, kCluster); }

  std::uint64_t Boundary() const { return Fat32VolumeTest::Boundary(kTakenOff); }
  void FillUpTo(std::uint64_t cluster) {
    AddFile("filler", 1);
    const std::uint64_t first = FirstClusterOf("filler");
    Remove("filler");
    GoOnAt(first);
    AddFile("filler", (cluster - first) * kCluster);
  }
  void ExpectFailure(const Lines& errors) {
    EXPECT_FALSE(Shrink(kTakenOff));
    EXPECT_EQ(this->errors(), errors);
    ExpectSound();
  }
};

// ---- Slack of two clusters ---------------------------------------------------------------------

TEST_F(Fat32Losses, FilesInTheTwoClustersBehindTheLastStay) {
  GoOnAt(Boundary());
  for (const char* name : {"last", "behind1", "behind2", "behind3"}) AddFile(name, 10);
  EXPECT_TRUE(Shrink(kTakenOff));
  EXPECT_EQ(MovedClusters(), 1U);
  ExpectFsck(
      "/BEHIND1\n"
      "  Start cluster beyond limit (86522 > 86521). Truncating file.\n"
      "/BEHIND1\n"
      "  File size is 10 bytes, cluster chain length is 0 bytes.\n"
      "  Truncating file to 0 bytes.\n"
      "/BEHIND2\n"
      "  Start cluster beyond limit (86523 > 86521). Truncating file.\n"
      "/BEHIND2\n"
      "  File size is 10 bytes, cluster chain length is 0 bytes.\n"
      "  Truncating file to 0 bytes.\n",
      4);
  EXPECT_EQ(Lost(), Lines({"behind1", "behind2"}));
}

// ---- No room -----------------------------------------------------------------------------------

TEST_F(Fat32Losses, WhatFindsNoRoomStaysOutside) {
  FillUpTo(Boundary() - 19);
  GoOnAt(Boundary() + 10);
  AddFile("file", 100 * kCluster);
  AddFolder("folder");
  EXPECT_TRUE(Shrink(kTakenOff));
  EXPECT_EQ(errors(), Lines());
  EXPECT_EQ(MovedClusters(), 20U);
  ExpectFsck(
      "Cluster 86519 out of range (86551 > 86521). Setting to EOF.\n"
      "/FILE\n"
      "  File size is 51200 bytes, cluster chain length is 10240 bytes.\n"
      "  Truncating file to 10240 bytes.\n"
      "/FOLDER\n"
      "  Start cluster beyond limit (86522 > 86521). Truncating file.\n",
      3);
  EXPECT_EQ(Lost(), Lines({"file", "folder/"}));
}

TEST_F(Fat32Losses, AFullVolumeFails) {
  FillUpTo(Boundary() - 8 + kTakenOff * kMib / kCluster);
  AddFile("rest", 9 * kCluster);
  ExpectFailure({"Compress fat32 part fail!"});
}

// ---- Requests that the file system refuses -----------------------------------------------------

TEST_F(Fat32Losses, AnExtentThatFillsARunExactlyAsksForNoClusters) {
  AddFile("low", 20 * kCluster);
  AddFile("hole", 10 * kCluster);
  AddFile("high", 20 * kCluster);
  Remove("hole");
  GoOnAt(Boundary() + 10);
  AddFile("file", 10 * kCluster);
  ExpectFailure(
      {"Move File Failed! error_code: 87", "Move File Debris Error!", "Compress fat32 part fail!"});
  EXPECT_EQ(MovedClusters(), 10U);
  EXPECT_LT(FirstClusterOf("file"), Boundary()) << "it has moved by then";
}

TEST_F(Fat32Losses, AFileOf52ExtentsFailsWhereverItLies) {
  for (int i = 0; i < 104; ++i) AddFile("f" + std::to_string(i), kCluster);
  for (int i = 0; i < 104; i += 2) Remove("f" + std::to_string(i));
  GoOnAt(3);
  AddFile("file", 52 * kCluster);
  ASSERT_EQ(RunsOf("file").size(), 52U);
  ExpectFailure({"Get File Debris Error!", "Compress fat32 part fail!"});
}

// ---- Folders -----------------------------------------------------------------------------------

TEST_F(Fat32Losses, SystemVolumeInformationStaysWithAllThatIsInIt) {
  const std::string folder = "System Volume Information";
  GoOnAt(Boundary() + 10);
  AddFile("file", 2000);
  AddFolder(folder);
  AddFile(folder + "/inner", 2000);
  EXPECT_TRUE(Shrink(kTakenOff));
  EXPECT_EQ(MovedClusters(), 4U);
  ExpectFsck(
      "/System Volume Information\n"
      "  Start cluster beyond limit (86535 > 86521). Truncating file.\n",
      2);
  EXPECT_EQ(Lost(), Lines({folder + "/inner"}));
}

// The root directory is no folder of the list: what of it lies behind the new end stays there.
TEST_F(Fat32Losses, TheRootDirectoryIsCutAtTheNewEnd) {
  for (int i = 0; i < 16; ++i) AddFile("F" + std::to_string(i), 10);
  GoOnAt(Boundary() + 10);
  AddFile("G", 10);
  EXPECT_TRUE(Shrink(kTakenOff));
  ExpectFsck(
      "Cluster 0 out of range (86532 > 86521). Setting to EOF.\n"
      "Reclaimed 1 unused cluster (512 bytes).\n",
      16, 1);
  EXPECT_EQ(Lost(), Lines({"G"}));
}

// The links between the two still lead to the old places: fsck.fat would cut the folder there, with
// 14 files in it, and mtools do not read it at all.
TEST_F(Fat32Losses, AFolderOfWhichTwoFragmentsMoveIsBroken) {
  GoOnAt(Boundary() + 10);
  AddFolder("FOLDER");
  for (int i = 0; i < 14; ++i) AddFile("FOLDER/F" + std::to_string(i), 10);
  AddFile("FOLDER/G", 10);
  ASSERT_EQ(RunsOf("FOLDER").size(), 2U);
  EXPECT_TRUE(Shrink(kTakenOff));
  ExpectFsck(
      "Cluster 23 out of range (86547 > 86521). Setting to EOF.\n"
      "Reclaimed 2 unused clusters (1024 bytes).\n",
      15, 2);
  EXPECT_EQ(Lost().size(), Expected().size());
}

// It begins with the last cluster that stays, so that it does not move.
TEST_F(Fat32Losses, AFolderThatReachesAcrossTheNewEndIsCutThere) {
  GoOnAt(Boundary());
  AddFolder("FOLDER");
  for (int i = 0; i < 15; ++i) AddFile("FOLDER/F" + std::to_string(i), 0);
  ASSERT_EQ(RunsOf("FOLDER"), (testing_support::ClusterRuns{{Boundary(), 2}}));
  EXPECT_TRUE(Shrink(kTakenOff));
  ExpectFsck("Cluster 86519 out of range (86522 > 86521). Setting to EOF.\n", 15);
  EXPECT_EQ(Lost(), Lines({"FOLDER/F14"}));
}

// Only folders that the moved fragment lists are told where it went.
TEST_F(Fat32Losses, AFolderListedInALaterFragmentKeepsTheOldLinkToItsParent) {
  GoOnAt(Boundary() + 10);
  AddFolder("FOLDER");
  for (int i = 0; i < 14; ++i) AddFile("FOLDER/F" + std::to_string(i), 0);
  GoOnAt(100);
  AddFolder("FOLDER/SUB");
  ASSERT_EQ(RunsOf("FOLDER").size(), 2U);
  EXPECT_TRUE(Shrink(kTakenOff));
  ExpectFsck("/FOLDER/SUB\n  Invalid '..' entry in the second slot. Fixing.\n", 16);
  EXPECT_EQ(Lost(), Lines());
}

// Only the later fragment lies behind the new end: its chain moves to clusters without its data.
TEST_F(Fat32Losses, AFolderOfWhichTheLaterFragmentMovesLosesIt) {
  AddFolder("FOLDER");
  for (int i = 0; i < 14; ++i) AddFile("FOLDER/F" + std::to_string(i), 10);
  GoOnAt(Boundary() + 10);
  AddFile("FOLDER/G", 10);
  ASSERT_EQ(RunsOf("FOLDER").size(), 2U);
  EXPECT_TRUE(Shrink(kTakenOff));
  ExpectFsck("Reclaimed 1 unused cluster (512 bytes).\n", 15, 1);
  EXPECT_EQ(Lost(), Lines({"FOLDER/G"}));
}

// The entry of the folder that moves stands in its parent's second cluster, over which the first
// one is written.
TEST_F(Fat32Losses, AParentsSecondClusterIsReplacedByTheFirst) {
  AddFolder("PARENT");
  // The long name fills the first cluster.
  const std::string name(169, 'n');
  AddFile("PARENT/" + name, 10);
  AddFile("PARENT/SECOND", 10);
  GoOnAt(Boundary() + 10);
  AddFolder("PARENT/FOLDER");
  EXPECT_TRUE(Shrink(kTakenOff));
  ExpectFsck("/PARENT/" + name +
                 "\n"
                 "  Duplicate directory entry.\n"
                 "  First    Size 10 bytes\n"
                 "  Second   Size 10 bytes\n"
                 "  Auto-renaming second.\n"
                 "  Renamed to FSCK0000.000\n"
                 "/PARENT/.\n"
                 "  Bad short file name (.).\n"
                 "  Auto-renaming it.\n"
                 "  Renamed to FSCK0000.001\n"
                 "/PARENT/..\n"
                 "  Bad short file name (..).\n"
                 "  Auto-renaming it.\n"
                 "  Renamed to FSCK0000.002\n"
                 "/PARENT/FSCK0000.001\n"
                 " Start does point to containing directory. Deleting entry.\n"
                 "/PARENT/FSCK0000.002\n"
                 " Start does point to root directory. Deleting dir. \n"
                 "/PARENT/" +
                 name +
                 "  and\n"
                 "/PARENT/FSCK0000.000\n"
                 "  share clusters.\n"
                 "  Truncating second to 0 bytes.\n"
                 "/PARENT/FSCK0000.000\n"
                 "  File size is 10 bytes, cluster chain length is 0 bytes.\n"
                 "  Truncating file to 0 bytes.\n"
                 "Reclaimed 2 unused clusters (1024 bytes).\n",
             5, 2);
  EXPECT_EQ(Lost(), Lines({"PARENT/FOLDER/", "PARENT/SECOND"}));
}

TEST_F(Fat32Losses, AParentOfTwoClustersIsRightWhereTheFirstNamesTheFolder) {
  AddFolder("PARENT");
  GoOnAt(Boundary() + 10);
  AddFolder("PARENT/FOLDER");
  AddFile("PARENT/FOLDER/FILE", 3000);
  GoOnAt(100);
  for (int i = 0; i < 20; ++i) AddFile("PARENT/F" + std::to_string(i), 10);
  ASSERT_EQ(RunsOf("PARENT").size(), 2U);
  EXPECT_TRUE(Shrink(kTakenOff));
  ExpectSound();
}

}  // namespace
}  // namespace conversion
