#include "simulator/commands/standard_commands.h"

#include "simulator/commands/bcdboot.h"
#include "simulator/commands/bcdedit.h"
#include "simulator/commands/bootrec.h"
#include "simulator/commands/bootsect.h"
#include "simulator/commands/chkdsk.h"
#include "simulator/commands/diskpart.h"
#include "simulator/simulated_machine.h"

namespace simulator {

void RegisterStandardCommands(SimulatedMachine& machine) {
  machine.SetCommand("bcdboot", RunBcdboot);
  machine.SetCommand("bcdedit", RunBcdedit);
  machine.SetCommand("bootrec", RunBootrec);
  machine.SetCommand("bootsect", RunBootsect);
  machine.SetCommand("chkdsk", RunChkdsk);
  machine.SetCommand("diskpart", RunDiskpart);
}

}  // namespace simulator
