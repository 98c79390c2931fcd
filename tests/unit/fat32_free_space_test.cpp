#include "shrink/fat32_free_space.h"

#include <gtest/gtest.h>
#include <random>

#include "disk/device_handle.h"
#include "fat32_values.h"
#include "simulator/disk.h"
#include "simulator/storage/fat32_format.h"
#include "simulator/volume.h"
#include "support/machine_fixture.h"

namespace velkora {
namespace {

using namespace testing_support;

using Runs = std::vector<ClusterRun>;
using Bytes = std::vector<std::byte>;

Bytes Bitmap(std::initializer_list<int> bytes, std::size_t spare = 8) {
  Bytes bitmap;
  for (const int byte : bytes) bitmap.push_back(static_cast<std::byte>(byte));
  bitmap.resize(bitmap.size() + spare);
  return bitmap;
}

Runs FreeRuns(const Bytes& bitmap, std::uint64_t cluster_count) {
  Runs runs;
  AppendFreeRuns(bitmap, cluster_count, runs);
  return runs;
}

// Bit by bit, with `in_run` and `start` as a plain walk keeps them.
Runs PlainFreeRuns(const Bytes& bitmap, std::uint64_t cluster_count) {
  Runs runs;
  bool in_run = false;
  std::uint64_t start = 0;
  std::uint64_t b = 1;
  for (; 8 * b < cluster_count; ++b) {
    for (unsigned k = 0; k < 8; ++k) {
      const bool set = (bitmap[b] >> k & std::byte{1}) != std::byte{0};
      if (!set && !in_run) start = 8 * b + k + 2;
      if (set && in_run) runs.push_back({start, 8 * b + k - start + 2});
      in_run = !set;
    }
  }
  if (in_run) runs.push_back({start, 8 * b + 2});
  return runs;
}

// ---- The scan of the bitmap --------------------------------------------------------------------

TEST(AppendFreeRuns, FindsRunsAcrossBytesByFatClusterNumber) {
  // LCNs 10 to 20 and 30 are free.
  EXPECT_EQ(FreeRuns(Bitmap({0xFF, 0x03, 0x00, 0xE0 | 0x00, 0xFF}), 40), (Runs{{12, 19}}));
  EXPECT_EQ(FreeRuns(Bitmap({0xFF, 0x03, 0xE0, 0xBF, 0xFF}), 40), (Runs{{12, 11}, {32, 1}}));
}

TEST(AppendFreeRuns, AppendsBehindWhatTheListHolds) {
  Runs runs = {{7, 1}};
  AppendFreeRuns(Bitmap({0xFF, 0xFE, 0xFF}), 24, runs);
  EXPECT_EQ(runs, (Runs{{7, 1}, {10, 1}}));
}

TEST(AppendFreeRuns, BitmapThatIsSetBehindByteZeroGivesAnEmptyList) {
  EXPECT_EQ(FreeRuns(Bitmap({0x00, 0xFF, 0xFF, 0xFF}), 32), Runs{});
}

TEST(AppendFreeRuns, RunInTheFirstEightClustersIsIgnored) {
  EXPECT_EQ(FreeRuns(Bitmap({0x00, 0xFE, 0xFF}), 24), (Runs{{10, 1}}));
  EXPECT_EQ(FreeRuns(Bitmap({0x0F, 0xFF, 0xFF}), 24), Runs{});
}

TEST(AppendFreeRuns, RunThatReachesTheEndIsAsLongAsTheWholeVolumeAndMore) {
  EXPECT_EQ(FreeRuns(Bitmap({0xFF, 0xFF, 0x0F}), 24), (Runs{{22, 26}}));
  EXPECT_EQ(FreeRuns(Bitmap({0xFF, 0x00, 0x00}), 24), (Runs{{10, 26}}));
}

TEST(AppendFreeRuns, BitsOfTheLastByteBehindTheLastClusterCount) {
  // 20 clusters: the scan goes on to the end of byte 2, and its clear bits make a run to the end.
  EXPECT_EQ(FreeRuns(Bitmap({0xFF, 0xFF, 0x0F}), 20), (Runs{{22, 26}}));
  EXPECT_EQ(FreeRuns(Bitmap({0xFF, 0xFF, 0x07 | 0xF0}), 20), (Runs{{21, 1}}));
}

TEST(AppendFreeRuns, BitmapOfAtMostEightClustersGivesAnEmptyList) {
  for (std::uint64_t clusters = 0; clusters <= 8; ++clusters) {
    EXPECT_EQ(FreeRuns(Bitmap({0x00}), clusters), Runs{}) << clusters;
  }
  EXPECT_EQ(FreeRuns(Bitmap({0x00, 0x00}), 9), (Runs{{10, 18}}));
}

TEST(AppendFreeRuns, NeedsNoMoreThanTheBytesOfTheClusters) {
  for (std::size_t length = 2; length < 30; ++length) {
    const Bytes clear(length);
    EXPECT_EQ(FreeRuns(clear, length * 8), (Runs{{10, length * 8 + 2}})) << length;
    const Bytes set(length, std::byte{0xFF});
    EXPECT_EQ(FreeRuns(set, length * 8), Runs{}) << length;
  }
}

// Bytes alike for a while make whole words and blocks of words of one kind, single bytes of any
// kind the edges; the while is short in some rounds and long in others.
Bytes RandomBitmap(std::mt19937_64& random, std::uint64_t clusters) {
  Bytes bitmap(clusters / 8 + 9);
  const std::uint64_t changes = std::uint64_t{4} << random() % 8;
  for (std::size_t i = 0; i < bitmap.size(); ++i) {
    const std::uint64_t kind = i == 0 ? 2 : random() % changes;
    bitmap[i] = kind == 0   ? static_cast<std::byte>(random())
                : kind == 1 ? std::byte{0}
                : kind == 2 ? std::byte{0xFF}
                            : bitmap[i - 1];
  }
  return bitmap;
}

TEST(AppendFreeRuns, EqualsAPlainWalkOnRandomBitmaps) {
  std::mt19937_64 random(20261121);
  for (int round = 0; round < 3000; ++round) {
    const std::uint64_t clusters = random() % 4000;
    const Bytes bitmap = RandomBitmap(random, clusters);
    ASSERT_EQ(FreeRuns(bitmap, clusters), PlainFreeRuns(bitmap, clusters)) << round;
  }
}

TEST(AppendFreeRuns, LargeBitmapOfOneRunIsPassedByWords) {
  Bytes bitmap(std::size_t{1} << 25);  // of 2^28 clusters, the most that FAT32 has
  bitmap.back() = std::byte{0x80};
  EXPECT_EQ(FreeRuns(bitmap, bitmap.size() * 8), (Runs{{10, bitmap.size() * 8 - 9}}));
}

// ---- The boundary ------------------------------------------------------------------------------

TEST(BoundaryCluster, IsTheLastFatClusterThatStays) {
  // 1000 clusters of 4096 bytes are FAT clusters 2 to 1001; 1 MiB is 256 of them.
  EXPECT_EQ(BoundaryCluster(1000, 1, 4096), 745U);
  EXPECT_EQ(BoundaryCluster(1000, 0, 4096), 1001U);
}

TEST(BoundaryCluster, RoundsTheClustersGivenUpDown) {
  EXPECT_EQ(BoundaryCluster(1000, 1, 3 * 512), 1000U - 682U + 1U);
  EXPECT_EQ(BoundaryCluster(1000, 1, 2 * 1024 * 1024), 1001U);
}

TEST(BoundaryCluster, WrapsForASizeAboveTheVolume) {
  EXPECT_EQ(BoundaryCluster(10, 1, 4096), std::uint64_t{0} - 245U);
}

TEST(BoundaryCluster, CutsTheBytesOfAHugeSizeTo64Bits) {
  EXPECT_EQ(BoundaryCluster(1000, (std::uint64_t{1} << 44) + 1, 4096), 745U);
}

TEST(BoundaryCluster, ClusterSizeZeroIsADivisionByZero) {
  EXPECT_EQ(FaultOf([] { BoundaryCluster(1000, 1, 0); }), EXCEPTION_INT_DIVIDE_BY_ZERO);
}

// ---- The query ---------------------------------------------------------------------------------

constexpr char kGetBitmap[] = "DeviceIoControl/FSCTL_GET_VOLUME_BITMAP";
constexpr std::uint64_t kVolumeStart = 1024 * 1024;

// Disk 1 has an empty FAT32 volume with clusters of 512 bytes; `volume_` is open.
class GetClusterLocationTest : public MachineTest {
 protected:
  GetClusterLocationTest() : disk_(NewDisk(1, 48 * kVolumeStart)) {
    WriteMbr(disk_, {{12, 2048, 40 * 2048}});
    EXPECT_EQ(simulator::FormatFat32(disk_.device(), {kVolumeStart, 40 * kVolumeStart, 2048, 1}),
              ERROR_SUCCESS);
    machine_.UpdateProperties(disk_);
    volume_ = GetDeviceHandleById(machine_.FindVolumeAt(1, kVolumeStart)->path.c_str());
    machine_.calls().Clear();
  }
  ~GetClusterLocationTest() override { CloseDeviceHandle(volume_); }

  bool Get() { return GetClusterLocation(volume_, runs_, total_); }

  simulator::Disk& disk_;
  HANDLE volume_ = INVALID_HANDLE_VALUE;
  Runs runs_;
  std::uint64_t total_ = 7;
};

TEST_F(GetClusterLocationTest, ListsWhatTheFileSystemHasFree) {
  machine_.AddFile(1, kVolumeStart, "\\file", std::string(20 * 512, 'f'));
  ASSERT_TRUE(Get());
  // Reserved sectors, two FATs; what is left are the clusters.
  const auto boot = ReadSector(disk_, 2048);
  const std::uint64_t fat_sectors = boot[36] + boot[37] * 256U;
  EXPECT_EQ(total_, 40 * 2048 - (boot[14] + boot[15] * 256U) - 2 * fat_sectors);
  // The root directory and the file fill clusters 2 to 22, LCNs 0 to 20.
  EXPECT_EQ(runs_, (Runs{{23, (total_ + 7) / 8 * 8 + 2}}));
  EXPECT_EQ(log_, Log{});
}

TEST_F(GetClusterLocationTest, AsksForTheHeaderAndThenForAByteEachCluster) {
  ASSERT_TRUE(Get());
  std::vector<std::string> arguments;
  for (const simulator::Call& call : machine_.calls().calls()) arguments.push_back(call.arguments);
  ASSERT_EQ(arguments.size(), 2U);
  EXPECT_TRUE(arguments[0].ends_with(" in 16 out 24")) << arguments[0];
  EXPECT_TRUE(arguments[1].ends_with(" in 16 out " + std::to_string(total_ + 24))) << arguments[1];
}

TEST_F(GetClusterLocationTest, FirstCallThatFailsLeavesTheList) {
  runs_ = {{7, 1}};
  machine_.calls().FailOn(kGetBitmap, 1, 1117);
  EXPECT_FALSE(Get());
  EXPECT_EQ(log_, (Log{{3, "GET VOLUME BITMAP Error! error_code: 1117"}}));
  EXPECT_EQ(runs_, (Runs{{7, 1}}));
  EXPECT_EQ(total_, 7U);
  EXPECT_EQ(machine_.calls().Count(kGetBitmap), 1U);
}

TEST_F(GetClusterLocationTest, SecondCallThatFailsLeavesTheList) {
  runs_ = {{7, 1}};
  machine_.calls().FailOn(kGetBitmap, 2, ERROR_MORE_DATA);
  EXPECT_FALSE(Get());
  EXPECT_EQ(log_, (Log{{3, "GET VOLUME BITMAP Error! error_code: 234"}}));
  EXPECT_EQ(runs_, (Runs{{7, 1}}));
  // Known since the first call.
  const std::uint64_t total = total_;
  EXPECT_TRUE(Get());
  EXPECT_EQ(total_, total);
}

}  // namespace
}  // namespace velkora
