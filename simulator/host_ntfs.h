// What Windows does to an NTFS volume as a whole, done by the host's ntfsfix and ntfsresize on a
// copy of the volume. The machine itself only knows NTFS boot sectors.
#pragma once

#include <cstdint>

#include "simulator/storage/block_device.h"

namespace simulator {

enum class NtfsOutcome {
  kClean,     // nothing to do
  kDone,      // repaired, or shrunk
  kDamaged,   // it has to be repaired first, or cannot be
  kNoRoom,    // what is in use does not fit
  kNoTool,    // the host lacks the programs, as one that is Windows does
  kNotMoved,  // the volume could not be read from the disk or written back
};

// Both take the place of the volume on the disk in bytes.

// Looks for damage and for a check that the volume was scheduled for, and repairs it.
NtfsOutcome RepairNtfs(BlockDevice& device, std::uint64_t offset, std::uint64_t length);

// Makes the volume end at `new_length`, moving what lies behind. Nothing changes on the disk unless
// the result is kDone.
NtfsOutcome ShrinkNtfs(BlockDevice& device, std::uint64_t offset, std::uint64_t length,
                       std::uint64_t new_length);

}  // namespace simulator
