// The tools that every simulated machine has from the start.
#pragma once

namespace simulator {

class SimulatedMachine;

void RegisterStandardCommands(SimulatedMachine& machine);

}  // namespace simulator
