#include "simulator/commands/standard_commands.h"

#include "simulator/commands/diskpart.h"
#include "simulator/simulated_machine.h"

namespace simulator {

void RegisterStandardCommands(SimulatedMachine& machine) {
  machine.SetCommand("diskpart", RunDiskpart);
}

}  // namespace simulator
