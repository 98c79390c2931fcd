// Brings the caller's records back in line with the machine after a rewrite of a partition table,
// for a flow that has lost its handle and must work from the records. The conversions hold theirs
// from start to end and need none of this.
//
// A disk is found by its stored path, else by serial number or disk number among all disks; a
// volume by its stored path, else by disk number and start offset among all volumes. A new path is
// copied into its field of 256 bytes without a terminator; one that is longer raises an access
// violation. A failed search leaves the records as they were.
#pragma once

#include <cstdint>

#include "frame/velkora.h"
#include "frame/velkora_sdk.h"
#include "platform/win32_types.h"

namespace velkora {

// Opens the record's disk as the converter's `disk_handle` and stores its number. A path that opens
// is trusted; one that is not found (error 2 or 6) sends the search for the serial number over all
// disks, and on a match the path is stored too. False after any other failed open, a stop, or
// without a match; `disk_handle` is not open then. Logs "Check and update disk info" (level 1).
bool CheckAndUpdateDiskInfo(Velkora& converter);

// Searches all disks for the record's serial number; stores the path and the number, and hands out
// the open handle. Serial numbers match when, without blanks around them, one begins with the
// other, so an empty one matches everything. Logs "disk id: %s, disk_serial_num: %s" for each disk
// that was asked and "correct device_path: %s" for the match (level 1), and "GetDiskDevicePaths
// Fail", "GetDeviceHandleById Fail", "GetDeviceIndexByHandle Fail" and "GetDiskSerialId Fail"
// (level 3). The handles of disks that did not match stay open.
bool CorrectDiskBySerial(DiskInfo& disk, HANDLE& handle);

// The same by the record's disk number, which stays as it is; no serial number is asked for.
bool CorrectDiskByIndex(DiskInfo& disk, HANDLE& handle);

// Copies the path of each volume that starts at the record's offset of the disk over the start of
// the record's path, the last one last; what a longer path has left behind it stays. True unless
// the walk over the volumes fails ("GetVolumePaths Error: %lu", level 3). Logs "UpdateVolumeId
// Begin..." and "UpdateVolumeId End!" (level 1), and for a volume that does not tell its place
// "GetPartitionDiskindexAndOffset Error: %d, volume_id: %s" (level 3).
bool UpdateVolumeId(VolumeInfo& volume, std::int32_t disk_index);

// Leaves a record whose path opens; otherwise, if it was not found (error 2 or 6), stores the path
// of the first volume that starts at the record's offset of the converter's disk. False without a
// match. Logs "Check and update volume id" (level 1), "GetVolumePaths Error: %lu" and
// "GetPartitionDiskindexAndOffset error: %d, volume_id: %s" (level 3).
bool CheckAndUpdateVolumeId(const Velkora& converter, VolumeInfo& volume);

// Numbers the partitions of the open disk in the order of their starts, marks each row to be
// rewritten and writes the layout back, also when nothing has changed. Rows without a number stay
// as they are; rows with the same start get the same number. Logs "before part number: %d, start:
// %llu, length: %llu" and "now part number: …" for each row (level 1), and
// "IOCTL_DISK_GET_DRIVE_LAYOUT_EX Error: %d" or "IOCTL_DISK_SET_DRIVE_LAYOUT_EX Error: %d"
// (level 3).
bool RenumberPartitions(HANDLE disk);

// Log all volumes with their letters, and all disks with their serial numbers. The handles of the
// disks stay open, and LogDiskSerials always returns false.
void LogVolumeList();
bool LogDiskSerials();

}  // namespace velkora
