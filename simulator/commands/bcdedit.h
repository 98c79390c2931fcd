// bcdedit, as far as a conversion uses it.
#pragma once

#include <string>
#include <vector>

#include "simulator/commands/command.h"

namespace simulator {

class System;

// Runs `bcdedit [/store F]` and `bcdedit [/store F] /enum [all]`, which list a store, and
// `bcdedit [/store F] /set {id} name value`, which changes an element of an object. Without /store
// it is the machine's own one. Exit status 0; 1 for other arguments (a /set without an identifier
// among them), an object that is not there, and a file that is missing or no store.
CommandResult RunBcdedit(System& system, const std::vector<std::string>& arguments);

}  // namespace simulator
