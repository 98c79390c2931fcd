// FAT32 volumes that a shrink leaves whole: files and folders in front of the new end and behind
// it, by 5 MiB as for a boot record, and by 302 MiB as for an EFI system partition.
#include <algorithm>
#include <fstream>
#include <ostream>

#include "conversion/fat32_volume_fixture.h"

namespace conversion {
namespace {

namespace fs = std::filesystem;

struct Sizes {
  std::uint64_t volume_mib;
  std::uint32_t cluster_bytes;
  std::uint64_t shrink_mib;
  bool writes_late;
};
void PrintTo(const Sizes& sizes, std::ostream* out) {
  *out << sizes.volume_mib << " MiB by " << sizes.shrink_mib
       << (sizes.writes_late ? ", written late" : "");
}

class Fat32Shrink : public Fat32VolumeTest, public ::testing::WithParamInterface<Sizes> {
 protected:
  Fat32Shrink() {
    MakeVolume(GetParam().volume_mib, GetParam().cluster_bytes);
    writes_late_ = GetParam().writes_late;
  }

  std::uint64_t Boundary() const { return Fat32VolumeTest::Boundary(size_mib_); }
  // Clusters of these files that lie behind the new end.
  std::uint64_t Behind(const std::vector<std::string>& paths) const {
    std::uint64_t count = 0;
    for (const std::string& path : paths) count += ClustersBehind(path, size_mib_);
    return count;
  }
  void ShrinkSoundly() {
    EXPECT_TRUE(Shrink(size_mib_));
    EXPECT_EQ(errors(), std::vector<std::string>());
    ExpectSound();
  }
  // All that moves is what had to, with a fiftieth at most to spare.
  void ExpectMoves(std::uint64_t needed) {
    EXPECT_GE(MovedClusters(), needed);
    EXPECT_LE(MovedClusters() * 100, needed * 102);
  }

  const std::uint64_t size_mib_ = GetParam().shrink_mib;
};

TEST_P(Fat32Shrink, AllDataInFrontStaysWhereItIs) {
  AddFile("file", 100'000);
  AddFolder("folder");
  AddFile("folder/inner", 3000);
  const auto runs = RunsOf("folder/inner");
  ShrinkSoundly();
  EXPECT_EQ(MovedClusters(), 0U);
  EXPECT_EQ(RawWrites(), LastWrites());
  EXPECT_EQ(RunsOf("folder/inner"), runs);
}

TEST_P(Fat32Shrink, FilesBehindTheNewEndMove) {
  AddFolder("folder");
  AddFile("in front", 5000);
  GoOnAt(Boundary() - 100);
  AddFile("straddling", 500 * cluster_bytes());
  AddFile("folder/behind", 300'000);
  AddFile("small", 1);
  const std::uint64_t needed = Behind({"straddling", "folder/behind", "small"});
  ASSERT_GT(needed, 500U);
  ShrinkSoundly();
  ExpectMoves(needed);
  EXPECT_EQ(RawWrites(), LastWrites());
}

TEST_P(Fat32Shrink, FragmentsMovePieceByPiece) {
  // The root directory gets its room in front.
  for (int i = 0; i < 45; ++i) AddFile("room" + std::to_string(i), 1);
  for (int i = 0; i < 45; ++i) Remove("room" + std::to_string(i));
  GoOnAt(Boundary() + 3);
  for (int i = 0; i < 40; ++i) AddFile("old" + std::to_string(i), 3 * cluster_bytes());
  for (int i = 0; i < 40; i += 2) Remove("old" + std::to_string(i));
  GoOnAt(Boundary() + 3);
  AddFile("first", 31 * cluster_bytes());
  AddFile("second", 29 * cluster_bytes() - 7);
  ASSERT_GT(RunsOf("first").size(), 5U);
  ASSERT_GT(RunsOf("second").size(), 5U);
  std::vector<std::string> files = {"first", "second"};
  for (int i = 1; i < 40; i += 2) files.push_back("old" + std::to_string(i));
  const std::uint64_t needed = Behind(files);
  ASSERT_GT(needed, 50U);
  ShrinkSoundly();
  ExpectMoves(needed);
}

// The free list skips the first eight clusters and the next free ones are taken in order: the
// folders come to lie one behind the other.
TEST_P(Fat32Shrink, AFolderInTheRootMovesWithItsLinks) {
  GoOnAt(Boundary() + 50);
  AddFolder("folder");
  AddFolder("folder/sub");
  AddFile("folder/file", 700);
  GoOnAt(20);
  AddFolder("folder/low");
  AddFile("folder/low/file", 900);
  const std::uint64_t low = FirstClusterOf("folder/low");
  const std::uint64_t needed = Behind({"folder/file"});
  ShrinkSoundly();
  ExpectMoves(needed);
  const std::uint64_t folder = FirstClusterOf("folder");
  const std::uint64_t sub = FirstClusterOf("folder/sub");
  EXPECT_LE(std::max(folder, sub), Boundary());
  const std::uint64_t old_sub = Boundary() + 51;
  std::vector<Transfer> writes = {{PositionOf(folder), cluster_bytes()},
                                  {PositionOf(old_sub), 512},
                                  {PositionOf(low), 512},
                                  {PositionOf(2), cluster_bytes()},
                                  {PositionOf(sub), cluster_bytes()},
                                  {PositionOf(folder), cluster_bytes()}};
  for (const Transfer& write : LastWrites()) writes.push_back(write);
  EXPECT_EQ(RawWrites(), writes);
}

TEST_P(Fat32Shrink, AFolderThreeLevelsDownMoves) {
  AddFolder("one");
  AddFolder("one/two");
  GoOnAt(Boundary() + 30);
  AddFolder("one/two/three");
  AddFile("one/two/three/file", 700);
  const std::uint64_t two = FirstClusterOf("one/two");
  ShrinkSoundly();
  const std::uint64_t three = FirstClusterOf("one/two/three");
  EXPECT_LE(three, Boundary());
  std::vector<Transfer> writes = {{PositionOf(three), cluster_bytes()},
                                  {PositionOf(two), cluster_bytes()}};
  for (const Transfer& write : LastWrites()) writes.push_back(write);
  EXPECT_EQ(RawWrites(), writes);
}

TEST_P(Fat32Shrink, ATreeBehindTheNewEndMovesAsAWhole) {
  GoOnAt(Boundary() + 10);
  std::string path;
  for (const std::string name : {"a", "b", "c", "d"}) {
    path += (path.empty() ? "" : "/") + name;
    AddFolder(path);
    AddFile(path + "/file", 2000);
    AddFolder(path + "/empty");
  }
  ShrinkSoundly();
  EXPECT_LE(FirstClusterOf("a/b/c/d/empty"), Boundary());
}

// Empty files take no clusters, so that the folder's own come one behind the other.
TEST_P(Fat32Shrink, AFolderOfSeveralClustersInOneRunMoves) {
  GoOnAt(Boundary() + 10);
  AddFolder("folder");
  for (int i = 0; i < 40; ++i) AddFile("folder/f" + std::to_string(i), 0);
  AddFile("folder/file", 3000);
  ASSERT_EQ(RunsOf("folder").size(), 1U);
  ASSERT_GT(RunsOf("folder")[0].second, 1U);
  ShrinkSoundly();
  EXPECT_LE(FirstClusterOf("folder"), Boundary());
}

TEST_P(Fat32Shrink, LongNamesStay) {
  const std::string name(100, 'n');
  GoOnAt(Boundary() + 10);
  AddFolder("A folder with a long name");
  AddFile("A folder with a long name/" + name, 5000);
  AddFile(
      "Gr\xC3\xB6\xC3\x9F"
      "e.text",
      100);
  ShrinkSoundly();
}

INSTANTIATE_TEST_SUITE_P(Sizes, Fat32Shrink,
                         ::testing::Values(Sizes{48, 512, 5, false}, Sizes{400, 1024, 302, false},
                                           Sizes{400, 1024, 302, true}));

// Each cluster size that a volume can have, by 5 MiB.
class Fat32ClusterSizes : public Fat32VolumeTest,
                          public ::testing::WithParamInterface<std::uint32_t> {
 protected:
  static constexpr std::uint64_t kTakenOff = 5;

  // More clusters than the 65525 that FAT32 needs, also behind the shrink.
  Fat32ClusterSizes() { MakeVolume(std::uint64_t{80'000} * GetParam() / kMib + 1, GetParam()); }

  std::uint64_t Boundary() const { return Fat32VolumeTest::Boundary(kTakenOff); }
  void ShrinkSoundly() {
    EXPECT_TRUE(Shrink(kTakenOff));
    EXPECT_EQ(errors(), std::vector<std::string>());
    ExpectSound();
  }
};

TEST_P(Fat32ClusterSizes, FilesMoveAndFoldersInFrontStay) {
  AddFolder("folder");
  AddFile("in front", 3 * cluster_bytes() + 1);
  GoOnAt(Boundary() - 9);
  AddFile("straddling", 30 * cluster_bytes());
  AddFile("folder/behind", 7 * cluster_bytes() - 1);
  AddFile("small", 1);
  ShrinkSoundly();
  EXPECT_EQ(MovedClusters(), 20U + 7 + 1);
  EXPECT_EQ(RawWrites(), LastWrites());
}

// In clusters of 64 KiB no folder can move.
class Fat32FolderClusterSizes : public Fat32ClusterSizes {};

TEST_P(Fat32FolderClusterSizes, FoldersBehindTheNewEndMove) {
  GoOnAt(Boundary() + 10);
  AddFolder("folder");
  AddFolder("folder/sub");
  AddFile("folder/sub/file", 2 * cluster_bytes());
  ShrinkSoundly();
  EXPECT_EQ(MovedClusters(), 2U);
  EXPECT_LE(FirstClusterOf("folder"), Boundary());
  EXPECT_LE(FirstClusterOf("folder/sub"), Boundary());
}

INSTANTIATE_TEST_SUITE_P(From512BytesTo64Kib, Fat32ClusterSizes,
                         ::testing::Values(512, 1024, 2048, 4096, 8192, 16384, 32768, 65536));
INSTANTIATE_TEST_SUITE_P(From512BytesTo32Kib, Fat32FolderClusterSizes,
                         ::testing::Values(512, 1024, 2048, 4096, 8192, 16384, 32768));

class Fat32LargeShrink : public Fat32VolumeTest {};

// In 168 folders, half of them behind the new end.
TEST_F(Fat32LargeShrink, TwentyThousandFiles) {
  constexpr std::uint64_t kTakenOff = 302;
  MakeVolume(640, 4096);
  const fs::path tree = File("made");
  for (int i = 0; i < 20'000; ++i) {
    const fs::path folder = tree / std::to_string(i / 10'000) / std::to_string(i / 120);
    if (i % 120 == 0 || i % 10'000 == 0) fs::create_directories(folder);
    std::ofstream(folder / ("F" + std::to_string(i)))
        << std::string(static_cast<std::size_t>(i % 3000), static_cast<char>('a' + i % 26)) << i;
  }
  // Across the new end itself lies a file that cannot stay by the slack of two clusters.
  GoOnAt(Boundary(kTakenOff) - 20);
  AddFile("across", 40 * 4096);
  GoOnAt(Boundary(kTakenOff) - 10'000);
  AddTree(tree);
  EXPECT_TRUE(Shrink(kTakenOff));
  EXPECT_EQ(errors(), std::vector<std::string>());
  EXPECT_GT(MovedClusters(), 8000U);
  EXPECT_LT(MovedClusters(), 12'000U);
  ExpectSound();
}

}  // namespace
}  // namespace conversion
