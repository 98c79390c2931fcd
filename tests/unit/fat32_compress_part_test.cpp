// The branch of CompressPart for FAT32 volumes.
#include <cstring>

#include "fat32_mounted_volume_fixture.h"
#include "frame/velkora.h"
#include "simulator/disk.h"
#include "simulator/volume.h"

namespace testing_support {
namespace {

class CompressFat32Part : public Fat32MountedVolume {
 protected:
  CompressFat32Part() {
    volume_.offset = kStart;
    volume_.filesystem = VolumeFileSystem::kFat32;
    volume_.cluster_size = 512;
    std::strncpy(volume_.volume_id, Path().c_str(), sizeof(volume_.volume_id) - 1);
    std::strncpy(record_.id, disk_.path().c_str(), sizeof(record_.id) - 1);
    record_.volume_count = 1;
    record_.volumes[0] = &volume_;
    converter_.disk_info = &record_;
    converter_.callback = RecordEvent;
    machine_.calls().Clear();
  }

  bool Compress() { return converter_.CompressPart(kStart, 1); }

  VolumeInfo volume_{};
  DiskInfo record_{};
  velkora::Velkora converter_;
};

TEST_F(CompressFat32Part, ShrinksTheVolumeByItsPartitionNumber) {
  EXPECT_TRUE(Compress());
  EXPECT_EQ(Events(), (std::vector<Event>{{0, 5}}));
  EXPECT_EQ(log_, (Log{{1, "CompressPart Begin..."},
                       {1, "Compress Fat32 Partition..."},
                       {1, "DISKPART_Rescan Begin..."},
                       {1, "DISKPART_Rescan Success!"},
                       {1, "Compress Fat32 Partition End!"}}));
  EXPECT_EQ(machine_.FindVolumeAt(1, kStart)->extents.front().length, (kSectors - 2048) * 512);
  EXPECT_EQ(machine_.handles().Open(), Texts{});
}

TEST_F(CompressFat32Part, PartitionIsNotFoundByTheNumberOfTheDisk) {
  constexpr std::uint64_t kOther = 43 * 2048 * 512;
  WriteMbr(disk_, {{7, 43 * 2048, 10 * 2048}, {12, 2048, kSectors}});
  machine_.UpdateProperties(disk_);
  ASSERT_EQ(Path(), volume_.volume_id);
  EXPECT_TRUE(Compress());
  EXPECT_EQ(machine_.FindVolumeAt(1, kStart)->extents.front().length, (kSectors - 2048) * 512);
  EXPECT_EQ(machine_.FindVolumeAt(1, kOther)->extents.front().length, 10 * kMib);
}

TEST_F(CompressFat32Part, VolumeThatCannotBeOpenedForItsNumberEndsItWithoutAMessageOfItsOwn) {
  machine_.calls().FailOn("CreateFileA", 1, 32);
  EXPECT_FALSE(Compress());
  EXPECT_EQ(log_, (Log{{1, "CompressPart Begin..."},
                       {3, "open device failed, device_id: " + Path() + ", error_code: 32"}}));
}

TEST_F(CompressFat32Part, NumberThatCannotBeAskedEndsItWithoutAMessageOfItsOwn) {
  machine_.calls().FailOn("DeviceIoControl/IOCTL_STORAGE_GET_DEVICE_NUMBER", 1, 1117);
  EXPECT_FALSE(Compress());
  EXPECT_EQ(log_, (Log{{1, "CompressPart Begin..."},
                       {3, "DeviceIoControl with IOCTL_STORAGE_GET_DEVICE_NUMBER error 1117"}}));
  EXPECT_EQ(machine_.handles().Open(), Texts{});
}

TEST_F(CompressFat32Part, FailedShrinkIsLoggedBehindTheLinesOfItsStep) {
  machine_.calls().FailOn("DeviceIoControl/FSCTL_DISMOUNT_VOLUME", 1, 1117);
  EXPECT_FALSE(Compress());
  EXPECT_EQ(Lines(3),
            (Texts{"Volume Dismount Error! error_code: 1117", "Compress fat32 part fail!"}));
}

TEST_F(CompressFat32Part, FullVolumeHasNoOtherMessage) {
  Add("\\filler", TotalClusters() - 1);
  EXPECT_FALSE(Compress());
  EXPECT_EQ(Lines(3), Texts{"Compress fat32 part fail!"});
}

TEST_F(CompressFat32Part, FreeClustersAmongTheFirstEightAreNoRoom) {
  Add("\\low", 3);
  Add("\\filler", TotalClusters() - 4);
  ASSERT_LT(Chain("\\low").back(), 10U);
  Remove("\\low");
  EXPECT_FALSE(Compress());
  EXPECT_EQ(Lines(3), Texts{"Compress fat32 part fail!"});
  EXPECT_EQ(machine_.calls().Count("FindFirstFileW"), 0U);
}

// By the record a cluster has 2 MiB, so that one MiB is none: the file behind the new end stays.
TEST_F(CompressFat32Part, ClusterSizeIsTheRecordsAndNotTheBootSectors) {
  FillUpTo(TotalClusters() - 100);
  Add("\\high", 50, 'h');
  Remove("\\filler");
  volume_.cluster_size = 2 * kMib;
  EXPECT_TRUE(Compress());
  EXPECT_EQ(machine_.calls().Count("DeviceIoControl/FSCTL_MOVE_FILE"), 0U);
}

}  // namespace
}  // namespace testing_support
