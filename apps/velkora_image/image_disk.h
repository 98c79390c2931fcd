// An image file as a disk of a simulated machine, and the letters that its volumes get.
#pragma once

#include <cstdint>
#include <filesystem>

#include "apps/velkora_image/options.h"
#include "apps/velkora_image/partition_view.h"
#include "simulator/simulated_machine.h"

namespace velkora_image {

inline constexpr std::uint32_t kImageDiskNumber = 1;
inline constexpr char kLogsLetter = 'X';

// Attaches the image as disk 1; no volume has a letter then, and later arrivals get one by
// themselves. Throws InputError for a file that cannot be a disk.
simulator::Disk& AttachImage(simulator::SimulatedMachine& machine,
                             const std::filesystem::path& image, simulator::Access access);

// Gives the volumes that Windows would mount the letters C, D, E... in disk order, but for those
// that `choices` gives another and for EFI system and hidden partitions. Throws InputError for a
// choice that cannot be: no such partition, none with a volume, a letter that is taken.
void GiveLetters(simulator::SimulatedMachine& machine, simulator::Disk& disk,
                 const LetterChoices& choices);

// Throws InputError when no volume of the disk has that letter, or one that Windows does not read.
void CheckSystemVolume(simulator::SimulatedMachine& machine, simulator::Disk& disk, char letter);

// Makes this the disk that the machine runs from, with a Windows folder on the checked volume at
// `letter`. A FAT32 volume that has none gets it in the image; for others the machine keeps it
// beside the image. Throws InputError when there is no room for it.
void InstallWindows(simulator::SimulatedMachine& machine, simulator::Disk& disk, char letter);

}  // namespace velkora_image
