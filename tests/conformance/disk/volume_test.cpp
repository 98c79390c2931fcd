// Volumes of the disk: how they come and go, their names, extents, locks and dismounts.
#include "conformance/disk/disk_fixture.h"

namespace conformance {
namespace {

constexpr std::uint64_t kFirst = kSectorsPerMiB;
constexpr std::uint64_t kCount = 100 * kSectorsPerMiB;

class DiskVolume : public DiskTest {
 protected:
  // One partition without a file system; its volume.
  std::string MakeVolume(BYTE type = 7) const {
    MakeMbr({MbrRow(type, kFirst, kCount)});
    return WaitForVolume(kMiB);
  }
};

TEST_F(DiskVolume, MbrVolumeIsNamedBySignatureAndOffset) {
  EXPECT_EQ(MakeVolume(), "\\\\?\\Volume{5ea11d15-0000-0000-0000-100000000000}\\");
}

TEST_F(DiskVolume, GptVolumeIsNamedByThePartitionsIdentity) {
  MakeGpt({GptRow(kBasicDataType, 7, kFirst, kCount)});
  EXPECT_EQ(WaitForVolume(kMiB), "\\\\?\\Volume{5ea11d15-1111-4222-8300-000000000007}\\");
}

TEST_F(DiskVolume, ReservedPartitionHasNoVolume) {
  MakeGpt({GptRow(kReservedType, 1, kFirst, 16 * kSectorsPerMiB),
           GptRow(kBasicDataType, 2, 20 * kSectorsPerMiB, kCount)});
  WaitForVolume(20 * kMiB);
  EXPECT_EQ(FindVolume(kMiB), "");
}

TEST_F(DiskVolume, ExtentIsThePartition) {
  const File volume = OpenVolume(MakeVolume());
  const Answer answer =
      Ask(volume, IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS, {}, sizeof(VOLUME_DISK_EXTENTS));
  ASSERT_EQ(answer.error, DWORD{ERROR_SUCCESS});
  EXPECT_EQ(answer.bytes.size(), sizeof(VOLUME_DISK_EXTENTS));
  const auto extents = LoadAt<VOLUME_DISK_EXTENTS>(answer.bytes);
  EXPECT_EQ(extents.NumberOfDiskExtents, 1u);
  EXPECT_EQ(extents.Extents[0].DiskNumber, machine_.spare_disk());
  EXPECT_EQ(extents.Extents[0].StartingOffset.QuadPart, static_cast<LONGLONG>(kMiB));
  EXPECT_EQ(extents.Extents[0].ExtentLength.QuadPart, static_cast<LONGLONG>(100 * kMiB));
}

TEST_F(DiskVolume, ExtentsWithTooLittleRoomAreError122) {
  const File volume = OpenVolume(MakeVolume());
  EXPECT_EQ(Ask(volume, IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS, {}, 31).error,
            DWORD{ERROR_INSUFFICIENT_BUFFER});
}

TEST_F(DiskVolume, DeviceNumberHasDiskAndPartition) {
  ASSERT_EQ(CreateMbr(), DWORD{ERROR_SUCCESS});
  ASSERT_EQ(SetLayout(LayoutWithLogicals()), DWORD{ERROR_SUCCESS});
  const File volume = OpenVolume(WaitForVolume(151 * kMiB));
  const Answer answer =
      Ask(volume, IOCTL_STORAGE_GET_DEVICE_NUMBER, {}, sizeof(STORAGE_DEVICE_NUMBER));
  ASSERT_EQ(answer.error, DWORD{ERROR_SUCCESS});
  const auto number = LoadAt<STORAGE_DEVICE_NUMBER>(answer.bytes);
  EXPECT_EQ(number.DeviceType, DWORD{FILE_DEVICE_DISK});
  EXPECT_EQ(number.DeviceNumber, machine_.spare_disk());
  EXPECT_EQ(number.PartitionNumber, 3u);
  EXPECT_EQ(FindVolume(100 * kMiB), "") << "the extended partition has no volume";
}

TEST_F(DiskVolume, ReadAtTheEndGivesNothingAndAcrossItIsCut) {
  const File volume = OpenVolume(MakeFat32());
  const Answer behind = Read(volume, 100 * kMiB, kSector);
  EXPECT_EQ(behind.error, DWORD{ERROR_SUCCESS});
  EXPECT_TRUE(behind.bytes.empty());
  const Answer across = Read(volume, 100 * kMiB - kSector, 2 * kSector);
  EXPECT_EQ(across.error, DWORD{ERROR_SUCCESS});
  EXPECT_EQ(across.bytes.size(), kSector);
}

TEST_F(DiskVolume, TransferThatIsNotAlignedIsError87) {
  const File volume = OpenVolume(MakeFat32());
  EXPECT_EQ(Read(volume, 0, 100).error, DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(Read(volume, 100, kSector).error, DWORD{ERROR_INVALID_PARAMETER});
}

TEST_F(DiskVolume, AccessIsWhatTheOpenAskedFor) {
  const std::string root = MakeVolume();
  EXPECT_EQ(Write(OpenVolume(root, GENERIC_READ), 0, Bytes(kSector)), DWORD{ERROR_ACCESS_DENIED});
  EXPECT_EQ(Read(OpenVolume(root, GENERIC_WRITE), 0, kSector).error, DWORD{ERROR_ACCESS_DENIED});
}

TEST_F(DiskVolume, UnchangedPartitionKeepsItsVolume) {
  const File volume = OpenVolume(MakeVolume());
  ASSERT_EQ(SetLayout(MbrLayout(
                {MbrRow(7, kFirst, kCount), MbrRow(7, 120 * kSectorsPerMiB, 50 * kSectorsPerMiB)})),
            DWORD{ERROR_SUCCESS});
  WaitForVolume(120 * kMiB);
  EXPECT_EQ(Read(volume, 0, kSector).error, DWORD{ERROR_SUCCESS});
}

TEST_F(DiskVolume, VolumeOfARemovedPartitionGoesAndItsHandleIsError21) {
  const File volume = OpenVolume(MakeVolume());
  ASSERT_EQ(SetLayout(MbrLayout({MbrRow(7, 120 * kSectorsPerMiB, 50 * kSectorsPerMiB)})),
            DWORD{ERROR_SUCCESS});
  WaitUntilGone(kMiB);
  EXPECT_EQ(Read(volume, 0, kSector).error, DWORD{ERROR_NOT_READY});
}

TEST_F(DiskVolume, PartitionOfAnotherLengthIsAnotherVolume) {
  const File volume = OpenVolume(MakeVolume());
  ASSERT_EQ(SetLayout(MbrLayout({MbrRow(7, kFirst, kCount - kSectorsPerMiB)})),
            DWORD{ERROR_SUCCESS});
  WaitUntil([&] { return Read(volume, 0, kSector).error != ERROR_SUCCESS; });
  EXPECT_EQ(Read(volume, 0, kSector).error, DWORD{ERROR_NOT_READY});
}

TEST_F(DiskVolume, MakingTheDiskAnewTakesItsVolumesAway) {
  MakeVolume();
  ASSERT_EQ(CreateMbr(kSignature + 1), DWORD{ERROR_SUCCESS});
  WaitUntilGone(kMiB);
}

TEST_F(DiskVolume, SecondLockIsError5) {
  const std::string root = MakeFat32();
  const File first = OpenVolume(root);
  const File second = OpenVolume(root);
  // Windows grants no lock while another handle is open, so the second one counts either way.
  const DWORD alone = Ask(first, FSCTL_LOCK_VOLUME).error;
  EXPECT_EQ(Ask(second, FSCTL_LOCK_VOLUME).error, DWORD{ERROR_ACCESS_DENIED}) << alone;
}

TEST_F(DiskVolume, UnlockWithoutALockIsError158) {
  const File volume = OpenVolume(MakeFat32());
  constexpr DWORD kNotLocked = 158;
  EXPECT_EQ(Ask(volume, FSCTL_UNLOCK_VOLUME).error, kNotLocked);
}

TEST_F(DiskVolume, LockedVolumeCannotBeOpened) {
  const std::string root = MakeFat32();
  const File volume = OpenVolume(root);
  ASSERT_EQ(Lock(volume), DWORD{ERROR_SUCCESS});
  win32::SetLastError(kUntouched);
  const File second(Open(root.substr(0, root.size() - 1), kReadWrite, OPEN_EXISTING));
  EXPECT_FALSE(second.is_open());
  EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_ACCESS_DENIED});
}

TEST_F(DiskVolume, DismountLeavesThisHandleGoodAndNoOther) {
  const std::string root = MakeFat32();
  const File other = OpenVolume(root);
  const File volume = OpenVolume(root);
  ASSERT_EQ(Ask(volume, FSCTL_DISMOUNT_VOLUME).error, DWORD{ERROR_SUCCESS});
  EXPECT_EQ(Read(volume, 0, kSector).error, DWORD{ERROR_SUCCESS});
  EXPECT_EQ(Read(other, 0, kSector).error, DWORD{ERROR_NOT_READY});
}

TEST_F(DiskVolume, DismountNeedsNoWriteAccessAndASecondOneIsError21) {
  const File volume = OpenVolume(MakeFat32(), GENERIC_READ);
  ASSERT_EQ(Ask(volume, FSCTL_DISMOUNT_VOLUME).error, DWORD{ERROR_SUCCESS});
  EXPECT_EQ(Ask(volume, FSCTL_DISMOUNT_VOLUME).error, DWORD{ERROR_NOT_READY});
}

TEST_F(DiskVolume, OpeningADismountedVolumeMountsIt) {
  const std::string root = MakeFat32();
  machine_.PutFile(root, "file.bin", 100);
  {
    const File volume = OpenVolume(root);
    ASSERT_EQ(Ask(volume, FSCTL_DISMOUNT_VOLUME).error, DWORD{ERROR_SUCCESS});
  }
  EXPECT_EQ(Read(OpenOn(root, "file.bin"), 0, 100).bytes, Bytes(100, std::byte{'v'}));
}

TEST_F(DiskVolume, DiskIsNoVolumeToDismountOrMoveOn) {
  const File disk = OpenDisk();
  EXPECT_EQ(Ask(disk, FSCTL_DISMOUNT_VOLUME).error, DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(Ask(disk, FSCTL_MOVE_FILE, BytesOf(MOVE_FILE_DATA())).error,
            DWORD{ERROR_INVALID_PARAMETER});
}

}  // namespace
}  // namespace conformance
