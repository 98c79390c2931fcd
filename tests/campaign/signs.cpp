#include "campaign/signs.h"

#include <algorithm>
#include <iterator>

#include "campaign/control_calls.h"

namespace campaign {
namespace {

using enum Step;
using enum In;

constexpr char kDisk[] = "disk 1";
constexpr char kVolume[] = "volume \\\\?\\Volume{";
constexpr char kSeek[] = "SetFilePointer Error: 31";
constexpr char kRead[] = "Read Error: 31";
constexpr char kGptHeader[] = "[BackupRestore] ParseGPT: read header error 31";
constexpr char kGptArray[] = "[BackupRestore] ParseGPT: read error 31";
constexpr char kMbrRecord[] = "[BackupRestore] ParseMBR read offs 0x0 error:31";
constexpr char kNtfsFiles[] = "[BackupRestore] ParseNtfsMftRecord: read ntfs meta error 31";
constexpr char kBackupRead[] = "[BackupRestore] Parse";
constexpr char kUpdateToMbr[] = "DeviceIoControl with IOCTL_DISK_UPDATE_PROPERTIES error 31";
constexpr char kUpdateToGpt[] = "IOCTL_DISK_UPDATE_PROPERTIES Error: 31";
constexpr char kProcess[] = "GetExitCodeProcess fail, error: 31, last error: 0";
constexpr char kClean[] = "DISKPART_Clean Failed!";
constexpr char kRescanLine[] = "DISKPART_Rescan Failed!";
constexpr char kFormat[] = "DISKPART_Format Failed!";
constexpr char kAssign[] = "DISKPART_Assign Failed!";
constexpr char kActive[] = "DISKPART_Active Failed!";
constexpr char kMbrCode[] = "RecoverMbr fail!";
constexpr char kStore[] = "RecoverBcd fail!";
constexpr char kListing[] = "Bcdedit Get Info Failed!";
constexpr char kSetting[] = "BcdEdit Set Failed!";

// The error of a call that fails on demand is 31.
constexpr Sign kSigns[] = {
    {kOpening, "CreateFileA",
     "open device failed, device_id: \\\\.\\PhysicalDrive1, error_code: 31"},
    {kOpening, kGetStyle, "DeviceIoControl with IOCTL_DISK_GET_PARTITION_INFO_EX error 31"},
    {kOpening, "SetFilePointer", kSeek},
    {kOpening, "ReadFile", kRead},
    {kReadingAgain, "SetFilePointer", kSeek},
    {kReadingAgain, "ReadFile", kRead},

    {kBackup, "CreateFileA", "BackupDiskPartitionToStorage error -2"},
    {kBackup, "ReadFile", "[BackupRestore] Parse read mbr failed. ret=0, error=31", kAll, 1},
    {kBackup, "SetFilePointerEx", kGptHeader, kToMbr, 1},
    {kBackup, "ReadFile", kGptHeader, kToMbr, 2},
    {kBackup, "SetFilePointerEx", kGptArray, kToMbr, 2},
    {kBackup, "ReadFile", kGptArray, kToMbr, 3},
    {kBackup, "SetFilePointerEx", kMbrRecord, kToGpt, 1},
    {kBackup, "ReadFile", kMbrRecord, kToGpt, 2},
    {kBackup, "SetFilePointerEx", kNtfsFiles, kForgiven},
    {kBackup, "ReadFile", kNtfsFiles, kForgiven},
    {kBackup, "SetFilePointerEx", kBackupRead},
    {kBackup, "ReadFile", kBackupRead},
    {.step = kBackup, .call = "CloseHandle", .open_handle = kDisk},

    {kShrinking, "CreateFileA", "open device failed, device_id: \\\\?\\Volume{"},
    {kShrinking, kDismount, "FSCTL_DISMOUNT_VOLUME Error: 31"},
    // Transfers have three attempts; a failed seek is not even logged.
    {kShrinking, "SetFilePointer"},
    {kShrinking, "ReadFile", "Read Data Error! error_code: 31"},
    {kShrinking, "WriteFile", "Write Data Error! error_code: 31"},
    {kShrinking, kDeviceNumber, "DeviceIoControl with IOCTL_STORAGE_GET_DEVICE_NUMBER error 31"},
    {kShrinking, kGetLayout, "IOCTL_DISK_GET_DRIVE_LAYOUT_EX Error: 31"},
    {kShrinking, kSetLayout, "IOCTL_DISK_SET_DRIVE_LAYOUT_EX Error: 31"},
    {.step = kShrinking, .call = "CloseHandle", .open_handle = kVolume},

    {kCreating, "time"},
    {kCreating, "CoCreateGuid", "CoCreateGuid Error: 31"},
    {kCreating, kCreateDisk, "DeviceIoControl with IOCTL_DISK_CREATE_DISK error 31", kToMbr},
    {kCreating, kCreateDisk, "Set New Disk Error: 31", kToGpt},
    {std::nullopt, kUpdate, kUpdateToMbr, kToMbr},
    {std::nullopt, kUpdate, kUpdateToGpt, kToGpt},
    {kBuilding, "CoCreateGuid", "CoCreateGuid Error: 31", kToMbr},
    {kBuilding, "CoCreateGuid", "CoCreateGuid error: 31", kToGpt},
    {kWriting, kSetLayout, "DeviceIoControl with IOCTL_DISK_SET_DRIVE_LAYOUT_EX error 31", kToMbr},
    {kWriting, kSetLayout, "IOCTL_DISK_SET_DRIVE_LAYOUT_EX Error: 31", kToGpt},

    {kLetters, "FindFirstVolumeA", "FindFirstVolumeA error 31"},
    {kLetters, "FindNextVolumeA"},  // taken for the end of the walk
    {.step = kLetters, .call = "FindVolumeClose", .open_handle = "volume walk"},
    {kLetters, "CreateFileA",
     "GetPartitionDiskindexAndOffset error: 31, volume_id: \\\\?\\Volume{"},
    {kLetters, kExtents, "IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS1 Error: 31"},
    {.step = kLetters, .call = "CloseHandle", .open_handle = kVolume},
    {kLetters, "GetVolumePathNamesForVolumeNameA",
     "GetVolumePathNamesForVolumeNameA error 31, device id \\\\?\\Volume{"},
    // No letter seems to be in use, so none is taken away, and no volume of a data disk can get a
    // second one. On a system disk each has its own already.
    {kLetters, "GetLogicalDrives", "SetVolumeMountPointA Error: 87", kProcesses},
    {kLetters, "GetLogicalDrives", nullptr, kInterpreter},
    {kLetters, "DeleteVolumeMountPointA", "DeleteVolumeMountPointA Error: 31"},
    {kLetters, "SetVolumeMountPointA", "SetVolumeMountPointA Error: 31"},
    // Tools that ask whether the system volume is there.
    {kLetters, "system"},
    {kLetters, "command/diskpart"},

    {kFormatting, "fwrite", kStore},
    {kAssigning, "fwrite", kStore},
    {kChoosingLetter, "GetLogicalDrives", kAssign},
    {kRecoverySettings, "remove"},
    {kRecoverySettings, "fopen", "File Open Failed: X:\\logs\\BCDEDIT_result.log"},
    {kRecoverySettings, "fread", kSetting, kAll, 1},
    {kRecoverySettings, "fread", nullptr, kAll, 2},
    {kBootStore, "DeleteFileA"},
    {.step = kEnding, .call = "CloseHandle", .open_handle = kDisk},

    // Tools. Neither what was written into a script nor the end of the wait is looked at.
    {std::nullopt, "_wfopen_s", "File not open: X:\\logs\\DISKPART_cmd.log"},
    {std::nullopt, "fwrite"},
    {std::nullopt, "fclose"},
    {std::nullopt, "ShellExecuteExW", "ShellExecuteExW fail"},
    {std::nullopt, "WaitForMultipleObjects"},
    {std::nullopt, "command/diskpart", kProcess, kProcesses},
    {kCleaning, "GetExitCodeProcess", kClean},
    {kCleaning, "system", kClean},
    {kCleaning, "command/diskpart", kClean},
    {kDecisiveRescan, "GetExitCodeProcess", kRescanLine},
    {kDecisiveRescan, "system", kRescanLine},
    {kDecisiveRescan, "command/diskpart", kRescanLine},
    {kRescan, "GetExitCodeProcess", kRescanLine},
    {kRescan, "system", kRescanLine},
    {kRescan, "command/diskpart", kRescanLine},
    {kFormatting, "system", kFormat},
    {kFormatting, "command/diskpart", kFormat},
    {kAssigning, "system", kAssign},
    {kAssigning, "command/diskpart", kAssign},
    {kActivating, "system", kActive},
    {kActivating, "command/diskpart", kActive},
    {kBootSector, "system", kMbrCode},
    {kBootSector, "command/bootsect", kMbrCode},
    {kBootStore, "system", kStore},
    {kBootStore, "command/bcdboot", kStore},
    {kRecoverySettings, "system", kListing, kAll, 1},
    {kRecoverySettings, "command/bcdedit", kListing, kAll, 1},
    {kRecoverySettings, "system", kSetting, kAll, 2},
    {kRecoverySettings, "command/bcdedit", kSetting, kAll, 2},
};

bool IsMetIn(In in, const Scenario& scenario, Verdict verdict) {
  switch (in) {
    case kAll:
      return true;
    case kToMbr:
      return scenario.direction == Direction::kGptToMbr;
    case kToGpt:
      return scenario.direction == Direction::kMbrToGpt;
    case kProcesses:
      return !scenario.system;
    case kInterpreter:
      return scenario.system.has_value();
    case kForgiven:
      return verdict == Verdict::kForgiven;
  }
  return false;
}

}  // namespace

std::span<const Sign> Signs() {
  return kSigns;
}

const Sign* FindSign(const Scenario& scenario, const Oracle& oracle, std::size_t place) {
  const PlacedCall& call = oracle.calls().at(place);
  const auto fits = [&](const Sign& sign) {
    return (!sign.step || *sign.step == call.step) && sign.call == call.name &&
           (sign.occurrence == 0 || sign.occurrence == call.occurrence) &&
           IsMetIn(sign.in, scenario, oracle.verdict(place));
  };
  const auto found = std::find_if(std::begin(kSigns), std::end(kSigns), fits);
  return found == std::end(kSigns) ? nullptr : &*found;
}

}  // namespace campaign
