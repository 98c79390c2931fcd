// States of a campaign's disk, as overlays of its image, and what differs between two of them.
#pragma once

#include <vector>

#include "campaign/base_disk.h"
#include "simulator/storage/image_overlay.h"

namespace campaign {

using simulator::ByteRange;
using simulator::ImageOverlay;
using ByteRanges = std::vector<ByteRange>;

// Bytes in which the two states differ, ascending, each range as long as it can be.
ByteRanges Differences(const BaseDisk& disk, ImageOverlay& left, ImageOverlay& right);
// Bytes in which a state differs from the untouched disk.
ByteRanges Changes(const BaseDisk& disk, const ImageOverlay& state);

// The parts of `ranges` that lie in none of `others`.
ByteRanges Outside(ByteRanges ranges, const ByteRanges& others);

// Where the blocks of the backup lie.
ByteRanges BlockRanges(const BaseDisk& disk);
// The first and last MiB, which diskpart's `clean` zeroes.
ByteRanges DiskEnds(const BaseDisk& disk);

// What a rollback leaves of the untouched disk when all of it succeeds: both ends zeroed, on a GPT
// disk a protective record in sector 0, and the blocks in their places. Those of the secondary GPT
// hold the primary's bytes.
ImageOverlay RolledBack(const BaseDisk& disk);

}  // namespace campaign
