// BootRec, as far as a repair uses it.
#pragma once

#include <string>
#include <vector>

#include "simulator/commands/command.h"

namespace simulator {

class System;

// Runs BootRec on the machine's system disk: `/fixmbr` puts boot code into the boot record,
// `/fixboot` into the boot sector of the partition that the machine starts from (the active one, or
// the EFI system partition), and `/rebuildbcd` makes a new boot store there for the first Windows
// folder that it finds on a volume with a letter. Exit status 0, also for a machine without
// Windows, whose store stays; 1 for other arguments and for a disk, partition or file system that
// it cannot work on.
//
// Unlike the other tools it stands in no folder of the system: it is run by the path of a file that
// the machine's builder puts somewhere.
CommandResult RunBootrec(System& system, const std::vector<std::string>& arguments);

}  // namespace simulator
