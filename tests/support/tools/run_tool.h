// Runs a program of the host, for tests that let other tools make or judge a disk. POSIX only.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace testing_support {

struct ToolResult {
  int exit_status;     // 128 + signal when a signal ended it, 127 when it could not be started
  std::string output;  // standard output and standard error as they came
};

// Runs `argv[0]` (no shell; found by PATH or in the sbin folders) with `input` as its standard
// input, and waits for its end. A tool that is named without a path does not sleep and does not
// flush. Precondition: `argv` is not empty.
ToolResult RunTool(const std::vector<std::string>& argv, std::string_view input = {});

}  // namespace testing_support
