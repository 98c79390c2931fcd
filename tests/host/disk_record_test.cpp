// The record of a disk, and the list of disks, as the system's calls tell them.
#include "host/disk_record.h"

#include <gmock/gmock.h>
#include <string>
#include <vector>

#include "host/disk_list.h"
#include "host/host_error.h"
#include "simulator/device_identity.h"
#include "simulator/disk.h"
#include "simulator/storage/fat32_format.h"
#include "simulator/volume.h"
#include "support/machine_fixture.h"

namespace testing_support {
namespace {

using namespace ::testing;
using velkora_host::DiskRecord;
using velkora_host::HostError;

constexpr std::uint64_t kNtfs = 1 * kMiB;
constexpr std::uint64_t kFat32 = 17 * kMiB;

// Disk 1: NTFS of 16 MiB as D and, at its end, an unknown volume of one sector; between them FAT32
// of 45 MiB without a letter.
class HostDiskRecord : public MachineTest {
 protected:
  HostDiskRecord() : disk_(NewDisk(1, 64 * kMiB)) {
    machine_.switches().automount = false;
    WriteMbr(disk_, {{7, 2048, 32'768}, {12, 34'816, 92'160}, {0x83, 131'071, 1}});
    WriteNtfsBootSector(disk_, 2048, 32'767);
    EXPECT_EQ(simulator::FormatFat32(disk_.device(), {kFat32, 45 * kMiB, 0, 1}), ERROR_SUCCESS);
    machine_.UpdateProperties(disk_);
    machine_.SetLetter(1, kNtfs, 'D');
    machine_.calls().Clear();
  }

  std::string ErrorOf(std::uint32_t number) {
    try {
      const DiskRecord record(number);
    } catch (const HostError& error) {
      return error.what();
    }
    return "";
  }

  simulator::Disk& disk_;
};

TEST_F(HostDiskRecord, TellsOfTheDiskWhatTheSystemSays) {
  disk_.identity.serial_number = "S1XWJ9";
  DiskRecord record(1);
  EXPECT_EQ(record.disk().disk_type, DiskType::kMbr);
  EXPECT_EQ(record.disk().index, 1U);
  EXPECT_STREQ(record.disk().id, "\\\\.\\PhysicalDrive1");
  EXPECT_EQ(record.disk().size, 64 * kMiB);
  EXPECT_STREQ(record.disk().serial_num, "S1XWJ9");
  EXPECT_EQ(record.disk().is_system, 0);
}

TEST_F(HostDiskRecord, TellsEachVolumeInDiskOrder) {
  DiskRecord record(1);
  ASSERT_EQ(record.disk().volume_count, 3);
  const auto text = [&](std::size_t i) {
    const VolumeInfo& volume = record.volumes()[i];
    EXPECT_EQ(record.disk().volumes[i], &volume);
    EXPECT_EQ(volume.volume_id, machine_.FindVolumeAt(1, volume.offset)->path);
    return std::to_string(volume.part_number) + " '" + volume.letter + "' " +
           std::to_string(volume.offset) + "+" + std::to_string(volume.size) + " type " +
           std::to_string(static_cast<int>(volume.filesystem)) + " clusters of " +
           std::to_string(volume.cluster_size);
  };
  EXPECT_EQ(text(0), "1 'D:' 1048576+16777216 type 3 clusters of 4096");
  EXPECT_EQ(text(1), "2 '' 17825792+47185920 type 6 clusters of 512");
  EXPECT_EQ(text(2), "3 '' 67108352+512 type 0 clusters of 0");
}

TEST_F(HostDiskRecord, LeavesVolumesOfOtherDisksAndDrivesOut) {
  simulator::Disk& other = NewDisk(2, 64 * kMiB);
  WriteMbr(other, {{7, 2048, 30'720}}, {}, 2048, 0x77777777);
  machine_.UpdateProperties(other);
  simulator::Volume drive;
  drive.path = "\\\\?\\Volume{0d0d0d0d-0000-0000-0000-000000000000}";
  machine_.AddVolume(drive);
  EXPECT_EQ(DiskRecord(1).volumes().size(), 3U);
  EXPECT_EQ(DiskRecord(2).volumes().size(), 1U);
}

TEST_F(HostDiskRecord, MarksTheVolumeOfTheRunningSystem) {
  DiskRecord record(1);
  record.MarkSystem('D');
  EXPECT_EQ(record.disk().is_system, 1);
  EXPECT_EQ(record.volumes()[0].is_system, 1);
  EXPECT_EQ(record.volumes()[1].is_system, 0);
}

TEST_F(HostDiskRecord, ADiskWithoutATableIsRaw) {
  NewDisk(3, 8 * kMiB);
  DiskRecord record(3);
  EXPECT_EQ(record.disk().disk_type, DiskType::kRaw);
  EXPECT_EQ(record.disk().volume_count, 0);
}

TEST_F(HostDiskRecord, ADiskWithoutASerialNumberHasAnEmptyOne) {
  disk_.identity.serial_number.reset();
  EXPECT_STREQ(DiskRecord(1).disk().serial_num, "");
}

TEST_F(HostDiskRecord, ALayoutOfManyRowsIsAskedForAgain) {
  std::vector<GptEntry> entries;
  for (std::uint8_t i = 0; i < 120; ++i) {
    entries.push_back({kBasicDataGuid, 2048U + 100U * i, 2048U + 100U * i + 99,
                       static_cast<std::uint8_t>(i + 1)});
  }
  WriteGpt(disk_, entries);
  machine_.UpdateProperties(disk_);
  DiskRecord record(1);
  EXPECT_EQ(record.disk().disk_type, DiskType::kGpt);
  EXPECT_EQ(record.volumes().size(), entries.size());
}

TEST_F(HostDiskRecord, ADiskThatIsNotThereIsNamed) {
  EXPECT_EQ(ErrorOf(9), "\\\\.\\PhysicalDrive9 cannot be opened: error 2");
}

// Nothing is left out in silence: each call that fails either ends the record with a reason, or
// belongs to the few facts that a disk may lack.
TEST_F(HostDiskRecord, ACallThatFailsLeavesNoVolumeOut) {
  (void)DiskRecord(1);
  const std::vector<std::string> calls = machine_.calls().Lines();
  std::vector<std::string> passed_over;
  for (std::size_t number = 1; number <= calls.size(); ++number) {
    machine_.calls().Clear();
    machine_.calls().ClearFailures();
    machine_.calls().FailNumber(number, ERROR_GEN_FAILURE);
    const std::size_t open = machine_.handles().Open().size();
    try {
      EXPECT_EQ(DiskRecord(1).volumes().size(), 3U) << calls[number - 1];
      passed_over.push_back(calls[number - 1].substr(0, calls[number - 1].find(' ')));
    } catch (const HostError& error) {
      EXPECT_THAT(error.what(), AnyOf(HasSubstr("error 31"), HasSubstr("is told in")))
          << calls[number - 1];
    }
    machine_.calls().ClearFailures();
    const bool closes = calls[number - 1].find("Close") != std::string::npos;
    EXPECT_EQ(machine_.handles().Open().size(), open + (closes ? 1 : 0)) << calls[number - 1];
  }
  EXPECT_THAT(passed_over, Each(AnyOf("DeviceIoControl/IOCTL_STORAGE_QUERY_PROPERTY",
                                      "DeviceIoControl/IOCTL_DISK_GET_DRIVE_LAYOUT_EX",
                                      StartsWith("CloseHandle"), "FindVolumeClose")));
}

TEST_F(HostDiskRecord, MoreThan255VolumesAreRefused) {
  for (int i = 0; i < 253; ++i) {
    simulator::Volume volume;
    volume.path = "\\\\?\\Volume{0d0d0d0d-0000-0000-0000-000000000" + std::to_string(100 + i) + "}";
    volume.extents = {{1, 20 * kMiB + 512U * static_cast<unsigned>(i), 512}};
    machine_.AddVolume(volume);
  }
  EXPECT_EQ(ErrorOf(1), "\\\\.\\PhysicalDrive1: 256 volumes are too many, 255 is the limit");
}

TEST_F(HostDiskRecord, TheDisksThatArePresentAreListedInOrder) {
  NewDisk(12, 8 * kMiB);
  NewDisk(3, 8 * kMiB);
  EXPECT_THAT(velkora_host::ListDisks(), ElementsAre(1, 3, 12));
  machine_.calls().FailOn("SetupDiGetClassDevsW", 1, 5);
  EXPECT_THAT([] { velkora_host::ListDisks(); },
              ThrowsMessage<HostError>("the disks are not listed: error 5"));
}

}  // namespace
}  // namespace testing_support
