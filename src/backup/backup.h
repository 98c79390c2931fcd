// Takes a backup of a disk's metadata, into memory or into a file. The disk is only read.
//
// Both entry points take the device path of the disk (`device_id`, as CreateFileA takes it) and the
// byte offsets of the partitions whose file systems are wanted, and return a code of
// return_codes.h. They open the disk for themselves and close it again, except where a fault or a
// file that cannot be opened abandons the handle. Faults and exceptions end in -18. Not to be
// called from two threads at once.
//
// Messages, beside those of the parsers: "[%s] %s device_id=%s, offsets=%s" (level 1; the file form
// adds ", path=%s"), "[%s] %s OpenDisk %s failed. error = %d" (1), "[%s] %s fopen %s failed. error
// = %d" (1), "[%s] [E] %s crash!" (3).
#pragma once

#include <cstdint>
#include <vector>

#include "backup/backup_storage.h"

namespace velkora {

// To the file at `path`, which is emptied as soon as the disk is open, also when the parse then
// fails. Returns 0, -2, -9, -10, -12 to -16 or -18. On -9 the disk handle stays open.
std::int32_t BackupDiskPartition(const char* device_id, const std::vector<std::uint64_t>& offsets,
                                 const char* path);

// To memory. `offsets` points to `count` values. `*storage` is as of FillBackupStorage: null for a
// new object, which then belongs to the caller until ReleaseBackupData or the restore; it stays as
// it is when the parse fails. Returns 0, -2, -10, -12 to -16 or -18, the last also for more than
// 256 blocks and for an object that was released.
std::int32_t BackupDiskPartitionToStorage(const char* device_id, const std::uint64_t* offsets,
                                          std::uint32_t count, BackupStorage** storage);

}  // namespace velkora
