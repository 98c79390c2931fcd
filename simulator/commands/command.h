// What a tool of the simulated machine is: a function from its arguments to console text and an
// exit status.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform/win32_types.h"

namespace simulator {

class SimulatedMachine;

struct CommandResult {
  DWORD exit_status = 0;  // the tool's, all 32 bits of it
  std::string output;     // console text, lines ending in CR LF; goes where the line redirects it
};

// `arguments` are the words behind the tool's name, without their quotes.
using Command = std::function<CommandResult(SimulatedMachine& machine,
                                            const std::vector<std::string>& arguments)>;

}  // namespace simulator
