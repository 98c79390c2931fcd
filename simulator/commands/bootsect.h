// bootsect, as far as a conversion uses it.
#pragma once

#include <string>
#include <vector>

#include "simulator/commands/command.h"

namespace simulator {

class System;

// Runs `bootsect /nt60 X: [/force] [/mbr]`: puts boot code into the volume's boot sector, around
// the parameters of its file system, and with /mbr into the boot record of the volume's disk, whose
// bytes from 440 on stay. Exit status 0; 1 for other arguments, a letter without a volume on one
// disk, and a file system other than NTFS and FAT.
CommandResult RunBootsect(System& system, const std::vector<std::string>& arguments);

}  // namespace simulator
