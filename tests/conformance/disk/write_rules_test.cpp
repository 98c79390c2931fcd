// Where raw writes go through while volumes are in use, and where they are refused with error 5.
// All of them put back what was there.
#include "conformance/disk/disk_fixture.h"

namespace conformance {
namespace {

constexpr std::uint64_t kData = kMiB + 50 * kMiB;  // inside the volume of MakeFat32
constexpr std::size_t kReservedSectorsField = 14;

class DiskWriteRules : public DiskTest {
 protected:
  // A GPT disk with its reserved partition and an EFI system partition of 100 MiB, formatted.
  std::uint64_t MakeEfiSystemPartition() const {
    EXPECT_EQ(Diskpart("convert gpt\r\ncreate partition efi size=100\r\n"
                       "format fs=fat32 quick override\r\n"),
              0u);
    const DriveLayout layout = GetLayout();
    EXPECT_EQ(layout.rows.size(), 2u);
    return layout.rows.size() == 2 ? OffsetOf(layout.rows[1]) : 0;
  }
};

TEST_F(DiskWriteRules, MountedVolumeRefusesWritesThroughTheDisk) {
  const File volume = OpenVolume(MakeFat32());
  const File disk = OpenDisk();
  EXPECT_EQ(Rewrite(disk, kMiB, kSector), DWORD{ERROR_ACCESS_DENIED});
  EXPECT_EQ(Rewrite(disk, kData, kSector), DWORD{ERROR_ACCESS_DENIED});
  EXPECT_EQ(Rewrite(disk, 101 * kMiB - kSector, kSector), DWORD{ERROR_ACCESS_DENIED});
}

TEST_F(DiskWriteRules, WriteThatTouchesAVolumeIsRefusedWhole) {
  const File volume = OpenVolume(MakeFat32());
  const File disk = OpenDisk();
  Bytes bytes = Read(disk, kMiB - kSector, 2 * kSector).bytes;
  ASSERT_EQ(bytes.size(), 2 * kSector);
  const Bytes gap(bytes.begin(), bytes.begin() + kSector);
  bytes[0] ^= std::byte{0xFF};
  EXPECT_EQ(Write(disk, kMiB - kSector, bytes), DWORD{ERROR_ACCESS_DENIED});
  EXPECT_EQ(Read(disk, kMiB - kSector, kSector).bytes, gap);
}

TEST_F(DiskWriteRules, SectorsOutsideEveryVolumeStayWritable) {
  const File volume = OpenVolume(MakeFat32());
  const File disk = OpenDisk();
  EXPECT_EQ(Rewrite(disk, 0, kSector), DWORD{ERROR_SUCCESS});
  EXPECT_EQ(Rewrite(disk, kMiB - kSector, kSector), DWORD{ERROR_SUCCESS});
  EXPECT_EQ(Rewrite(disk, 101 * kMiB, kSector), DWORD{ERROR_SUCCESS});
  EXPECT_EQ(Rewrite(disk, (sector_count_ - 33) * kSector, 33 * kSector), DWORD{ERROR_SUCCESS});
}

TEST_F(DiskWriteRules, ReadsAreNeverRefused) {
  const File volume = OpenVolume(MakeFat32());
  EXPECT_EQ(Read(OpenDisk(), kData, kSector).error, DWORD{ERROR_SUCCESS});
  EXPECT_EQ(Read(volume, 50 * kMiB, kSector).error, DWORD{ERROR_SUCCESS});
}

TEST_F(DiskWriteRules, LockedVolumeTakesThemUntilItIsUnlocked) {
  const File volume = OpenVolume(MakeFat32());
  const File disk = OpenDisk();
  ASSERT_EQ(Lock(volume), DWORD{ERROR_SUCCESS});
  EXPECT_EQ(Rewrite(disk, kData, kSector), DWORD{ERROR_SUCCESS});
  ASSERT_EQ(Ask(volume, FSCTL_UNLOCK_VOLUME).error, DWORD{ERROR_SUCCESS});
  EXPECT_EQ(Rewrite(disk, kData, kSector), DWORD{ERROR_ACCESS_DENIED});
}

TEST_F(DiskWriteRules, ClosingTheHandleUnlocks) {
  const std::string root = MakeFat32();
  {
    const File volume = OpenVolume(root);
    ASSERT_EQ(Lock(volume), DWORD{ERROR_SUCCESS});
  }
  const File again = OpenVolume(root);
  EXPECT_EQ(Rewrite(OpenDisk(), kData, kSector), DWORD{ERROR_ACCESS_DENIED});
}

TEST_F(DiskWriteRules, DismountedVolumeTakesThem) {
  const File volume = OpenVolume(MakeFat32());
  const File disk = OpenDisk();
  ASSERT_EQ(Ask(volume, FSCTL_DISMOUNT_VOLUME).error, DWORD{ERROR_SUCCESS});
  EXPECT_EQ(Rewrite(disk, kData, kSector), DWORD{ERROR_SUCCESS});
}

TEST_F(DiskWriteRules, VolumeWithoutAFileSystemTakesThem) {
  MakeMbr({MbrRow(7, kSectorsPerMiB, 100 * kSectorsPerMiB)});
  const File volume = OpenVolume(WaitForVolume(kMiB));
  EXPECT_EQ(Rewrite(OpenDisk(), kData, kSector), DWORD{ERROR_SUCCESS});
  EXPECT_EQ(Rewrite(volume, 50 * kMiB, kSector), DWORD{ERROR_SUCCESS});
}

TEST_F(DiskWriteRules, VolumesOwnHandleWritesTheReservedAreaAlone) {
  const File volume = OpenVolume(MakeFat32());
  const Bytes boot = Read(volume, 0, kSector).bytes;
  const std::uint64_t reserved = LoadAt<std::uint16_t>(boot, kReservedSectorsField) * kSector;
  ASSERT_NE(reserved, 0u);
  EXPECT_EQ(Rewrite(volume, 0, kSector), DWORD{ERROR_SUCCESS});
  EXPECT_EQ(Rewrite(volume, reserved - kSector, kSector), DWORD{ERROR_SUCCESS});
  EXPECT_EQ(Rewrite(volume, reserved, kSector), DWORD{ERROR_ACCESS_DENIED});
  EXPECT_EQ(Rewrite(volume, 50 * kMiB, kSector), DWORD{ERROR_ACCESS_DENIED});
}

TEST_F(DiskWriteRules, VolumesOwnHandleWritesAnywhereWhenLockedOrDismounted) {
  const File volume = OpenVolume(MakeFat32());
  ASSERT_EQ(Lock(volume), DWORD{ERROR_SUCCESS});
  EXPECT_EQ(Rewrite(volume, 50 * kMiB, kSector), DWORD{ERROR_SUCCESS});
  ASSERT_EQ(Ask(volume, FSCTL_DISMOUNT_VOLUME).error, DWORD{ERROR_SUCCESS});
  EXPECT_EQ(Rewrite(volume, 50 * kMiB, kSector), DWORD{ERROR_SUCCESS});
}

TEST_F(DiskWriteRules, NtfsVolumesOwnHandleWritesSixteenSectorsOfBootCode) {
  MakeMbr({MbrRow(7, kSectorsPerMiB, 100 * kSectorsPerMiB)});
  const std::string root = WaitForVolume(kMiB);
  machine_.FormatAsNtfs(kMiB);
  const File volume = OpenVolume(root);
  EXPECT_EQ(Rewrite(volume, 0, 16 * kSector), DWORD{ERROR_SUCCESS});
  EXPECT_EQ(Rewrite(volume, 15 * kSector, kSector), DWORD{ERROR_SUCCESS});
  EXPECT_EQ(Rewrite(volume, 16 * kSector, kSector), DWORD{ERROR_ACCESS_DENIED});
  EXPECT_EQ(Rewrite(volume, 50 * kMiB, kSector), DWORD{ERROR_ACCESS_DENIED});
  EXPECT_EQ(Rewrite(OpenDisk(), kMiB, kSector), DWORD{ERROR_ACCESS_DENIED});
}

TEST_F(DiskWriteRules, NtfsVolumesOwnHandleWritesBehindItsFileSystem) {
  MakeMbr({MbrRow(7, kSectorsPerMiB, 100 * kSectorsPerMiB)});
  const std::string root = WaitForVolume(kMiB);
  machine_.FormatAsNtfs(kMiB);
  const File volume = OpenVolume(root);
  const auto sectors = LoadAt<std::uint64_t>(Read(volume, 0, kSector).bytes, 40);
  EXPECT_EQ(Rewrite(volume, (sectors - 1) * kSector, kSector), DWORD{ERROR_ACCESS_DENIED});
  EXPECT_EQ(Rewrite(volume, sectors * kSector, kSector), DWORD{ERROR_SUCCESS});
  EXPECT_EQ(Rewrite(OpenDisk(), kMiB + sectors * kSector, kSector), DWORD{ERROR_ACCESS_DENIED});
}

TEST_F(DiskWriteRules, BootRecordOfAMountedLogicalIsWritable) {
  constexpr std::uint64_t kRecord = 120 * kSectorsPerMiB;
  MakeMbr({MbrRow(0x0F, kRecord, 110 * kSectorsPerMiB), UnusedMbrRow(), UnusedMbrRow(),
           UnusedMbrRow(), MbrRow(0x0C, kRecord + kSectorsPerMiB, 100 * kSectorsPerMiB)});
  const std::string root = WaitForVolume(121 * kMiB);
  ASSERT_EQ(Diskpart("select partition 1\r\nformat fs=fat32 quick override\r\n"), 0u);
  const File volume = OpenVolume(root);
  const File disk = OpenDisk();
  EXPECT_EQ(Rewrite(disk, kRecord * kSector, kSector), DWORD{ERROR_SUCCESS});
  EXPECT_EQ(Rewrite(disk, 121 * kMiB, kSector), DWORD{ERROR_ACCESS_DENIED});
}

TEST_F(DiskWriteRules, ReservedPartitionIsWritableAndAMountedEfiSystemPartitionIsNot) {
  const std::uint64_t system = MakeEfiSystemPartition();
  ASSERT_NE(system, 0u);
  const File volume = OpenVolume(WaitForVolume(system));
  const File disk = OpenDisk();
  EXPECT_EQ(Rewrite(disk, 8 * kMiB, kSector), DWORD{ERROR_SUCCESS});
  EXPECT_EQ(Rewrite(disk, system, kSector), DWORD{ERROR_ACCESS_DENIED});
}

TEST_F(DiskWriteRules, TableIsSetWhileAVolumeIsMounted) {
  const File volume = OpenVolume(MakeFat32());
  EXPECT_EQ(SetLayout(MbrLayout({MbrRow(0x0B, kSectorsPerMiB, 100 * kSectorsPerMiB)})),
            DWORD{ERROR_SUCCESS});
  EXPECT_EQ(GetLayout().rows[0].Mbr.PartitionType, 0x0B);
  EXPECT_EQ(Read(volume, 0, kSector).error, DWORD{ERROR_SUCCESS});
}

}  // namespace
}  // namespace conformance
