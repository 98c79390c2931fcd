// FAT32 volumes of ours, judged by fsck.fat and filled by mtools; and volumes that other tools
// made, recognised by the probe.
#include <algorithm>
#include <gtest/gtest.h>
#include <ostream>
#include <string>
#include <vector>

#include "simulator/storage/fat32_format.h"
#include "simulator/storage/file_system_probe.h"
#include "simulator/storage_disk.h"
#include "support/temp_folder.h"
#include "support/tools/run_tool.h"

namespace simulator::storage_testing {
namespace {

using testing_support::RunTool;
using testing_support::ToolResult;

void ExpectSuccess(const ToolResult& result) {
  EXPECT_EQ(result.exit_status, 0) << result.output;
}

struct VolumeCase {
  std::uint64_t disk_size;
  std::uint64_t offset;
  std::uint64_t length;
};

void PrintTo(const VolumeCase& volume, std::ostream* out) {
  *out << volume.length << " bytes at " << volume.offset;
}

class FormattedVolume : public ::testing::TestWithParam<VolumeCase> {
 protected:
  void SetUp() override {
    const auto hidden = static_cast<std::uint32_t>(GetParam().offset / 512);
    ASSERT_EQ(FormatFat32(disk_.device(), {GetParam().offset, GetParam().length, hidden, 0xABCD}),
              ERROR_SUCCESS);
  }

  // The volume as mtools name it.
  std::string Volume() const {
    return disk_.image().string() + "@@" + std::to_string(GetParam().offset);
  }

  // fsck.fat knows no offsets, so it is given a copy of the volume. Its answer to a sound volume is
  // a line with its version and one with the number of files.
  void ExpectClean(const std::string& files) {
    const auto copy = folder_.path() / "volume.img";
    CreateSparseImage(copy, GetParam().length);
    BlockDevice volume(copy);
    std::vector<std::byte> piece(kMiB);
    const std::vector<std::byte> zeros(kMiB);
    for (std::uint64_t done = 0; done < GetParam().length; done += kMiB) {
      ASSERT_TRUE(disk_.device().Read(GetParam().offset + done, piece));
      ASSERT_TRUE(piece == zeros || volume.Write(done, piece));
    }
    const ToolResult checked = RunTool({"fsck.fat", "-n", copy.string()});
    ExpectSuccess(checked);
    EXPECT_EQ(std::count(checked.output.begin(), checked.output.end(), '\n'), 2) << checked.output;
    EXPECT_NE(checked.output.find(": " + files + " files, "), std::string::npos) << checked.output;
  }

  StorageDisk disk_{GetParam().disk_size};
  testing_support::TempFolder folder_;
};

TEST_P(FormattedVolume, HasNothingForFsckToComplainOf) {
  ExpectClean("0");
}

TEST_P(FormattedVolume, TakesFilesUntilEveryClusterIsFull) {
  const FileSystemInfo info = ProbeFileSystem(disk_.device(), GetParam().offset);
  std::vector<std::byte> boot_bytes(512);
  ASSERT_TRUE(disk_.device().Read(GetParam().offset, boot_bytes));
  const auto boot = Load<Fat32BootSector>(boot_bytes);
  const std::uint64_t metadata = boot.reserved_sectors + 2 * std::uint64_t{boot.fat_sectors};
  const std::uint64_t clusters = (info.total_sectors - metadata) / boot.sectors_per_cluster;
  // The root directory has one cluster, the folder another.
  const auto big = folder_.path() / "big.bin";
  CreateSparseImage(big, (clusters - 2) * info.cluster_size);
  const auto tiny = folder_.path() / "tiny.bin";
  CreateSparseImage(tiny, 1);
  ExpectSuccess(RunTool({"mmd", "-i", Volume(), "::/folder"}));
  ExpectSuccess(RunTool({"mcopy", "-i", Volume(), big.string(), "::/folder/big.bin"}));
  ExpectClean("2");
  EXPECT_NE(RunTool({"mcopy", "-i", Volume(), tiny.string(), "::/tiny.bin"}).exit_status, 0);
}

INSTANTIATE_TEST_SUITE_P(Sizes, FormattedVolume,
                         ::testing::Values(VolumeCase{40 * kMiB, 0, 40 * kMiB},
                                           VolumeCase{400 * kMiB, 63 * 512, 300 * kMiB},
                                           VolumeCase{302 * kMiB, kMiB, 300 * kMiB}));

// ---- Volumes of other tools ---------------------------------------------------------------------

struct MakerCase {
  std::vector<std::string> maker;  // the image's path is added
  FileSystem kind;
  std::uint32_t cluster_size;
};

void PrintTo(const MakerCase& maker, std::ostream* out) {
  for (const std::string& word : maker.maker) *out << word << " ";
}

class ForeignVolume : public ::testing::TestWithParam<MakerCase> {};

TEST_P(ForeignVolume, IsRecognised) {
  StorageDisk disk(64 * kMiB);
  std::vector<std::string> argv = GetParam().maker;
  argv.push_back(disk.image().string());
  ExpectSuccess(RunTool(argv));
  const FileSystemInfo info = ProbeFileSystem(disk.device(), 0);
  EXPECT_EQ(FileSystemName(info.kind), FileSystemName(GetParam().kind));
  EXPECT_EQ(info.cluster_size, GetParam().cluster_size);
}

INSTANTIATE_TEST_SUITE_P(
    Makers, ForeignVolume,
    ::testing::Values(
        MakerCase{{"mkfs.fat", "-F12", "-s64"}, FileSystem::kFat12, 32768},
        MakerCase{{"mkfs.fat", "-F16", "-s4"}, FileSystem::kFat16, 2048},
        MakerCase{{"mkfs.fat", "-F32", "-s1"}, FileSystem::kFat32, 512},
        MakerCase{{"mkntfs", "-F", "-Q", "-q", "-c", "4096"}, FileSystem::kNtfs, 4096},
        MakerCase{{"mkntfs", "-F", "-Q", "-q", "-c", "262144"}, FileSystem::kNtfs, 262144},
        MakerCase{{"mke2fs", "-q", "-F", "-t", "ext2", "-b", "1024"}, FileSystem::kExt2, 1024},
        MakerCase{{"mke2fs", "-q", "-F", "-t", "ext3", "-b", "4096"}, FileSystem::kExt3, 4096},
        MakerCase{{"mke2fs", "-q", "-F", "-t", "ext4", "-b", "4096"}, FileSystem::kExt4, 4096}));

}  // namespace
}  // namespace simulator::storage_testing
