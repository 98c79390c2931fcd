// Kinds of GPT partitions, which of them survive a conversion, and the order of lists.
#pragma once

#include <cstdint>
#include <vector>

#include "convert/partition_row.h"

namespace velkora {

// One of "ESP", "MSR", "BASIC_DATA", "HIDDEN" and, for anything else, "UNKNOW". "HIDDEN" is this
// library's own marker: what becomes of an MBR row of type 0xFF. A Windows recovery partition is
// "UNKNOW".
const char* GetPartitionTypeName(const GptPartitionRow& row);

// Whether the row is "ESP", "MSR" or "HIDDEN".
bool IsDroppedOnTheWayToMbr(const GptPartitionRow& row);

// Takes those rows out of the list; the others keep their order.
void FilterGptPartitions(GptPartitionList& rows);

// Each row's first sector times 512, in list order.
std::vector<std::uint64_t> GptPartitionOffsets(const GptPartitionList& rows);
std::vector<std::uint64_t> MbrPartitionOffsets(const MbrPartitionList& rows);

// By first sector, ascending.
void SortByFirstSector(GptPartitionList& rows);
void SortByFirstSector(MbrPartitionList& rows);

}  // namespace velkora
