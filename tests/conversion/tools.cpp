#include "conversion/tools.h"

#include <stdexcept>

#include "support/tools/run_tool.h"

namespace conversion {

std::string Tool(const std::vector<std::string>& argv, std::string_view input) {
  const testing_support::ToolResult result = testing_support::RunTool(argv, input);
  if (result.exit_status == 0) return result.output;
  std::string line;
  for (const std::string& word : argv) line += word + " ";
  throw std::runtime_error(line + "ended with " + std::to_string(result.exit_status) + ": " +
                           result.output);
}

}  // namespace conversion
