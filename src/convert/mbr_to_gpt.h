// MBR to GPT: primary and logical partitions become the entries of one flat table, around
// partitions that stay where they are. Two pieces of room have to exist first: 33 sectors behind
// the last partition for the secondary table, and on a system disk 300 MiB for a new EFI system
// partition, which is then formatted and given a boot configuration.
#pragma once

#include <cstdint>
#include <string>

#include "convert/partition_row.h"
#include "frame/velkora.h"

namespace velkora {

// The whole path of a disk of type MBR: reads the table, backs the disk's metadata up, converts
// behind a guard, and rolls back after a failure. Returns whether the disk was converted. The log
// and the callback tell the rest. The callback is told nothing of a table whose first read fails
// ("Get partitions fail!", level 3) and of a backup that fails.
bool ConvertMbrToGpt(Velkora& converter);

// The conversion itself, which undoes nothing.
bool MBR2GPT(Velkora& converter, const MbrPartitionList& list);

// Shrinks the last row of the sorted list by 1 MiB if it ends less than 33 sectors in front of the
// disk's end, and reads the list anew. False when the shrink, the rescan or the read failed, or a
// stop was asked for during the read. The list is whole then if the read was not begun, and
// otherwise holds the rows that were read before it failed, maybe none.
bool EnsureGptTailRoom(Velkora& converter, MbrPartitionList& rows);

// On a system disk finds 300 MiB (in a gap, behind the last row, or by shrinking the last row that
// is longer than 1 GiB by 302 MiB), reads the list anew and adds the EFI row to it. `efi_position`
// becomes that row's place in the sorted list, from 1. On a data disk does nothing. Throws
// std::out_of_range for an empty list on a system disk.
bool EnsureEfiRoom(Velkora& converter, MbrPartitionList& rows, std::uint32_t* efi_position);

// The letter of the first volume that holds the running system and has one.
bool GetSystemVolumeLetter(const Velkora& converter, std::string& letter);

}  // namespace velkora
