// Reads a disk's own table with plain sector reads on the open disk. Sectors have 512 bytes.
#pragma once

#include "convert/partition_row.h"
#include "platform/win32_types.h"

namespace velkora {

// Append the rows of the table to `rows`, in table order. False when a seek fails ("SetFilePointer
// Error: %d", level 3), a read fails ("Read Error: %d", level 3), or a stop was asked for (no
// line); rows read so far stay in the list.
//
// The GPT list ends at the first entry whose unique GUID is zero, or after 129 entries. Signature,
// checksums, count and size of entries are not looked at.
bool ReadGptPartitions(HANDLE disk, GptPartitionList& rows);

// Walks the chains of extended boot records (types 5 and 15). A record whose second row is neither
// a link nor empty is read again without end; a chain that comes back to one of its own records
// throws std::bad_alloc at the second record of the same place.
bool ReadMbrPartitions(HANDLE disk, MbrPartitionList& rows);

}  // namespace velkora
