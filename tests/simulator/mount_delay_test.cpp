// Volumes that need a while to be mounted after their disk's layout has changed, as diskpart sees
// them; and the EFI system partition that diskpart makes, formats and gives a letter.
#include <gtest/gtest.h>

#include "simulator/diskpart_fixture.h"
#include "simulator/memory_files.h"
#include "simulator/storage/block_device.h"
#include "simulator/storage/partition_store.h"
#include "simulator/volume_files.h"

namespace testing_support {
namespace {

using simulator::Disk;
using simulator::DiskLayout;

class MountDelay : public DiskpartTest {
 protected:
  DWORD Detail(std::string_view partition = "select part 1") {
    return RunOnDisk({partition, "detail volume"});
  }
  void ChangeLayout(Disk& disk) {
    DiskLayout layout = LayoutOf(disk);
    ASSERT_EQ(machine_.SetLayout(disk, layout), ERROR_SUCCESS);
  }
};

TEST_F(MountDelay, IsNotThereUnlessAskedFor) {
  MakeMbr(AttachDisk(64 * kMiB));
  EXPECT_EQ(Detail(), 0U);
}

TEST_F(MountDelay, ThatManyRunsFailBeforeTheFirstSuccess) {
  machine_.mount_delay_runs = 2;
  MakeMbr(AttachDisk(64 * kMiB));
  EXPECT_EQ(Detail(), kObjectNotFound);
  EXPECT_EQ(Detail("select part 2"), kObjectNotFound);
  EXPECT_EQ(Detail(), 0U);
  EXPECT_EQ(Detail(), 0U);
}

TEST_F(MountDelay, OnlyRunsThatGetAsFarAsTheVolumeCount) {
  machine_.mount_delay_runs = 1;
  MakeMbr(AttachDisk(64 * kMiB));
  EXPECT_EQ(Detail("select part 9"), kObjectNotFound);
  EXPECT_EQ(Run({"select disk 1", "list part", "rescan"}), 0U);
  EXPECT_EQ(Detail(), kObjectNotFound);
  EXPECT_EQ(Detail(), 0U);
}

TEST_F(MountDelay, EachChangeOfTheLayoutBringsItBack) {
  Disk& disk = AttachDisk(64 * kMiB);
  MakeMbr(disk);
  machine_.mount_delay_runs = 1;
  EXPECT_EQ(Detail(), 0U);
  ChangeLayout(disk);
  EXPECT_EQ(Detail(), kObjectNotFound);
  EXPECT_EQ(Detail(), 0U);
  ChangeLayout(disk);
  EXPECT_EQ(Detail(), kObjectNotFound);
}

TEST_F(MountDelay, ARefusedLayoutChangesNothing) {
  Disk& disk = AttachDisk(64 * kMiB);
  MakeMbr(disk);
  machine_.mount_delay_runs = 1;
  DiskLayout layout = LayoutOf(disk);
  layout.rows.pop_back();
  layout.header.PartitionCount -= 1;
  ASSERT_EQ(machine_.SetLayout(disk, layout), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(Detail(), 0U);
}

TEST_F(MountDelay, OfOneDiskLeavesTheOthersAlone) {
  machine_.mount_delay_runs = 3;
  MakeMbr(AttachDisk(64 * kMiB));
  const auto image = folder_.path() / "second.img";
  simulator::CreateSparseImage(image, 64 * kMiB);
  Disk& second = machine_.AttachDisk(2, image);
  machine_.mount_delay_runs = 0;
  MakeMbr(second);
  EXPECT_EQ(Run({"select disk 2", "select part 1", "detail volume"}), 0U);
  EXPECT_EQ(Detail(), kObjectNotFound);
}

TEST_F(MountDelay, DoesNotKeepTheOtherVerbsFromTheVolume) {
  MakeGpt(AttachDisk(512 * kMiB), {});
  machine_.mount_delay_runs = 1;
  EXPECT_EQ(
      RunOnDisk({"create part efi size=100", "format fs=fat32 quick override", "assign letter=S"}),
      0U);
}

TEST_F(MountDelay, AnEfiSystemPartitionTakesAFormatALetterAndFiles) {
  MakeGpt(AttachDisk(512 * kMiB), {});
  ASSERT_EQ(RunOnDisk({"create part efi size=100"}), 0U);
  EXPECT_EQ(machine_.LettersOf(*machine_.FindVolumeAt(1, kMiB)), "");
  simulator::VolumeFiles files(machine_);
  ASSERT_EQ(RunOnDisk({"select part 1", "assign letter=S"}), 0U);
  EXPECT_NE(files.Write("S:\\file", ""), ERROR_SUCCESS);
  ASSERT_EQ(RunOnDisk({"select part 1", "format fs=fat32 quick override"}), 0U);
  EXPECT_EQ(files.Write("S:\\EFI\\file", "text"), ERROR_SUCCESS);
  EXPECT_TRUE(files.Exists("S:\\EFI\\file"));
  ASSERT_EQ(RunOnDisk({"select part 1", "format fs=fat32 quick override"}), 0U);
  EXPECT_FALSE(files.Exists("S:\\EFI"));
}

TEST_F(MountDelay, AFormatForgetsTheFilesBesideTheImage) {
  Disk& disk = AttachDisk(512 * kMiB);
  MakeGpt(disk, {{kMiB, 100 * kMiB}});
  ASSERT_EQ(machine_.memory_files(1, kMiB).Write("\\file", "old"), ERROR_SUCCESS);
  ASSERT_EQ(RunOnDisk({"select part 1", "format fs=fat32 quick override"}), 0U);
  EXPECT_FALSE(machine_.memory_files(1, kMiB).Exists("\\file"));
}

}  // namespace
}  // namespace testing_support
