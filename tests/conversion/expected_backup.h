// What a backup holds of a disk, worked out from the formats on the disk alone.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "conversion/gpt_disk.h"
#include "conversion/image_bytes.h"

namespace conversion {

// Bytes by their offset on the disk.
using Blocks = std::map<std::uint64_t, std::vector<std::uint8_t>>;

bool HasGpt(const ImageFile& image);

// The blocks of a disk with a table. Of the table: sector 0 and every boot record of the chain, or
// a GPT's header and array, which are written to the secondary place as well. Of each partition in
// `wanted` that the walk over the table meets (behind the link to a chain it looks at nothing, nor
// behind an unused GPT entry), what its file system keeps of itself:
//
//   NTFS     the boot sector, the first 16 MFT records and those of the $Extend directory, and the
//            start of these files: 4 MiB at most of the first run of each stream and index. The
//            sparse stream of bad clusters, whose run has no place, brings the volume's first 4 MiB
//   FAT16    all in front of the data area
//   FAT32    the same, and the root directory
//   others   2048 bytes
Blocks BackedUpBlocks(const ImageFile& image, const Partitions& wanted);

}  // namespace conversion
