// GPT to MBR: replaces the table around partitions that stay where they are. At most three stay
// primary; the others become logical, each with the room of a boot record in front, which is made
// by shrinking the partition in front where it is missing. EFI system, Microsoft reserved and
// hidden partitions leave the table.
#pragma once

#include "convert/partition_row.h"
#include "frame/velkora.h"

namespace velkora {

// The whole path of a disk of type GPT: reads the table, backs the disk's metadata up, converts
// behind a guard, and rolls back after a failure. Returns whether the disk was converted. The log
// and the callback tell the rest; "Get partitions fail!" (level 3) stands for a table that could
// not be read, of which the callback hears nothing.
bool ConvertGptToMbr(Velkora& converter);

// The conversion itself, which undoes nothing.
bool GPT2MBR(Velkora& converter, const GptPartitionList& list);

// Asks for 5 MiB from each row, from the third on, that ends less than 2048 sectors in front of the
// next, in table order. After a shrink the list is read anew. False when a shrink, the rescan or
// the read failed, or a stop was asked for.
bool EnsureLogicalGaps(Velkora& converter, GptPartitionList& rows);

// The first volume that holds the running system; null when there is none or a stop was asked for.
VolumeInfo* FindSystemVolume(const Velkora& converter);

}  // namespace velkora
