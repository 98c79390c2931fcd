// diskpart's `shrink` and chkdsk on real NTFS volumes, called as the library calls them and judged
// by the tools of ntfs-3g and sfdisk.
#include <fstream>
#include <map>

#include "shrink/ntfs_diskpart_shrink.h"
#include "simulator/commands/chkdsk.h"
#include "simulator/tools/sfdisk_table.h"
#include "simulator/volume.h"
#include "support/machine_fixture.h"
#include "support/tools/run_tool.h"

namespace testing_support {
namespace {

constexpr std::uint64_t kOffset = 16 * kMiB;
constexpr std::uint64_t kLength = 100 * kMiB;

std::string RunOrFail(const std::vector<std::string>& argv, std::string_view input = {}) {
  const ToolResult result = RunTool(argv, input);
  EXPECT_EQ(result.exit_status, 0) << argv.front() << ": " << result.output;
  return result.output;
}

// A disk of 192 MiB with partitions of another kind in front of and behind an NTFS volume of
// 100 MiB with files, as disk 1 of the machine.
class NtfsShrinkTools : public MachineTest {
 protected:
  void MakeDisk(const std::string& label) {
    image_ = NewImage("disk.img", 192 * kMiB);
    RunOrFail({"sfdisk", "--quiet", image_.string()},
              "label: " + label +
                  "\nstart=2048, size=16384, type=L\nstart=32768, size=204800, type=" +
                  (label == "gpt" ? "EBD0A0A2-B9E5-4433-87C0-68B6B72699C7" : "7") +
                  "\nstart=286720, size=16384, type=L\n");
    RunOrFail({"truncate", "-s", std::to_string(kLength), Volume()});
    RunOrFail({"mkntfs", "--force", "--fast", "--quiet", "--partition-start", "32768", Volume()});
    files_["large.bin"] = Pattern(7 * kMiB);
    files_["small.txt"] = "a text\n";
    files_["empty.txt"] = "";
    for (int i = 0; i < 20; ++i)
      files_["file" + std::to_string(i)] = Pattern(100'000 + static_cast<std::uint64_t>(i));
    for (const auto& [name, content] : files_) {
      const auto source = folder_.path() / "source";
      std::ofstream(source, std::ios::binary) << content;
      RunOrFail({"ntfscp", "--quiet", Volume(), source.string(), name});
    }
  }

  void AttachVolume() {
    RunOrFail({"dd", "if=" + Volume(), "of=" + image_.string(), "bs=1M", "conv=notrunc,sparse",
               "seek=" + std::to_string(kOffset / kMiB)});
    machine_.AttachDisk(1, image_);
    machine_.SetLetter(1, kOffset, 'D');
    before_ = TextOf(image_);
  }

  // Bytes that no two files have alike.
  std::string Pattern(std::uint64_t length) {
    std::string bytes(length, '\0');
    for (char& byte : bytes) {
      state_ = state_ * 6364136223846793005u + 1442695040888963407u;
      byte = static_cast<char>(state_ >> 56);
    }
    return bytes;
  }

  std::string Volume() const { return (folder_.path() / "volume.img").string(); }
  void CutVolume(std::uint64_t length) {
    std::filesystem::remove(Volume());
    RunOrFail({"dd", "if=" + image_.string(), "of=" + Volume(), "bs=1M", "conv=sparse",
               "skip=" + std::to_string(kOffset / kMiB), "count=" + std::to_string(length / kMiB)});
    std::filesystem::resize_file(Volume(), length);
  }

  // The volume ends at `length`, is sound, and holds every file.
  void ExpectSoundVolume(std::uint64_t length) {
    CutVolume(length);
    RunOrFail({"ntfsfix", "--no-action", Volume()});
    const std::string info = RunOrFail({"ntfsinfo", "--mft", Volume()});
    EXPECT_NE(info.find("Volume Flags: 0x0000"), std::string::npos) << info;
    EXPECT_NE(info.find("Volume Size in Clusters: " + std::to_string(length / 4096 - 1) + "\n"),
              std::string::npos)
        << info;
    const std::string listing = RunOrFail({"ntfsls", Volume()});
    for (const auto& [name, content] : files_) {
      EXPECT_NE(listing.find(name + "\n"), std::string::npos) << listing;
      EXPECT_TRUE(RunOrFail({"ntfscat", Volume(), name}) == content) << name;
    }
  }
  void ExpectTable(std::uint64_t ntfs_length) {
    RunOrFail({"sfdisk", "--verify", image_.string()});
    const auto table = simulator::storage_testing::SfdiskList(image_);
    ASSERT_EQ(table.size(), 3U);
    EXPECT_EQ(table[0].count, 16384U);
    EXPECT_EQ(table[1].start * 512, kOffset);
    EXPECT_EQ(table[1].count * 512, ntfs_length);
    EXPECT_EQ(table[2].start, 286720U);
  }

  bool Shrink(std::uint32_t size_mib) {
    return velkora::CompressNtfsWithDiskpart(1, size_mib, machine_.FindVolumeAt(1, kOffset)->path,
                                             &error_code_, /*retry_allowed=*/true);
  }
  DWORD Chkdsk(const std::string& volume) {
    return simulator::RunChkdsk(machine_.system(), {volume, "/x"}).exit_status;
  }

  std::filesystem::path image_;
  std::map<std::string, std::string> files_;
  std::uint64_t state_ = 1;
  std::string before_;
  std::uint32_t error_code_ = 0;
};

TEST_F(NtfsShrinkTools, ShrunkVolumeIsSmallerAndKeepsItsFiles) {
  MakeDisk("dos");
  AttachVolume();
  EXPECT_TRUE(Shrink(20)) << LogsFileText("DISKPART_compress_result.log");
  EXPECT_EQ(Lines(3), std::vector<std::string>{});
  ExpectSoundVolume(80 * kMiB);
  ExpectTable(80 * kMiB);
  // Everything else stays: the other partitions, and what lies behind the volume's new end.
  const std::string after = TextOf(image_);
  EXPECT_TRUE(after.substr(512, kOffset - 512) == before_.substr(512, kOffset - 512));
  EXPECT_TRUE(after.substr(kOffset + 80 * kMiB) == before_.substr(kOffset + 80 * kMiB));
}

// The second half of the volume, with the copy of the file table in its middle, has to move.
TEST_F(NtfsShrinkTools, WhatLiesBehindTheNewEndMoves) {
  MakeDisk("dos");
  AttachVolume();
  EXPECT_TRUE(Shrink(60)) << LogsFileText("DISKPART_compress_result.log");
  ExpectSoundVolume(40 * kMiB);
  ExpectTable(40 * kMiB);
}

TEST_F(NtfsShrinkTools, VolumeKeepsItsNameItsLetterAndItsPlaceOnTheMachine) {
  MakeDisk("gpt");
  AttachVolume();
  const simulator::Volume* volume = machine_.FindVolumeAt(1, kOffset);
  const std::string path = volume->path;
  const std::uint64_t arrival = volume->arrival;
  EXPECT_TRUE(Shrink(20));
  ExpectSoundVolume(80 * kMiB);
  ExpectTable(80 * kMiB);
  volume = machine_.FindVolumeByLetter('D');
  ASSERT_NE(volume, nullptr);
  EXPECT_EQ(volume->path, path);
  EXPECT_EQ(volume->arrival, arrival);
  EXPECT_EQ(volume->extents.front().length, 80 * kMiB);
  EXPECT_TRUE(volume->mounted);
}

TEST_F(NtfsShrinkTools, SizeThatDoesNotFitChangesNothing) {
  MakeDisk("dos");
  AttachVolume();
  for (const std::uint32_t size_mib : {95U, 100U, 4'000'000'000U}) {
    error_code_ = 0;
    EXPECT_FALSE(Shrink(size_mib));
    EXPECT_EQ(error_code_, 1424U);
    EXPECT_EQ(log_.back().text, "Compress Ntfs Partition Error: Compress Size Too Big!");
  }
  EXPECT_TRUE(TextOf(image_) == before_);
}

// The builder lets the first run end so; the second one is carried out, with one MiB more.
TEST_F(NtfsShrinkTools, SizeThatIsTooSmallIsEnlargedAndShrunk) {
  MakeDisk("dos");
  AttachVolume();
  machine_.calls().FailOn("command/diskpart", 1, 0x80070057);
  EXPECT_TRUE(Shrink(20)) << LogsFileText("DISKPART_compress_result.log");
  EXPECT_EQ(LogsFileText("DISKPART_compress_cmd.log"),
            "sel disk 1\r\nsel partition 2\r\nshrink desired=21\r");
  ExpectSoundVolume(79 * kMiB);
  ExpectTable(79 * kMiB);
}

TEST_F(NtfsShrinkTools, RepairThatEndsAsTheBuilderWantsEndsTheRun) {
  MakeDisk("dos");
  RunOrFail({"ntfsfix", Volume()});  // leaves it scheduled
  AttachVolume();
  machine_.calls().FailOn("command/chkdsk", 1, 3);
  EXPECT_FALSE(Shrink(20));
  EXPECT_EQ(error_code_, 1425U);
  EXPECT_EQ(machine_.calls().Count("command/diskpart"), 1U);
  EXPECT_TRUE(TextOf(image_) == before_);
}

TEST_F(NtfsShrinkTools, VolumeThatIsScheduledForACheckIsRepairedFirst) {
  MakeDisk("dos");
  RunOrFail({"ntfsfix", Volume()});  // leaves it scheduled
  AttachVolume();
  EXPECT_TRUE(Shrink(20)) << LogsFileText("DISKPART_compress_result.log");
  EXPECT_EQ(machine_.calls().Count("command/chkdsk"), 1U);
  EXPECT_EQ(machine_.calls().Count("command/diskpart"), 2U);
  EXPECT_EQ(Lines(1).at(Lines(1).size() - 2), "CHKDSK Success!");
  EXPECT_NE(LogsFileText("CHKDSK_cmd.log").find("repaired"), std::string::npos);
  ExpectSoundVolume(80 * kMiB);
  ExpectTable(80 * kMiB);
}

TEST_F(NtfsShrinkTools, VolumeBeyondRepairEndsTheRun) {
  MakeDisk("dos");
  RunOrFail(
      {"dd", "if=/dev/zero", "of=" + Volume(), "bs=512", "seek=1", "count=204799", "conv=notrunc"});
  AttachVolume();
  EXPECT_FALSE(Shrink(20));
  EXPECT_EQ(error_code_, 1425U);
  EXPECT_EQ(log_.back().text, "Repair Part Error!");
  EXPECT_TRUE(TextOf(image_) == before_);
}

TEST_F(NtfsShrinkTools, ChkdskTellsASoundVolumeFromARepairedOne) {
  MakeDisk("dos");
  RunOrFail({"ntfsfix", Volume()});
  AttachVolume();
  const std::string path = machine_.FindVolumeAt(1, kOffset)->path;
  EXPECT_EQ(Chkdsk("D:"), 1U);
  EXPECT_EQ(Chkdsk(path), 0U);
  EXPECT_EQ(Chkdsk(path + "\\"), 0U);
  ExpectSoundVolume(kLength);
}

TEST_F(NtfsShrinkTools, ChkdskDismountsAndMountsAgain) {
  MakeDisk("dos");
  AttachVolume();
  simulator::Volume* volume = machine_.FindVolumeAt(1, kOffset);
  const std::uint32_t dismounts = volume->dismount_count;
  EXPECT_EQ(Chkdsk("D:"), 0U);
  EXPECT_EQ(volume->dismount_count, dismounts + 1);
  EXPECT_TRUE(volume->mounted);
}

}  // namespace
}  // namespace testing_support
