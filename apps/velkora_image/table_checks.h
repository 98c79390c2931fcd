// Partition tables that a conversion, or the rollback of one, would do harm to.
#pragma once

#include "apps/velkora_image/partition_view.h"
#include "simulator/storage/block_device.h"

namespace velkora_image {

// Reads the table's own sectors; `view` is what the system sees of them, `is_system` whether the
// machine runs from the disk. Throws InputError that names the field and its value.
void CheckTable(simulator::BlockDevice& device, const DiskView& view, bool is_system);

}  // namespace velkora_image
