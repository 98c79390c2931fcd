#include "conversion/host_program_fixture.h"

#include <fstream>
#include <sstream>
#include <unistd.h>

#include "conversion/image_bytes.h"
#include "conversion/tools.h"
#include "support/tools/run_tool.h"
#include "support/tools/sfdisk_table.h"

namespace conversion {

using nlohmann::json;
std::string ReadText(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  std::ostringstream text;
  text << stream.rdbuf();
  return text.str();
}

std::vector<std::string> LinesOf(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

std::vector<std::string> ToStyle(const std::string& style, const std::vector<std::string>& more) {
  std::vector<std::string> arguments = {"convert", "disk.img", "--to", style};
  arguments.insert(arguments.end(), more.begin(), more.end());
  return arguments;
}

std::vector<std::string> ToMbr(const std::vector<std::string>& more) {
  return ToStyle("mbr", more);
}

std::vector<std::string> ToGpt(const std::vector<std::string>& more) {
  return ToStyle("gpt", more);
}

std::vector<json> EventsOf(const std::filesystem::path& file) {
  std::vector<json> events;
  for (const std::string& line : LinesOf(ReadText(file))) events.push_back(json::parse(line));
  return events;
}

std::vector<std::pair<int, int>> Callbacks(const std::vector<json>& events) {
  std::vector<std::pair<int, int>> callbacks;
  for (const json& event : events) {
    if (event["event"] == "callback") callbacks.emplace_back(event["kind"], event["value"]);
  }
  return callbacks;
}

std::vector<std::string> LogLines(const std::vector<json>& events, int level) {
  std::vector<std::string> lines;
  for (const json& event : events) {
    if (event["event"] == "log" && event["level"] == level) lines.push_back(event["text"]);
  }
  return lines;
}

json StatusEvent(int status) {
  return {{"event", "callback"}, {"kind", 0}, {"value", status}};
}

std::vector<ShownRow> SfdiskRows(const std::filesystem::path& image) {
  std::vector<ShownRow> rows;
  for (const testing_support::SfdiskRow& row : testing_support::ReadSfdiskTable(image).rows) {
    if (row.type == "5" || row.type == "f") continue;
    rows.emplace_back(row.start * kSectorBytes, row.count * kSectorBytes, row.type);
  }
  return rows;
}

std::vector<ShownRow> ShownRows(const json& shown) {
  std::vector<ShownRow> rows;
  for (const json& row : shown["partitions"]) {
    rows.emplace_back(row["start"], row["length"], row["type"]);
  }
  return rows;
}

std::vector<json> Column(const json& shown, const std::string& name) {
  std::vector<json> values;
  for (const json& row : shown["partitions"]) values.push_back(row[name]);
  return values;
}

HostProgram::HostProgram() {
  std::filesystem::create_directory(File("tmp"));
}

Outcome HostProgram::Run(const std::vector<std::string>& arguments) {
  return RunThrough("", arguments);
}

Outcome HostProgram::RunBound(const std::vector<std::string>& arguments) {
  constexpr char kBound[] = "setpriv --bounding-set=-dac_override --inh-caps=-dac_override";
  return RunThrough(::geteuid() == 0 ? kBound : "", arguments);
}

Outcome HostProgram::RunThrough(const std::string& wrapper,
                                const std::vector<std::string>& arguments) {
  std::vector<std::string> argv = {
      "/bin/sh",
      "-c",
      "cd \"$1\" && p=$2 && shift 2 && TMPDIR=$PWD/tmp exec " + wrapper + " \"$p\" \"$@\" 2>err",
      "sh",
      folder_.path().string(),
      VELKORA_IMAGE_PROGRAM};
  argv.insert(argv.end(), arguments.begin(), arguments.end());
  const testing_support::ToolResult result = testing_support::RunTool(argv);
  return {result.exit_status, result.output, ReadText(File("err"))};
}

void HostProgram::MakeDisk(const Partitions& partitions, std::uint64_t size) {
  CreateImage(Image(), size);
  std::string script = "label: gpt\nfirst-lba: 34\n";
  for (const Partition& partition : partitions) {
    script += "start=" + std::to_string(partition.first) +
              ", size=" + std::to_string(partition.count()) + ", type=" + partition.type + "\n";
  }
  Tool({"sfdisk", "--quiet", Image().string()}, script);
}

void HostProgram::MakeMbrDisk(const std::string& rows, std::uint64_t size) {
  CreateImage(Image(), size);
  Tool({"sfdisk", "--quiet", Image().string()}, "label: dos\n" + rows);
}

json HostProgram::Shown() {
  return json::parse(Run({"show", "disk.img", "--json"}).out);
}

void HostProgram::MakeFat32(const Partition& partition) {
  Tool({"mkfs.fat", "-F", "32", "-s", "1", "--offset", std::to_string(partition.first),
        Image().string(), std::to_string(partition.count() / 2)});
}

}  // namespace conversion
