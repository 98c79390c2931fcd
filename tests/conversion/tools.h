// Programs of the host that make disks and file systems, and judge them. One that is missing or
// that fails throws, so that a test never passes without its judge.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace conversion {

// Standard output and standard error of a run that must end with status 0.
std::string Tool(const std::vector<std::string>& argv, std::string_view input = {});

}  // namespace conversion
