#include "fat32_raw_volume_fixture.h"
#include "shrink/fat32_directories.h"

namespace velkora {
namespace {

using namespace testing_support;

constexpr std::uint32_t kParent = 100;
constexpr std::uint32_t kOld = 70'001;
constexpr std::uint32_t kNew = 66'002;

class UpdateParentEntryTest : public Fat32RawVolume {
 protected:
  bool Update(std::uint32_t parent = kParent) {
    return UpdateParentEntry(volume_, parent, fat_, Geometry(), kOld, kNew);
  }

  // Chains the clusters in the FAT in memory.
  void ChainInMemory(const std::vector<std::uint32_t>& clusters) {
    for (std::size_t i = 0; i + 1 < clusters.size(); ++i) {
      fat_.SetEntry(clusters[i], clusters[i + 1]);
    }
    fat_.SetEntry(clusters.back(), kLast);
  }

  // `count` clusters from 100 on.
  void ChainOf(std::uint32_t count) {
    std::vector<std::uint32_t> clusters;
    for (std::uint32_t i = 0; i < count; ++i) clusters.push_back(kParent + i);
    ChainInMemory(clusters);
  }

  FatTable fat_{static_cast<std::uint32_t>(kFatSectors) * 512};
};

TEST_F(UpdateParentEntryTest, EntryOfTheMovedDirectoryNamesItsNewPlace) {
  ChainOf(1);
  PutDirectory(kParent, 0, {{'F', kArchive, 30}, {'D', kFolder, kOld}, {'E', kFolder, 31}});
  const Bytes before = Cluster(kParent);
  EXPECT_TRUE(Update());
  EXPECT_EQ(EntryCluster(kParent, 3), kNew);
  Bytes after = Cluster(kParent);
  const std::size_t entry = 3 * 32;
  for (const std::size_t field : {entry + 20, entry + 26}) {
    std::copy_n(&before[field], 2, &after[field]);
  }
  EXPECT_EQ(after, before);
  EXPECT_EQ(machine_.calls().Count("WriteFile"), 1U);
}

TEST_F(UpdateParentEntryTest, WithoutAMatchNothingIsWritten) {
  ChainOf(1);
  PutDirectory(kParent, 0, {{'D', kFolder, kOld + 65536}, {'E', kFolder, kOld & 0xFFFF}});
  EXPECT_TRUE(Update());
  EXPECT_EQ(machine_.calls().Count("WriteFile"), 0U);
}

TEST_F(UpdateParentEntryTest, EachMatchIsWritten) {
  ChainOf(1);
  PutDirectory(kParent, 0, {{'D', kFolder, kOld}, {'E', kArchive, kOld}});
  EXPECT_TRUE(Update());
  EXPECT_EQ(EntryCluster(kParent, 2), kNew);
  EXPECT_EQ(EntryCluster(kParent, 3), kNew);
  EXPECT_EQ(machine_.calls().Count("WriteFile"), 2U);
}

TEST_F(UpdateParentEntryTest, DeletedEntriesAndThoseBehindTheEndAreLookedAt) {
  ChainOf(1);
  std::vector<RawEntry> entries = {{'\xE5', kFolder, kOld}, {'\0', 0, 0}};
  entries.resize(14, {'\0', 0, 0});
  entries.back() = {'D', kFolder, kOld};
  PutDirectory(kParent, 0, entries);
  EXPECT_TRUE(Update());
  EXPECT_EQ(EntryCluster(kParent, 2), kNew);
  EXPECT_EQ(EntryCluster(kParent, 15), kNew);
}

TEST_F(UpdateParentEntryTest, LongNameEntriesAreNot) {
  ChainOf(1);
  PutDirectory(kParent, 0, {{'L', kLongName, kOld}, {'D', kFolder | kLongName, kOld}});
  EXPECT_TRUE(Update());
  EXPECT_EQ(EntryCluster(kParent, 2), kOld);
  EXPECT_EQ(EntryCluster(kParent, 3), kNew);
}

TEST_F(UpdateParentEntryTest, MatchInALaterClusterReplacesItByTheFirst) {
  ChainOf(3);
  PutDirectory(kParent, 0, {{'F', kArchive, 30}});
  PutEntries(kParent + 1, {{'G', kArchive, 32}, {'D', kFolder, kOld}});
  PutEntries(kParent + 2, {{'H', kArchive, 33}});
  const Bytes third = Cluster(kParent + 2);
  EXPECT_TRUE(Update());
  EXPECT_EQ(Cluster(kParent + 1), Cluster(kParent));
  EXPECT_EQ(EntryCluster(kParent, 2), 30U);
  EXPECT_EQ(Cluster(kParent + 2), third);
  EXPECT_EQ(machine_.calls().Count("WriteFile"), 1U);
}

TEST_F(UpdateParentEntryTest, RepairOfTheFirstClusterStandsInTheCopyOverALaterOne) {
  ChainOf(2);
  PutDirectory(kParent, 0, {{'D', kFolder, kOld}});
  PutEntries(kParent + 1, {{'D', kFolder, kOld}});
  EXPECT_TRUE(Update());
  EXPECT_EQ(EntryCluster(kParent, 2), kNew);
  EXPECT_EQ(Cluster(kParent + 1), Cluster(kParent));
}

TEST_F(UpdateParentEntryTest, FragmentedParentIsFollowedThroughTheFatInMemory) {
  ChainInMemory({kParent, 500, 300});
  PutDirectory(kParent, 0);
  PutEntries(300, {{'D', kFolder, kOld}});
  EXPECT_TRUE(Update());
  EXPECT_EQ(Cluster(300), Cluster(kParent));
}

TEST_F(UpdateParentEntryTest, ChainIsCutAt128Clusters) {
  ChainOf(130);
  PutDirectory(kParent, 0);
  PutEntries(kParent + 127, {{'D', kFolder, kOld}});
  PutEntries(kParent + 128, {{'D', kFolder, kOld}});
  EXPECT_TRUE(Update());
  EXPECT_EQ(Cluster(kParent + 127), Cluster(kParent));
  EXPECT_EQ(EntryCluster(kParent + 128, 0), kOld);
  EXPECT_EQ(machine_.calls().Count("ReadFile"), 128U);
}

TEST_F(UpdateParentEntryTest, ChainInACircleIsCutAt128Clusters) {
  fat_.SetEntry(kParent, kParent);
  PutDirectory(kParent, 0);
  EXPECT_TRUE(Update());
  EXPECT_EQ(machine_.calls().Count("ReadFile"), 128U);
}

TEST_F(UpdateParentEntryTest, ValuesFrom0x0FFFFFF8To0x0FFFFFFFEndAChain) {
  for (const std::uint32_t end : {0x0FFFFFF8U, 0x0FFFFFFBU, 0x0FFFFFFFU}) {
    machine_.calls().Clear();
    fat_.SetEntry(kParent, end);
    EXPECT_TRUE(Update());
    EXPECT_EQ(machine_.calls().Count("ReadFile"), 1U) << end;
  }
}

TEST_F(UpdateParentEntryTest, FailedReadEndsIt) {
  ChainOf(2);
  machine_.calls().FailOn("ReadFile", 2, 23, simulator::Repeat::kFromThenOn);
  EXPECT_FALSE(Update());
  EXPECT_EQ(Lines(3), Texts(3, "Read Data Error! error_code: 23"));
}

TEST_F(UpdateParentEntryTest, FailedWriteEndsIt) {
  ChainOf(1);
  PutDirectory(kParent, 0, {{'D', kFolder, kOld}, {'E', kFolder, kOld}});
  machine_.calls().FailOn("WriteFile", 1, 19, simulator::Repeat::kFromThenOn);
  EXPECT_FALSE(Update());
  EXPECT_EQ(Lines(3), Texts(3, "Write Data Error! error_code: 19"));
  EXPECT_EQ(machine_.calls().Count("WriteFile"), 3U);
}

TEST_F(UpdateParentEntryTest, ScanOfA32KibClusterEnds) {
  sectors_per_cluster_ = 64;
  SetBootField(13, 64, 1);
  ChainOf(1);
  PutDirectory(kParent, 0, {{'D', kFolder, kOld}});
  EXPECT_TRUE(Update());
  EXPECT_EQ(EntryCluster(kParent, 2), kNew);
}

TEST_F(UpdateParentEntryTest, ChainThatLeavesTheFatIsAnAccessViolationBeforeAnythingIsRead) {
  // With its upper bits set even the end of a chain is a cluster like any other.
  for (const std::uint32_t next : {76'800U, 0x0FFFFFF7U, 0xFFFFFFFFU}) {
    fat_.SetEntry(kParent, next);
    EXPECT_EQ(FaultOf([&] { Update(); }), EXCEPTION_ACCESS_VIOLATION) << next;
  }
  EXPECT_EQ(FaultOf([&] { Update(76'800); }), EXCEPTION_ACCESS_VIOLATION);
  EXPECT_EQ(machine_.calls().Count("ReadFile"), 0U);
}

TEST_F(UpdateParentEntryTest, ScanOfA64KibClusterRepairsItAndRunsOutOfTheBuffer) {
  sectors_per_cluster_ = 128;
  SetBootField(13, 128, 1);
  ChainOf(2);
  PutDirectory(kParent, 0, {{'D', kFolder, kOld}});
  EXPECT_EQ(FaultOf([&] { Update(); }), EXCEPTION_ACCESS_VIOLATION);
  EXPECT_EQ(EntryCluster(kParent, 2), kNew);
  EXPECT_EQ(machine_.calls().Count("ReadFile"), 1U);
}

}  // namespace
}  // namespace velkora
