// The arguments of velkora-conformance.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace conformance {

extern const char kUsage[];

struct CommandLine {
  bool help = false;
  std::optional<std::uint32_t> disk;  // given up by the person who runs the program
  std::string error;                  // names the argument and its value; empty when all is well
};

CommandLine ParseCommandLine(const std::vector<std::string>& arguments);

}  // namespace conformance
