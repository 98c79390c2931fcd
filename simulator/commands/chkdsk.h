// chkdsk, as far as it repairs an NTFS volume.
#pragma once

#include <string>
#include <vector>

#include "simulator/commands/command.h"

namespace simulator {

class System;

// Runs `chkdsk VOLUME /x` (or /f): dismounts the volume, which is a letter with its colon or a
// volume path, has the host's programs repair it, and mounts it again. Exit status 0 for a volume
// without damage, 1 for one that was repaired, 3 when it could not be checked: other arguments, no
// such volume on one disk, one that is locked or not NTFS, a host without the programs.
CommandResult RunChkdsk(System& system, const std::vector<std::string>& arguments);

}  // namespace simulator
