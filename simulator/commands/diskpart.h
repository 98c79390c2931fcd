// diskpart, as far as scripts of this library use it.
#pragma once

#include <string>
#include <vector>

#include "simulator/commands/command.h"

namespace simulator {

class System;

// Runs `diskpart /s <script>`: one line after the other, stopping at the first that fails. The exit
// status is 0 or the failing line's HRESULT as an unsigned number. Knows select disk, select part,
// list part, detail volume, clean, convert gpt|mbr, create part efi size=, format fs=fat32 quick
// override, active, assign letter=, remove letter=, rescan, offline disk and online disk.
CommandResult RunDiskpart(System& system, const std::vector<std::string>& arguments);

// Calls on_script with the script that the arguments name, if it can be read. For a run that fails
// on demand; RunDiskpart does it itself.
void TellDiskpartScript(System& system, const std::vector<std::string>& arguments);

}  // namespace simulator
