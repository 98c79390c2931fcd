// The libraries that can be loaded at run time, and the functions that are found in them.
#pragma once

#include <map>
#include <string>

#include "platform/win32_types.h"

namespace simulator {

// Functions by their names.
using LibraryFunctions = std::map<std::string, FARPROC>;

// The system's dump library: MiniDumpWriteDump writes the dump's header and its exception stream.
LibraryFunctions DbgHelpFunctions();

// Libraries by their file names in lower case.
using Libraries = std::map<std::string, LibraryFunctions>;

}  // namespace simulator
