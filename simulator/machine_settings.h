// What the builder of a simulated machine sets and the machine reads whenever it matters.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "simulator/libraries.h"

namespace simulator {

// By which way a line reached the command interpreter.
enum class ShellRoute { kSystem, kElevated };

struct MachineSettings {
  // How long each tool takes.
  std::uint64_t command_milliseconds = 200;

  // How many runs of diskpart's `detail volume` on a disk fail after each change of its layout, as
  // its partitions need a while to be mounted.
  std::uint32_t mount_delay_runs = 0;

  // What bcdedit takes for the store that the machine was started from; made at its first use.
  std::string own_boot_store;

  // What can be loaded at run time: the system's dump library, unless its builder takes it away.
  Libraries libraries = {{"dbghelp.dll", DbgHelpFunctions()}};

  // Called for each script that diskpart is given and each line that reaches the interpreter, in
  // the order of events.
  std::function<void(std::string_view script)> on_script;
  std::function<void(ShellRoute route, std::string_view line)> on_shell_line;
};

}  // namespace simulator
