// Writing blocks back: what is written, what is dismounted, what a failure does.
#include "backup/restore.h"

#include <gtest/gtest.h>
#include <string>

#include "platform/guard.h"
#include "platform/win32.h"
#include "simulator/disk.h"
#include "support/backup_disk_fixture.h"

namespace velkora {
namespace {

using namespace testing_support;

constexpr char kCount1[] = "1 [BackupRestore] DoRestore backup storage block count=1";
constexpr char kFirstVolume[] = "\\\\?\\Volume{01010101-0101-0101-0101-010101010101}";
constexpr char kSecondVolume[] = "\\\\?\\Volume{02020202-0202-0202-0202-020202020202}";

class Restore : public BackupDiskTest {
 protected:
  // Two mounted volumes that touch: MiB 1 to 5 and 5 to 9.
  void PutTwoVolumes() {
    WriteGpt(disk_, {{kBasicDataGuid, 2048, 10239, 1}, {kBasicDataGuid, 10240, 18431, 2}});
    WriteNtfsBootSector(disk_, 2048, 8192);
    WriteNtfsBootSector(disk_, 10240, 8192);
    Settle();
  }
  std::int32_t Run(const BlockMap& blocks, const char* device = kDevice) {
    BackupStorage* storage = nullptr;
    FillBackupStorage(&storage, device, blocks);
    return RestoreDiskPartitionFromStorage(storage);
  }
  std::size_t Count(const char* pattern) { return machine_.calls().Count(pattern); }
};

TEST_F(Restore, BlocksGoBackToTheirPlaces) {
  const BlockMap blocks = {{0, Filled(512, 1)}, {4096, Filled(2048, 2)}, {kMiB, Filled(512, 3)}};
  EXPECT_EQ(Run(blocks), 0);
  ExpectBytesOfDisk(blocks);
  EXPECT_EQ(ReadBytes(disk_, 512, 512), Filled(512, 0));
  EXPECT_EQ(Count("WriteFile"), 3U) << "one for each block";
  EXPECT_EQ(AllLines(), (Texts{"1 [BackupRestore] DoRestore backup storage block count=3"}));
  EXPECT_TRUE(machine_.handles().Open().empty());
}

TEST_F(Restore, TheStepsStandInThisOrder) {
  PutTwoVolumes();
  EXPECT_EQ(Run({{kMiB, Filled(512, 1)}}), 0);
  EXPECT_EQ(machine_.calls().Lines(),
            (Texts{"CreateFileA/\\\\.\\PhysicalDrive1 access 0xc0000000 share 0x3 disposition 3 "
                   "flags 0xb0000000",
                   "DeviceIoControl/IOCTL_DISK_GET_DRIVE_LAYOUT_EX disk 1 in 0 out 14592",
                   std::string("CreateFileA/") + kFirstVolume +
                       " access 0x80000000 share 0x3 disposition 3 flags 0x0",
                   std::string("DeviceIoControl/FSCTL_DISMOUNT_VOLUME volume ") + kFirstVolume +
                       " in 0 out 0",
                   "SetFilePointerEx/disk 1 distance 1048576 method 0",
                   "WriteFile/disk 1 offset 1048576 length 512",
                   std::string("CloseHandle/volume ") + kFirstVolume,
                   "DeviceIoControl/IOCTL_DISK_UPDATE_PROPERTIES disk 1 in 0 out 0",
                   "CloseHandle/disk 1"}));
  EXPECT_EQ(ReadBytes(disk_, kMiB, 512), Filled(512, 1));
}

TEST_F(Restore, TheSystemSeesTheTableThatCameBack) {
  PutTwoVolumes();
  const ByteList header = ReadBytes(disk_, 512, 512);
  const ByteList array = ReadBytes(disk_, 1024, 16384);
  WriteGpt(disk_, {});
  Settle();
  ASSERT_EQ(machine_.FindVolumeAt(1, kMiB), nullptr);
  EXPECT_EQ(Run({{512, header}, {1024, array}}), 0);
  EXPECT_NE(machine_.FindVolumeAt(1, kMiB), nullptr);
}

TEST_F(Restore, AnEmptyTableHasNothingToDismount) {
  WriteGpt(disk_, {});
  Settle();
  const BlockMap blocks = {{kMiB, Filled(512, 1)}, {2 * kMiB, Filled(512, 2)}};
  EXPECT_EQ(Run(blocks), 0);
  ExpectBytesOfDisk(blocks);
  EXPECT_EQ(Count("CreateFileA"), 1U);
  EXPECT_TRUE(Dismounted().empty());
}

TEST_F(Restore, UnusedRowsOfAnMbrOverlapNothing) {
  WriteMbr(disk_, {});
  Settle();
  EXPECT_EQ(Run({{0, Filled(512, 0)}}), 0);
  EXPECT_TRUE(Dismounted().empty());
  EXPECT_EQ(Count("CreateFileA"), 1U);
}

// ---- Volumes ------------------------------------------------------------------------------------

TEST_F(Restore, ABlockAcrossTwoVolumesDismountsTheFirstAlone) {
  PutTwoVolumes();
  EXPECT_EQ(Run({{5 * kMiB - 512, Filled(1024, 1)}}), 0);
  EXPECT_EQ(Dismounted(), (Texts{std::string("volume ") + kFirstVolume}));
  EXPECT_EQ(Lines(3), (Texts{"[BackupRestore] Restore offset 0x4ffe00 failed! write 1024 bytes, "
                             "ret=0, error=5"}))
      << "the other one is still mounted";
}

TEST_F(Restore, ALaterBlockDismountsTheSecond) {
  PutTwoVolumes();
  EXPECT_EQ(Run({{5 * kMiB - 512, Filled(1024, 1)}, {5 * kMiB - 1024, Filled(1536, 2)}}), 0);
  EXPECT_EQ(Dismounted(),
            (Texts{std::string("volume ") + kFirstVolume, std::string("volume ") + kSecondVolume}));
  EXPECT_EQ(Lines(3).size(), 1U) << "the first of the two writes came too early";
}

TEST_F(Restore, AVolumeIsDismountedOnce) {
  PutTwoVolumes();
  const BlockMap blocks = {
      {kMiB, Filled(512, 1)}, {2 * kMiB, Filled(512, 2)}, {3 * kMiB, Filled(512, 3)}};
  EXPECT_EQ(Run(blocks), 0);
  EXPECT_EQ(Dismounted().size(), 1U);
  ExpectBytesOfDisk(blocks);
  EXPECT_TRUE(Lines(3).empty());
}

TEST_F(Restore, ABlockThatTouchesAPartitionDoesNotOverlapIt) {
  PutTwoVolumes();
  EXPECT_EQ(Run({{kMiB - 512, Filled(512, 1)}, {9 * kMiB, Filled(512, 2)}}), 0);
  EXPECT_TRUE(Dismounted().empty());
}

TEST_F(Restore, ABlockThatReachesOneSectorInOverlaps) {
  PutTwoVolumes();
  EXPECT_EQ(Run({{kMiB - 512, Filled(1024, 1)}, {9 * kMiB - 512, Filled(1024, 2)}}), 0);
  EXPECT_EQ(Dismounted().size(), 2U);
  EXPECT_TRUE(Lines(3).empty());
}

TEST_F(Restore, AnEmptyBlockInsideAVolumeDismountsItAndWritesNothing) {
  PutTwoVolumes();
  const std::uint64_t written = disk_.device().bytes_written();
  EXPECT_EQ(Run({{2 * kMiB, {}}}), 0);
  EXPECT_EQ(Dismounted(), (Texts{std::string("volume ") + kFirstVolume}));
  EXPECT_EQ(disk_.device().bytes_written(), written);
  EXPECT_EQ(AllLines(), (Texts{kCount1}));
}

// Its end is the partition's start.
TEST_F(Restore, AnEmptyBlockAtAVolumesStartDoesNotOverlapIt) {
  PutTwoVolumes();
  EXPECT_EQ(Run({{kMiB, {}}}), 0);
  EXPECT_TRUE(Dismounted().empty());
}

TEST_F(Restore, AVolumeThatCannotBeOpenedIsLoggedAndTheWriteTried) {
  PutTwoVolumes();
  machine_.calls().FailOn(std::string("CreateFileA/") + kFirstVolume, 1, 2);
  EXPECT_EQ(Run({{2 * kMiB, Filled(512, 1)}}), 0);
  EXPECT_EQ(AllLines(),
            (Texts{kCount1,
                   std::string("1 [BackupRestore] Restore dismount volume ") + kFirstVolume +
                       " failed. error=6",
                   "3 [BackupRestore] Restore offset 0x200000 failed! write 512 bytes, ret=0, "
                   "error=5"}));
  EXPECT_EQ(Count("CloseHandle"), 2U) << "the handle that is none is closed like the others";
}

TEST_F(Restore, AFailedDismountIsLoggedAndTheVolumeNotTriedAgain) {
  PutTwoVolumes();
  machine_.calls().FailOn("DeviceIoControl/FSCTL_DISMOUNT_VOLUME", 1, 5);
  EXPECT_EQ(Run({{2 * kMiB, Filled(512, 1)}, {3 * kMiB, Filled(512, 1)}}), 0);
  EXPECT_EQ(Dismounted().size(), 1U);
  EXPECT_EQ(Lines(1).back(), std::string("[BackupRestore] Restore dismount volume ") +
                                 kFirstVolume + " failed. error=5");
  EXPECT_EQ(Lines(3).size(), 2U);
  EXPECT_TRUE(machine_.handles().Open().empty());
}

// ---- Writes -------------------------------------------------------------------------------------

TEST_F(Restore, AFailedWriteHoldsNothingUp) {
  machine_.calls().FailOn("WriteFile", 2, 1117);
  const BlockMap blocks = {{0, Filled(512, 1)}, {512, Filled(512, 1)}, {1024, Filled(512, 1)}};
  EXPECT_EQ(Run(blocks), 0);
  EXPECT_EQ(Count("WriteFile"), 3U);
  ASSERT_EQ(Lines(3).size(), 1U);
  EXPECT_TRUE(Lines(3)[0].ends_with(" failed! write 512 bytes, ret=0, error=1117")) << Lines(3)[0];
  std::size_t restored = 0;
  for (const auto& [offset, bytes] : blocks) restored += ReadBytes(disk_, offset, 512) == bytes;
  EXPECT_EQ(restored, 2U);
}

TEST_F(Restore, APlaceThatIsNotReachedIsNotWritten) {
  machine_.calls().FailOn("SetFilePointerEx", 1, 131);
  EXPECT_EQ(Run({{kMiB, Filled(512, 1)}}), 0);
  EXPECT_EQ(Count("WriteFile"), 0U);
  EXPECT_EQ(Lines(3), (Texts{"[BackupRestore] Restore offset 0x100000 failed! write 512 bytes, "
                             "ret=0, error=131"}));
}

TEST_F(Restore, ABlockBehindTheDisksEndIsLoggedWithTheLow32BitsOfItsPlace) {
  const std::uint64_t beyond = (std::uint64_t{5} << 32) + 0x1200;
  EXPECT_EQ(Run({{beyond, Filled(512, 1)}}), 0);
  EXPECT_EQ(Lines(3), (Texts{"[BackupRestore] Restore offset 0x1200 failed! write 512 bytes, "
                             "ret=0, error=27"}));
}

// As an alternate header of sector 0 makes it.
TEST_F(Restore, ABlockAtTheEndOfTheNumbersIsLogged) {
  EXPECT_EQ(Run({{std::uint64_t{0} - 16384, Filled(16384, 1)}}), 0);
  EXPECT_EQ(Lines(3).size(), 1U);
  EXPECT_EQ(Count("WriteFile"), 0U);
}

// In front of the write, with the volume dismounted.
TEST_F(Restore, ACrashAbandonsDiskVolumeAndBackup) {
  PutTwoVolumes();
  BackupStorage* storage = nullptr;
  FillBackupStorage(&storage, kDevice, {{kMiB, Filled(512, 1)}});
  machine_.calls().on_call = [](std::size_t number) {
    if (number == 6) win32::RaiseFault(EXCEPTION_ACCESS_VIOLATION);
  };
  EXPECT_EQ(RestoreDiskPartitionFromStorage(storage), -18);
  machine_.calls().on_call = nullptr;
  EXPECT_EQ(Lines(3), (Texts{"[BackupRestore] [E] RestoreDiskPartitionFromStorage crash!"}));
  EXPECT_EQ(machine_.handles().Open(), (Texts{"disk 1", std::string("volume ") + kFirstVolume}));
  EXPECT_EQ(ReleaseBackupData(storage), 0);
}

}  // namespace
}  // namespace velkora
