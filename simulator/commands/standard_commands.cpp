#include "simulator/commands/standard_commands.h"

#include "simulator/commands/bcdboot.h"
#include "simulator/commands/bcdedit.h"
#include "simulator/commands/bootsect.h"
#include "simulator/commands/diskpart.h"
#include "simulator/simulated_machine.h"

namespace simulator {

void RegisterStandardCommands(SimulatedMachine& machine) {
  machine.SetCommand("bcdboot", RunBcdboot);
  machine.SetCommand("bcdedit", RunBcdedit);
  machine.SetCommand("bootsect", RunBootsect);
  machine.SetCommand("diskpart", RunDiskpart);
}

}  // namespace simulator
