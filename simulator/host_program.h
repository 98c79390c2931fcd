// Programs of the host that the machine lets work for it.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace simulator {

struct HostProgramResult {
  int exit_status = 0;  // 128 + signal when a signal ended it
  std::string output;   // standard output and standard error as they came
};

// Runs `argv[0]` (no shell; found by PATH or in the sbin folders) without input, its texts in
// English, and waits for its end. Nothing when there is no such program, and always on a host that
// is Windows.
std::optional<HostProgramResult> RunHostProgram(std::vector<std::string> argv);

}  // namespace simulator
