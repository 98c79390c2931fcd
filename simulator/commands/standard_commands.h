// The tools that every simulated machine has from the start.
#pragma once

namespace simulator {

class System;

void RegisterStandardCommands(System& system);

}  // namespace simulator
