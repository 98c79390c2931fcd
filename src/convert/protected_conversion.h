// The safety around both conversions: a backup of the disk's metadata before anything is touched, a
// guard around the conversion, and one way back for every failure, from a stop before anything was
// changed to a fault in the middle of the table.
#pragma once

#include <cstdint>

#include "convert/partition_row.h"
#include "frame/velkora.h"

namespace velkora {

// Releases the backup of an earlier run and takes a new one of the partitions in
// `partition_offsets`. Returns 0 or a code of the backup module, whose log tells the rest.
std::int32_t BackUpDisk(Velkora& converter);

// "BackupDiskPartitionToStorage error %d", level 3.
void LogBackupError(std::int32_t error);

// The conversion, and what follows from its outcome: on success the backup is released; after a
// failure or a caught fault the disk is rolled back to its former style. A fault during the
// rollback of a failure starts the rollback again; one during that second rollback leaves the
// call (Convert turns a C++ exception into a failure). Each returns whether the disk was converted.
bool GuardedGPT2MBR(Velkora& converter, const GptPartitionList& list);
bool GuardedMBR2GPT(Velkora& converter, const MbrPartitionList& list);

// Empties the disk, gives it its former style ("gpt" or "mbr", as diskpart spells it) and writes
// the backup back, however far the conversion came. Does not look at the stop flag, except that the
// letters are not restored after a stop. Sends status 9, then 100 percent and 10 or 11. Returns
// whether the backup was written back; blocks that could not be written are in the log alone.
// Messages: "Restore Begin..." (level 1), "RestoreDiskPartitionFromStorage fail %u times, error:
// %d" (3), "RestoreVolumeInfos Error: %d" (3), "Restore Succeed!" (1), "Restore Fail!" (3).
bool RollbackConvert(Velkora& converter, const char* style);

}  // namespace velkora
