#include "support/tools/sfdisk_table.h"

#include <nlohmann/json.hpp>
#include <stdexcept>

#include "support/tools/run_tool.h"

namespace testing_support {

SfdiskTable ReadSfdiskTable(const std::filesystem::path& image) {
  const ToolResult result = RunTool({"sfdisk", "--json", image.string()});
  // Warnings are written in front of the object.
  const std::size_t begin = result.output.find('{');
  const std::size_t end = result.output.rfind('}');
  if (result.exit_status != 0 || begin == std::string::npos || end == std::string::npos) {
    throw std::runtime_error("sfdisk: " + result.output);
  }
  const auto json = nlohmann::json::parse(result.output.substr(begin, end - begin + 1));
  const auto& listed = json.at("partitiontable");
  SfdiskTable table{listed.at("label"), listed.value("id", ""), {}};
  if (!listed.contains("partitions")) return table;
  for (const auto& entry : listed.at("partitions")) {
    const std::string number = entry.at("node").get<std::string>().substr(image.string().size());
    table.rows.push_back({static_cast<unsigned>(std::stoul(number)), entry.at("start"),
                          entry.at("size"), entry.at("type"), entry.value("bootable", false),
                          entry.value("name", ""), entry.value("uuid", ""),
                          entry.value("attrs", "")});
  }
  return table;
}

}  // namespace testing_support
