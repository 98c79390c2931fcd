#include "conversion/failing_calls.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <string_view>

#include "conversion/control_calls.h"

namespace conversion {
namespace {

using enum Step;
using enum LeftBehind;

constexpr char kUpdateError[] = "DeviceIoControl with IOCTL_DISK_UPDATE_PROPERTIES error 31";
constexpr char kScriptError[] = "File not open: X:\\logs\\DISKPART_cmd.log";
constexpr char kToolError[] = "GetExitCodeProcess fail, error: 31, last error: ";
constexpr char kStartError[] = "ShellExecuteExW fail";
constexpr char kRunError[] = "[BackupRestore] ParseNtfsMftRecord: read ntfs meta error 31";
constexpr char kRescanError[] = "DISKPART_Rescan Failed!";

// The error of a call that fails on demand is 31.
constexpr Consequence kConsequences[] = {
    {kOpening, "CreateFileA", 0, 1, kUntouched,
     "open device failed, device_id: \\\\.\\PhysicalDrive1, error_code: 31", nullptr},
    {kOpening, kGetStyle, 0, 1, kUntouched,
     "DeviceIoControl with IOCTL_DISK_GET_PARTITION_INFO_EX error 31", nullptr},
    {kOpening, "SetFilePointer", 1, 1, kUntouched, "SetFilePointer Error: 31", nullptr},
    {kOpening, "SetFilePointer", 2, 1, kUntouched, "SetFilePointer Error: 31", nullptr},
    // Between the sectors of the table the read goes ahead, where the last one ended.
    {kOpening, "SetFilePointer", 3, 0, kConverted, "SetFilePointer Error: 31", nullptr},
    {kOpening, "ReadFile", 0, 1, kUntouched, "Read Error: 31", nullptr},

    {kBackingUp, "CreateFileA", 0, 1, kUntouched, "BackupDiskPartitionToStorage error -2", nullptr},
    // What cannot be read of the files of an NTFS volume, the third of five, is missing in the
    // backup, and nothing more.
    {kBackingUp, "SetFilePointerEx", 7, 0, kConverted, kRunError, nullptr},
    {kBackingUp, "SetFilePointerEx", 8, 0, kConverted, kRunError, nullptr},
    {kBackingUp, "SetFilePointerEx", 9, 0, kConverted, kRunError, nullptr},
    {kBackingUp, "SetFilePointerEx", 10, 0, kConverted, kRunError, nullptr},
    {kBackingUp, "SetFilePointerEx", 11, 0, kConverted, kRunError, nullptr},
    {kBackingUp, "SetFilePointerEx", 12, 0, kConverted, kRunError, nullptr},
    {kBackingUp, "SetFilePointerEx", 13, 0, kConverted, kRunError, nullptr},
    {kBackingUp, "SetFilePointerEx", 14, 0, kConverted, kRunError, nullptr},
    {kBackingUp, "SetFilePointerEx", 15, 0, kConverted, kRunError, nullptr},
    {kBackingUp, "ReadFile", 8, 0, kConverted, kRunError, nullptr},
    {kBackingUp, "ReadFile", 9, 0, kConverted, kRunError, nullptr},
    {kBackingUp, "ReadFile", 10, 0, kConverted, kRunError, nullptr},
    {kBackingUp, "ReadFile", 11, 0, kConverted, kRunError, nullptr},
    {kBackingUp, "ReadFile", 12, 0, kConverted, kRunError, nullptr},
    {kBackingUp, "ReadFile", 13, 0, kConverted, kRunError, nullptr},
    {kBackingUp, "ReadFile", 14, 0, kConverted, kRunError, nullptr},
    {kBackingUp, "ReadFile", 15, 0, kConverted, kRunError, nullptr},
    {kBackingUp, "ReadFile", 16, 0, kConverted, kRunError, nullptr},
    {kBackingUp, "SetFilePointerEx", 0, 1, kUntouched, "[BackupRestore] Parse", nullptr},
    {kBackingUp, "ReadFile", 0, 1, kUntouched, "[BackupRestore] Parse", nullptr},
    {kBackingUp, "CloseHandle", 0, 0, kConverted, nullptr, "disk 1"},

    {kShrinking, "CreateFileA", 0, 1, kRolledBack, "open device failed, device_id: \\\\?\\Volume{",
     nullptr},
    {kShrinking, kDismount, 0, 1, kRolledBack, "FSCTL_DISMOUNT_VOLUME Error: 31", nullptr},
    // Transfers have three attempts; a failed seek is not even logged.
    {kShrinking, "SetFilePointer", 0, 0, kConverted, nullptr, nullptr},
    {kShrinking, "ReadFile", 0, 0, kConverted, "Read Data Error! error_code: 31", nullptr},
    {kShrinking, "WriteFile", 0, 0, kConverted, "Write Data Error! error_code: 31", nullptr},
    {kShrinking, kDeviceNumber, 0, 1, kRolledBack,
     "DeviceIoControl with IOCTL_STORAGE_GET_DEVICE_NUMBER error 31", nullptr},
    {kShrinking, kGetLayout, 0, 1, kRolledBack, "IOCTL_DISK_GET_DRIVE_LAYOUT_EX Error: 31",
     nullptr},
    {kShrinking, kSetLayout, 0, 1, kRolledBack, "IOCTL_DISK_SET_DRIVE_LAYOUT_EX Error: 31",
     nullptr},
    {kShrinking, "CloseHandle", 0, 0, kConverted, nullptr, "volume \\\\?\\Volume{"},

    {kRescanAfterShrink, "_wfopen_s", 0, 1, kRolledBack, kScriptError, nullptr},
    {kRescanAfterShrink, "fwrite", 0, 0, kConverted, nullptr, nullptr},
    {kRescanAfterShrink, "fclose", 0, 0, kConverted, nullptr, nullptr},
    {kRescanAfterShrink, "ShellExecuteExW", 0, 1, kRolledBack, kStartError, nullptr},
    {kRescanAfterShrink, "command/diskpart", 0, 1, kRolledBack, kToolError, nullptr},
    {kRescanAfterShrink, "WaitForMultipleObjects", 0, 0, kConverted, nullptr, nullptr},
    {kRescanAfterShrink, "GetExitCodeProcess", 0, 1, kRolledBack, kRescanError, nullptr},
    {kReadingAgain, "SetFilePointer", 1, 1, kRolledBack, "SetFilePointer Error: 31", nullptr},
    {kReadingAgain, "SetFilePointer", 2, 1, kRolledBack, "SetFilePointer Error: 31", nullptr},
    {kReadingAgain, "SetFilePointer", 3, 0, kConverted, "SetFilePointer Error: 31", nullptr},
    {kReadingAgain, "ReadFile", 0, 1, kRolledBack, "Read Error: 31", nullptr},

    {kCleaning, "_wfopen_s", 0, 1, kRolledBack, kScriptError, nullptr},
    // What was written is not looked at: diskpart finds an empty script and is content.
    {kCleaning, "fwrite", 0, 0, kConvertedOverOldTable, nullptr, nullptr},
    {kCleaning, "fclose", 0, 0, kConverted, nullptr, nullptr},
    {kCleaning, "ShellExecuteExW", 0, 1, kRolledBack, kStartError, nullptr},
    {kCleaning, "command/diskpart", 0, 1, kRolledBack, kToolError, nullptr},
    {kCleaning, "WaitForMultipleObjects", 0, 0, kConverted, nullptr, nullptr},
    {kCleaning, "GetExitCodeProcess", 0, 1, kRolledBack, "DISKPART_Clean Failed!", nullptr},

    {kCreating, "time", 0, 0, kConvertedSignatureAllOnes, nullptr, nullptr},
    {kCreating, kCreateDisk, 0, 1, kRolledBack,
     "DeviceIoControl with IOCTL_DISK_CREATE_DISK error 31", nullptr},
    {kCreating, kUpdate, 0, 0, kConverted, kUpdateError, nullptr},
    {kFirstRescan, "_wfopen_s", 0, 0, kConverted, kScriptError, nullptr},
    {kFirstRescan, "fwrite", 0, 0, kConverted, nullptr, nullptr},
    {kFirstRescan, "fclose", 0, 0, kConverted, nullptr, nullptr},
    {kFirstRescan, "ShellExecuteExW", 0, 0, kConverted, kStartError, nullptr},
    {kFirstRescan, "command/diskpart", 0, 0, kConverted, kToolError, nullptr},
    {kFirstRescan, "WaitForMultipleObjects", 0, 0, kConverted, nullptr, nullptr},
    {kFirstRescan, "GetExitCodeProcess", 0, 0, kConverted, kRescanError, nullptr},

    {kBuilding, "CoCreateGuid", 0, 0, kConverted, "CoCreateGuid Error: 31", nullptr},
    {kWriting, kSetLayout, 0, 1, kRolledBack,
     "DeviceIoControl with IOCTL_DISK_SET_DRIVE_LAYOUT_EX error 31", nullptr},
    {kWriting, kUpdate, 0, 0, kConverted, kUpdateError, nullptr},
    {kSecondRescan, "_wfopen_s", 0, 0, kConverted, kScriptError, nullptr},
    {kSecondRescan, "fwrite", 0, 0, kConverted, nullptr, nullptr},
    {kSecondRescan, "fclose", 0, 0, kConverted, nullptr, nullptr},
    {kSecondRescan, "ShellExecuteExW", 0, 0, kConverted, kStartError, nullptr},
    {kSecondRescan, "command/diskpart", 0, 0, kConverted, kToolError, nullptr},
    {kSecondRescan, "WaitForMultipleObjects", 0, 0, kConverted, nullptr, nullptr},
    {kSecondRescan, "GetExitCodeProcess", 0, 0, kConverted, kRescanError, nullptr},

    {kLetters, "FindFirstVolumeA", 0, 0, kConverted, "FindFirstVolumeA error 31", nullptr},
    // Taken for the end of the walk.
    {kLetters, "FindNextVolumeA", 0, 0, kConverted, nullptr, nullptr},
    {kLetters, "FindVolumeClose", 0, 0, kConverted, nullptr, "volume walk"},
    {kLetters, "CreateFileA", 0, 0, kConverted,
     "GetPartitionDiskindexAndOffset error: 31, volume_id: \\\\?\\Volume{", nullptr},
    {kLetters, kExtents, 0, 0, kConverted, "IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS1 Error: 31",
     nullptr},
    {kLetters, "CloseHandle", 0, 0, kConverted, nullptr, "volume \\\\?\\Volume{"},
    {kLetters, "GetVolumePathNamesForVolumeNameA", 0, 0, kConverted,
     "GetVolumePathNamesForVolumeNameA error 31, device id \\\\?\\Volume{", nullptr},
    // No letter seems to be in use, so none is taken away, and no volume can get a second one.
    {kLetters, "GetLogicalDrives", 0, 0, kConverted, "SetVolumeMountPointA Error: 87", nullptr},
    {kLetters, "DeleteVolumeMountPointA", 0, 0, kConverted, "DeleteVolumeMountPointA Error: 31",
     nullptr},
    {kLetters, "SetVolumeMountPointA", 0, 0, kConverted, "SetVolumeMountPointA Error: 31", nullptr},
    {kEnding, "CloseHandle", 0, 0, kConverted, nullptr, "disk 1"},
};

struct Beginning {
  std::string_view line;
  Step before;
  Step step;
};

// A rescan is told from the others by what went before it.
constexpr Beginning kBeginnings[] = {
    {"log 1: [BackupRestore] DoBackup", kOpening, kBackingUp},
    {"log 1: CompressPart Begin...", kBackingUp, kShrinking},
    {"log 1: DISKPART_Rescan Begin...", kShrinking, kRescanAfterShrink},
    {"log 1: DISKPART_Rescan Success!", kRescanAfterShrink, kReadingAgain},
    {"log 1: DISKPART_Clean Begin...", kBackingUp, kCleaning},
    {"log 1: DISKPART_Clean Begin...", kReadingAgain, kCleaning},
    {"status 3", kCleaning, kCreating},
    {"log 1: DISKPART_Rescan Begin...", kCreating, kFirstRescan},
    {"log 1: DISKPART_Rescan Success!", kFirstRescan, kBuilding},
    {"log 1: Set mbr partition table", kBuilding, kWriting},
    {"log 1: DISKPART_Rescan Begin...", kWriting, kSecondRescan},
    {"log 1: RestoreVolumeInfosAfterConvert Begin...", kSecondRescan, kLetters},
    {"log 1: RestoreVolumeInfosAfterConvert End!", kLetters, kEnding},
};

}  // namespace

const char* StepName(Step step) {
  static constexpr std::array kNames = {
      "opening",       "backup",   "shrinking",     "rescan after a shrink",
      "reading again", "cleaning", "creating",      "first rescan",
      "building",      "writing",  "second rescan", "letters",
      "ending"};
  return kNames.at(static_cast<std::size_t>(step));
}

Step NextStep(Step step, const std::string& line) {
  const auto begins = [&](const Beginning& b) {
    return b.before == step && line.starts_with(b.line);
  };
  const auto found = std::find_if(std::begin(kBeginnings), std::end(kBeginnings), begins);
  return found == std::end(kBeginnings) ? step : found->step;
}

const Consequence* FindConsequence(const CallPlace& place) {
  const auto fits = [&place](const Consequence& c) {
    return c.step == place.step && c.call == place.name &&
           (c.occurrence == 0 || c.occurrence == place.occurrence);
  };
  const auto found = std::find_if(std::begin(kConsequences), std::end(kConsequences), fits);
  return found == std::end(kConsequences) ? nullptr : &*found;
}

}  // namespace conversion
