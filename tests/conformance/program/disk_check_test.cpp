#include "conformance/program/disk_check.h"

#include <filesystem>
#include <fstream>

#include "simulator/disk.h"
#include "simulator/volume.h"
#include "support/machine_fixture.h"

namespace conformance {
namespace {

using simulator::Disk;
using testing_support::WriteGpt;
using testing_support::WriteMbr;

constexpr std::uint64_t kMiB = 1 << 20;
constexpr char kBootable[] =
    "it has a partition that a machine starts from, an active or an EFI system one; if the disk is "
    "to spare, clean it with diskpart first";

// Windows is on C:, the only volume of disk 0; D: is on disk 1.
class ReasonToKeepTest : public ::testing::Test {
 protected:
  ReasonToKeepTest() {
    MakeMbr(Attach(0, 256 * kMiB));
    MakeMbr(Attach(1, 256 * kMiB));
    machine_.MakeCurrent();
  }
  Disk& Attach(std::uint32_t number, std::uint64_t size, std::uint32_t sector_size = 512) {
    const std::filesystem::path image = folder_.path() / std::to_string(number);
    std::ofstream(image).close();
    std::filesystem::resize_file(image, size);
    return machine_.AttachDisk(number, image, sector_size);
  }
  void MakeMbr(Disk& disk, bool active = false, std::uint8_t type = 7) {
    constexpr std::uint32_t kSignature = 0x1A2B3C00;  // another one for each disk
    WriteMbr(disk, {{.type = type, .first_sector = 2048, .sector_count = 2048, .active = active}},
             {}, 2048, kSignature + disk.number());
    machine_.UpdateProperties(disk);
  }

  testing_support::TempFolder folder_;
  simulator::SimulatedMachine machine_;
};

TEST_F(ReasonToKeepTest, EmptyDiskAndDiskWithDataMayBeWiped) {
  Attach(2, 256 * kMiB);
  EXPECT_EQ(ReasonToKeep(2, {"C:\\temp"}), "");
  EXPECT_EQ(ReasonToKeep(1, {"C:\\temp"}), "");
}

TEST_F(ReasonToKeepTest, DiskOfWindowsStays) {
  EXPECT_EQ(ReasonToKeep(0, {}), "it holds Windows");
}

TEST_F(ReasonToKeepTest, DiskStaysWhenWindowsIsNotFound) {
  machine_.RemoveLetter('C');
  EXPECT_EQ(ReasonToKeep(1, {}), "it cannot be told which disk holds Windows");
}

TEST_F(ReasonToKeepTest, DiskOfAVolumeThatWindowsIsSpreadOverStays) {
  simulator::Volume spanned;
  spanned.path = "\\\\?\\Volume{00000000-0000-4000-8000-000000000001}";
  spanned.extents = {{0, 8 * kMiB, kMiB}, {2, 8 * kMiB, kMiB}};
  Attach(2, 256 * kMiB);
  machine_.RemoveLetter('C');
  machine_.AddVolume(spanned);  // C: again, the first free letter
  ASSERT_EQ(machine_.LettersOf(*machine_.FindVolumeByPath(spanned.path)), "C");
  EXPECT_EQ(ReasonToKeep(2, {}), "it holds Windows");
  EXPECT_EQ(ReasonToKeep(1, {}), "");
}

TEST_F(ReasonToKeepTest, DiskOfAPathInUseStays) {
  EXPECT_EQ(ReasonToKeep(1, {"C:\\temp", "d:\\program.exe"}),
            "it holds d:\\program.exe, which is in use");
  EXPECT_EQ(ReasonToKeep(1, {"\\\\server\\share\\program.exe", "Z:\\temp", ""}), "");
}

TEST_F(ReasonToKeepTest, DiskThatIsNotThereIsNamed) {
  EXPECT_EQ(ReasonToKeep(9, {}), "there is no such disk");
}

TEST_F(ReasonToKeepTest, DiskThatMayNotBeOpenedAsksForAnAdministrator) {
  machine_.calls().FailOn("CreateFileA", 1, ERROR_ACCESS_DENIED);
  EXPECT_EQ(ReasonToKeep(1, {}), "it may not be opened; run this as an administrator");
}

TEST_F(ReasonToKeepTest, SmallDiskStays) {
  Attach(2, 256 * kMiB - 512);
  EXPECT_EQ(ReasonToKeep(2, {}), "it has 255 MiB and not 256");
}

TEST_F(ReasonToKeepTest, DiskOfLargeSectorsStays) {
  Attach(2, 256 * kMiB, 4096);
  EXPECT_EQ(ReasonToKeep(2, {}), "its sectors have 4096 bytes and not 512");
}

TEST_F(ReasonToKeepTest, DiskThatAMachineStartsFromStays) {
  MakeMbr(Attach(2, 256 * kMiB), true);
  EXPECT_EQ(ReasonToKeep(2, {}), kBootable);
  MakeMbr(Attach(3, 256 * kMiB), false, 0xEF);
  EXPECT_EQ(ReasonToKeep(3, {}), kBootable);
  Disk& gpt = Attach(4, 256 * kMiB);
  WriteGpt(gpt, {{.type = testing_support::kEfiSystemGuid,
                  .first_sector = 2048,
                  .last_sector = 4095,
                  .unique = 1}});
  machine_.UpdateProperties(gpt);
  EXPECT_EQ(ReasonToKeep(4, {}), kBootable);
}

TEST_F(ReasonToKeepTest, DiskWithADamagedTableStays) {
  Disk& disk = Attach(2, 256 * kMiB);
  WriteGpt(disk, {});
  testing_support::WriteSector(disk, 1, {});
  testing_support::WriteSector(disk, 256 * kMiB / 512 - 1, {});
  machine_.UpdateProperties(disk);
  EXPECT_EQ(ReasonToKeep(2, {}),
            "its partition table cannot be read; clean it with diskpart first");
}

}  // namespace
}  // namespace conformance
