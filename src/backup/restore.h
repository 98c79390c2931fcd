// Writes a backup back: every block to its place on the disk, raw and without a question, after the
// volume under it has been dismounted; then the system looks at the disk anew.
//
// Which disk, the device path in the backup tells, and nothing else: no signature, size or serial
// number is compared. A block that cannot be written is logged ("[%s] %s offset 0x%x failed! write
// %llu bytes, ret=%llu, error=%d", level 3) and holds nothing up: the restore still returns 0.
// Faults and exceptions end in -18 ("[%s] [E] %s crash!", level 3). Not to be called from two
// threads at once.
//
// Further messages: "[%s] %s backup storage block count=%d", "[%s] %s backup storage block count
// zero", "[%s] %s path=%s", "[%s] %s OpenDisk %s failed. error = %d", "[%s] %s fopen %s failed.
// error = %d", "[%s] %s dismount volume %s failed. error=%d", "[%s] %s failed. error=%d" (all level
// 1),
// "[%s] %s update error=%d" (3).
#pragma once

#include <cstdint>

#include "backup/backup_storage.h"

namespace velkora {

// From the backup file at `path`. Returns 0, -2, -9, -11, -17 or -18.
std::int32_t RestoreDiskPartition(const char* path);

// From memory. Null returns 0 and logs nothing; an object without blocks returns 0 and stays. Once
// the disk is open the object is released, whatever comes of the restore; on -2 it is intact, and
// the call may be tried again. A released object fails with -18 and writes nothing. Returns 0, -2,
// -11, -17 or -18.
std::int32_t RestoreDiskPartitionFromStorage(BackupStorage* storage);

// Ends a backup; null is ignored. Returns 0, or -18 for an object that was released before.
std::int32_t ReleaseBackupData(BackupStorage* storage);

}  // namespace velkora
