// bcdboot, as far as a conversion uses it.
#pragma once

#include <string>
#include <vector>

#include "simulator/commands/command.h"

namespace simulator {

class System;

// Runs `bcdboot [/v] W:\Windows /s B: [/f uefi|bios]`: puts the files that start Windows on volume
// B, with a new store among them. Without /f the style of B's disk decides: UEFI for GPT, BIOS for
// MBR. Exit status 0; 1 for other arguments, a Windows folder that is not there, and a volume that
// is not there or has no room.
CommandResult RunBcdboot(System& system, const std::vector<std::string>& arguments);

}  // namespace simulator
