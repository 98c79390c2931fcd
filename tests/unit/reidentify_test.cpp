#include "disk/reidentify.h"

#include <cstring>

#include "disk/device_handle.h"
#include "frame/disk_records.h"
#include "frame/global_context.h"
#include "platform/guard.h"
#include "platform/win32.h"
#include "simulator/disk.h"
#include "simulator/volume.h"
#include "support/caller_record.h"
#include "two_volumes_fixture.h"

namespace testing_support {
namespace {

constexpr char kOldPath[] = "\\\\?\\Volume{01d01d01-0000-0000-0000-000000000000}";
constexpr char kExtentsCall[] = "DeviceIoControl/IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS";

// The first volume is D, the second has no letter. The record is of the second, by an old path.
class ReidentifyVolumes : public TwoVolumesTest {
 protected:
  ReidentifyVolumes() : record_(DiskType::kMbr, 1) {
    machine_.SetLetter(1, kFirstOffset, 'D');
    record_.Add(kSecondOffset);
    SetText(volume().volume_id, kOldPath);
    converter_.disk_info = &record_.disk();
    machine_.calls().Clear();
    win32::SetLastError(ERROR_SUCCESS);
  }

  VolumeInfo& volume() { return record_.volume(0); }
  std::string StoredPath() { return velkora::FieldText(volume().volume_id); }

  // Adds a volume that says of itself that it starts there, or has no place at all.
  void AddVolume(const std::string& path, const std::vector<simulator::VolumeExtent>& extents) {
    simulator::Volume added;
    added.path = path;
    added.extents = extents;
    added.automatic_letter = false;
    machine_.AddVolume(added);
  }

  CallerRecord record_;
  velkora::Velkora converter_;
};

class UpdateVolumeId : public ReidentifyVolumes {
 protected:
  bool Update(std::int32_t disk = 1) { return velkora::UpdateVolumeId(volume(), disk); }
};
class CheckAndUpdateVolumeId : public ReidentifyVolumes {
 protected:
  bool Check() { return velkora::CheckAndUpdateVolumeId(converter_, volume()); }
};
class LogVolumeList : public ReidentifyVolumes {};

const LogLine kUpdateBegin = {1, "UpdateVolumeId Begin..."};
const LogLine kUpdateEnd = {1, "UpdateVolumeId End!"};
const LogLine kCheckLine = {1, "Check and update volume id"};
const LogLine kOpenedNot = {
    3, std::string("open device failed, device_id: ") + kOldPath + ", error_code: 2"};

TEST_F(UpdateVolumeId, StoresThePathOfTheVolumeAtTheRecordsPlace) {
  EXPECT_TRUE(Update());
  EXPECT_EQ(StoredPath(), PathAt(kSecondOffset));
  EXPECT_EQ(log_, (Log{kUpdateBegin, kUpdateEnd}));
}

TEST_F(UpdateVolumeId, VolumeThatChangedItsNameIsFound) {
  machine_.FindVolumeAt(1, kSecondOffset)->path = "\\\\?\\Volume{new}";
  std::memset(volume().volume_id, 0, sizeof volume().volume_id);
  EXPECT_TRUE(Update());
  EXPECT_EQ(StoredPath(), "\\\\?\\Volume{new}");
}

TEST_F(UpdateVolumeId, NoMatchSucceedsAndLeavesTheRecord) {
  EXPECT_TRUE(Update(2));
  EXPECT_EQ(StoredPath(), kOldPath);
  volume().offset = kSecondOffset + 512;
  EXPECT_TRUE(Update());
  EXPECT_EQ(StoredPath(), kOldPath);
}

TEST_F(UpdateVolumeId, NegativeDiskNumberIsComparedAsItsBits) {
  AddVolume("\\\\?\\Volume{far away}", {{0xFFFFFFFF, kSecondOffset, kMiB}});
  std::memset(volume().volume_id, 0, sizeof volume().volume_id);
  EXPECT_TRUE(Update(-1));
  EXPECT_EQ(StoredPath(), "\\\\?\\Volume{far away}");
}

TEST_F(UpdateVolumeId, LaterMatchIsCopiedOverTheEarlierWhoseTailStays) {
  machine_.FindVolumeAt(1, kSecondOffset)->path = "\\\\?\\Volume{a long name}";
  AddVolume("\\\\?\\Volume{b}", {{1, kSecondOffset, kMiB}});
  std::memset(volume().volume_id, 0, sizeof volume().volume_id);
  EXPECT_TRUE(Update());
  EXPECT_EQ(StoredPath(), "\\\\?\\Volume{b}long name}");
  EXPECT_EQ(machine_.calls().Count(kExtentsCall), 3U);
}

TEST_F(UpdateVolumeId, PathLongerThanItsFieldIsAnAccessViolation) {
  machine_.FindVolumeAt(1, kSecondOffset)->path = "\\\\?\\Volume{" + std::string(246, 'v') + "}";
  EXPECT_THROW(Update(), win32::Fault);
}

TEST_F(UpdateVolumeId, VolumeWithoutAPlaceIsLoggedAndPassedOver) {
  AddVolume("\\\\?\\Volume{optical}", {});
  EXPECT_TRUE(Update());
  EXPECT_EQ(StoredPath(), PathAt(kSecondOffset));
  EXPECT_EQ(log_,
            (Log{kUpdateBegin,
                 {3, "IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS1 Error: 1"},
                 {3, "GetPartitionDiskindexAndOffset Error: 1, volume_id: \\\\?\\Volume{optical}"},
                 kUpdateEnd}));
}

TEST_F(UpdateVolumeId, WalkThatFailsIsLogged) {
  machine_.calls().FailOn("FindFirstVolumeA", 1, 8);
  EXPECT_FALSE(Update());
  EXPECT_EQ(log_,
            (Log{kUpdateBegin, {3, "FindFirstVolumeA error 8"}, {3, "GetVolumePaths Error: 8"}}));
}

TEST_F(UpdateVolumeId, StopDuringTheWalkIsAFailure) {
  velkora::GetGlobalContext().stop_requested = 1;
  EXPECT_FALSE(Update());
  EXPECT_EQ(StoredPath(), kOldPath);
  EXPECT_EQ(log_, (Log{kUpdateBegin, {3, "GetVolumePaths Error: 0"}}));
}

TEST_F(CheckAndUpdateVolumeId, StoredPathThatOpensIsTrustedAndClosed) {
  SetText(volume().volume_id, PathAt(kFirstOffset));  // not the record's place
  EXPECT_TRUE(Check());
  EXPECT_EQ(StoredPath(), PathAt(kFirstOffset));
  EXPECT_EQ(machine_.handles().Open(), Texts{});
  EXPECT_EQ(log_, Log{kCheckLine});
}

TEST_F(CheckAndUpdateVolumeId, LostPathIsFoundByItsPlaceAndReplacedWhole) {
  std::memset(volume().volume_id, 'x', sizeof volume().volume_id);
  std::memcpy(volume().volume_id, "\\\\?\\", 4);
  EXPECT_TRUE(Check());
  std::string expected = PathAt(kSecondOffset);
  expected.resize(sizeof volume().volume_id);
  EXPECT_EQ(std::string(volume().volume_id, sizeof volume().volume_id), expected);
}

// With another signature on its disk a volume has another name.
TEST_F(CheckAndUpdateVolumeId, VolumeThatChangedItsNameIsFound) {
  SetText(volume().volume_id, PathAt(kSecondOffset));
  WriteMbr(disk_, {{7, 2048, 30720}, {7, 34816, 30720}}, {}, 2048, 0x5EC0DD15);
  machine_.UpdateProperties(disk_);
  ASSERT_NE(PathAt(kSecondOffset), StoredPath());
  EXPECT_TRUE(Check());
  EXPECT_EQ(StoredPath(), PathAt(kSecondOffset));
  EXPECT_EQ(machine_.handles().Open(), Texts{});
}

TEST_F(CheckAndUpdateVolumeId, InvalidHandleErrorStartsTheSearchToo) {
  machine_.calls().FailOn("CreateFileA", 1, ERROR_INVALID_HANDLE);
  EXPECT_TRUE(Check());
  EXPECT_EQ(StoredPath(), PathAt(kSecondOffset));
}

TEST_F(CheckAndUpdateVolumeId, AnyOtherFailedOpenEndsTheSearch) {
  machine_.calls().FailOn("CreateFileA", 1, ERROR_ACCESS_DENIED);
  EXPECT_FALSE(Check());
  EXPECT_EQ(machine_.calls().Count("FindFirstVolumeA"), 0U);
  EXPECT_EQ(StoredPath(), kOldPath);
}

TEST_F(CheckAndUpdateVolumeId, FirstMatchCounts) {
  AddVolume("\\\\?\\Volume{b}", {{1, kSecondOffset, kMiB}});
  EXPECT_TRUE(Check());
  EXPECT_EQ(StoredPath(), PathAt(kSecondOffset));
  EXPECT_EQ(machine_.calls().Count(kExtentsCall), 2U);
  EXPECT_EQ(log_, (Log{kCheckLine, kOpenedNot}));
}

TEST_F(CheckAndUpdateVolumeId, NoMatchFailsAndLeavesTheRecord) {
  record_.disk().index = 2;
  EXPECT_FALSE(Check());
  EXPECT_EQ(StoredPath(), kOldPath);
  EXPECT_EQ(log_, (Log{kCheckLine, kOpenedNot}));
}

TEST_F(CheckAndUpdateVolumeId, VolumeWithoutAPlaceIsLoggedAndPassedOver) {
  AddVolume("\\\\?\\Volume{optical}", {});
  volume().offset = 1;
  EXPECT_FALSE(Check());
  EXPECT_EQ(
      log_,
      (Log{kCheckLine,
           kOpenedNot,
           {3, "IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS1 Error: 1"},
           {3, "GetPartitionDiskindexAndOffset error: 1, volume_id: \\\\?\\Volume{optical}"}}));
}

TEST_F(CheckAndUpdateVolumeId, WalkThatFailsIsLogged) {
  machine_.calls().FailOn("FindFirstVolumeA", 1, 8);
  EXPECT_FALSE(Check());
  EXPECT_EQ(log_, (Log{kCheckLine,
                       kOpenedNot,
                       {3, "FindFirstVolumeA error 8"},
                       {3, "GetVolumePaths Error: 8"}}));
}

TEST_F(LogVolumeList, ListsAllVolumesWithTheirLettersBetweenTwoLines) {
  velkora::LogVolumeList();
  const LogLine line = {1, std::string(49, '=')};
  EXPECT_EQ(log_, (Log{line,
                       {1, "volume path: " + PathAt(kFirstOffset) + ", letter: D:\\"},
                       {1, "volume path: " + PathAt(kSecondOffset) + ", letter: "},
                       line}));
}

TEST_F(LogVolumeList, LetterIsEmptyBehindAFailure) {
  machine_.calls().FailOn("GetVolumePathNamesForVolumeNameA", 1, 31);
  velkora::LogVolumeList();
  const std::string path = PathAt(kFirstOffset);
  EXPECT_EQ(log_[1],
            (LogLine{3, "GetVolumePathNamesForVolumeNameA error 31, device id " + path + "\\"}));
  EXPECT_EQ(log_[2], (LogLine{3, "GetVolumeLetter Error: 31, volume_id: " + path}));
  EXPECT_EQ(log_[3], (LogLine{1, "volume path: " + path + ", letter: "}));
}

TEST_F(LogVolumeList, WalkThatBreaksOffListsWhatItHas) {
  velkora::GetGlobalContext().stop_requested = 1;
  velkora::LogVolumeList();
  const LogLine line = {1, std::string(49, '=')};
  EXPECT_EQ(log_, (Log{line,
                       {3, "GetVolumeDevicePaths Error: 0"},
                       {1, "volume path: " + PathAt(kFirstOffset) + ", letter: D:\\"},
                       line}));
}

class LogDiskSerials : public MachineTest {
 protected:
  LogDiskSerials() {
    for (const std::uint32_t number : {1U, 2U, 3U}) {
      simulator::DeviceIdentity& identity = NewDisk(number, kMiB).identity;
      identity.interface_path = "\\\\?\\disk" + std::to_string(number);
      identity.serial_number = std::string(3, static_cast<char>('@' + number));
    }
  }
};

TEST_F(LogDiskSerials, ListsAllDisksLeavesThemOpenAndReturnsFalse) {
  EXPECT_FALSE(velkora::LogDiskSerials());
  EXPECT_EQ(log_, (Log{{1, "device_path: \\\\?\\disk1"},
                       {1, "disk_serial_id: AAA"},
                       {1, "device_path: \\\\?\\disk2"},
                       {1, "disk_serial_id: BBB"},
                       {1, "device_path: \\\\?\\disk3"},
                       {1, "disk_serial_id: CCC"}}));
  EXPECT_EQ(machine_.handles().Open(),
            (Texts{"device information set", "disk 1", "disk 2", "disk 3"}));
}

TEST_F(LogDiskSerials, FailuresAreLoggedAndTheListGoesOn) {
  machine_.calls().FailOn("CreateFileA/\\\\?\\disk1", 1, 5);
  machine_.calls().FailOn("DeviceIoControl/IOCTL_STORAGE_QUERY_PROPERTY", 1, 32);
  EXPECT_FALSE(velkora::LogDiskSerials());
  EXPECT_EQ(log_, (Log{{1, "device_path: \\\\?\\disk1"},
                       {3, "open device failed, device_id: \\\\?\\disk1, error_code: 5"},
                       {3, "GetDeviceHandle Fail"},
                       {1, "device_path: \\\\?\\disk2"},
                       {3, "DeviceIoControl with IOCTL_STORAGE_QUERY_PROPERTY error 32"},
                       {3, "GetDiskSerialId Fail"},
                       {1, "device_path: \\\\?\\disk3"},
                       {1, "disk_serial_id: CCC"}}));
}

TEST_F(LogDiskSerials, ListOfDisksThatFailsIsLogged) {
  machine_.calls().FailOn("SetupDiGetClassDevsW", 1, 13);
  EXPECT_FALSE(velkora::LogDiskSerials());
  EXPECT_EQ(log_, (Log{{3, "SetupDiGetClassDevs or SetupDiEnumDeviceInterfaces error 13"},
                       {3, "GetDiskDevicePaths Fail"}}));
}

}  // namespace
}  // namespace testing_support
