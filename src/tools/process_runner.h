// Starts tools: one shell line at a time, judged by its exit status alone.
#pragma once

#include <cstdint>
#include <string>

namespace velkora {

// Starts `file` with `parameters` under the "runas" verb without a window, waits without limit, and
// returns true only if the process ended with status 0. `exit_code`, if given, receives a nonzero
// status; it is not written on success or when there is no status.
// Logs, level 3: "ShellExecuteExW fail", or "GetExitCodeProcess fail, error: %d, last error: %d"
// with the status for a tool that ended with a nonzero one (its words speak of a failed call though
// the call succeeded). The process handle is not closed: each run leaves one open until the process
// ends. Throws std::range_error for texts that are not UTF-8.
bool RunElevatedAndWait(const std::string& parameters, const std::string& file,
                        std::uint32_t* exit_code);

// Runs a finished shell line as it stands by the route that GlobalContext::is_system selects:
// `system(line)`, true if it returned 0, on a system disk; else RunElevatedAndWait of cmd.exe with
// the bare line, without "/c ". The boot tools run for system disks alone, so that a conversion
// never takes the elevated branch, in which the interpreter would ignore the line.
bool RunBareLineByRoute(const std::string& line);

}  // namespace velkora
