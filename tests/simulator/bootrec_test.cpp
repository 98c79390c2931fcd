#include "simulator/commands/bootrec.h"

#include <fstream>

#include "simulator/commands/bcd_store.h"
#include "simulator/commands/shell.h"
#include "simulator/disk.h"
#include "simulator/seam_fixture.h"
#include "simulator/volume_files.h"

namespace testing_support {
namespace {

// Disk 1, which the machine runs from: an active volume S to start from, and W with Windows.
class BootrecTest : public SeamTest {
 protected:
  BootrecTest() {
    PARTITION_INFORMATION_EX boot = MbrRow(kMegabyte, 8 * kMegabyte);
    boot.Mbr.BootIndicator = TRUE;
    disk_ =
        &AttachMbr(1, {boot, MbrRow(16 * kMegabyte, 8 * kMegabyte)}, {kMegabyte, 16 * kMegabyte});
    machine_.SetLetter(1, kMegabyte, 'S');
    machine_.SetLetter(1, 16 * kMegabyte, 'W');
    machine_.SetSystemDisk(1);
  }

  DWORD Run(const std::string& step) {
    const auto result = simulator::RunBootrec(machine_.system(), {step});
    output_ = result.output;
    return result.exit_status;
  }
  std::vector<std::byte> Sector(std::uint64_t offset) {
    std::vector<std::byte> sector(512);
    EXPECT_TRUE(disk_->device().Read(offset, sector));
    return sector;
  }
  static bool Contains(const std::vector<std::byte>& sector, std::string_view text) {
    return std::string(reinterpret_cast<const char*>(sector.data()), sector.size()).find(text) !=
           std::string::npos;
  }

  simulator::Disk* disk_ = nullptr;
  std::string output_;
};

TEST_F(BootrecTest, FixmbrPutsBootCodeIntoTheBootRecordAndKeepsItsTable) {
  const auto before = Sector(0);
  EXPECT_EQ(Run("/FixMbr"), 0U) << output_;
  const auto after = Sector(0);
  EXPECT_TRUE(Contains(after, "master boot code"));
  EXPECT_TRUE(std::equal(before.begin() + 440, before.end(), after.begin() + 440));
}

TEST_F(BootrecTest, FixbootPutsBootCodeIntoTheActivePartition) {
  EXPECT_EQ(Run("/fixboot"), 0U) << output_;
  EXPECT_TRUE(Contains(Sector(kMegabyte), "volume boot code"));
  EXPECT_FALSE(Contains(Sector(16 * kMegabyte), "volume boot code"));
}

TEST_F(BootrecTest, RebuildbcdMakesAStoreForTheWindowsThatItFinds) {
  EXPECT_EQ(Run("/rebuildbcd"), 0U) << output_;
  EXPECT_FALSE(simulator::VolumeFiles(machine_).Exists("S:\\Boot\\BCD"));  // no Windows yet
  machine_.AddFile(1, 16 * kMegabyte, "Windows\\System32\\winload.exe");
  EXPECT_EQ(Run("/rebuildbcd"), 0U) << output_;
  std::string bytes;
  ASSERT_EQ(simulator::VolumeFiles(machine_).Read("S:\\Boot\\BCD", bytes), ERROR_SUCCESS);
  const auto store = simulator::ParseBcdFile(bytes);
  ASSERT_TRUE(store.has_value());
  EXPECT_EQ(store->objects.size(), 3U);
  EXPECT_NE(bytes.find("partition=W:"), std::string::npos) << bytes;
}

TEST_F(BootrecTest, WhatItCannotWorkOnEndsWithStatusOne) {
  EXPECT_EQ(Run("/fixall"), 1U);
  EXPECT_EQ(simulator::RunBootrec(machine_.system(), {}).exit_status, 1U);
  machine_.SetSystemDisk(7);
  EXPECT_EQ(Run("/fixmbr"), 1U);
  AttachGpt(7, {GptRow(kMegabyte, 8 * kMegabyte, 1)}, {kMegabyte});  // no system partition
  EXPECT_EQ(Run("/fixboot"), 1U);
  machine_.AddFile(1, 16 * kMegabyte, "Windows\\System32\\winload.exe");
  EXPECT_EQ(Run("/rebuildbcd"), 1U);
}

TEST_F(BootrecTest, ShellRunsItByThePathOfAFileInAMappedFolder) {
  EXPECT_EQ(simulator::RunShellLine(machine_.system(), "X:\\BootRec.exe /fixmbr"), 1U);
  EXPECT_FALSE(Contains(Sector(0), "master boot code"));
  std::ofstream(folder_.path() / "BootRec.exe") << "a program";
  EXPECT_EQ(simulator::RunShellLine(machine_.system(), "X:\\BootRec.exe /fixmbr"), 0U);
  EXPECT_TRUE(Contains(Sector(0), "master boot code"));
}

}  // namespace
}  // namespace testing_support
