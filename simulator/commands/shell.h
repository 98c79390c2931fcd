// The command interpreter's rules for one line.
#pragma once

#include <string_view>

#include "platform/win32_types.h"

namespace simulator {

class System;

// Runs what stands behind `cmd.exe /c`: applies the interpreter's rules for quotes, splits off a
// redirection (`>` or `>>`, the path with or without quotes), finds the tool by its name (with or
// without ".exe", without regard to case), runs it and returns its exit status. 1 for an unknown
// tool or a redirection that cannot be opened; the tool does not run then.
DWORD RunShellLine(System& system, std::string_view line);

// What `cmd.exe` started with exactly these parameters would do: with "/c" as above. Without /c or
// /k the interpreter ignores the text and waits for a person: that never ends, so each wait counts
// against the call budget.
DWORD RunCommandInterpreter(System& system, std::string_view parameters);

}  // namespace simulator
