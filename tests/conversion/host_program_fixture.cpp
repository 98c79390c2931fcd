#include "conversion/host_program_fixture.h"

#include <nlohmann/json.hpp>
#include <sstream>
#include <unistd.h>

#include "conversion/image_bytes.h"
#include "conversion/tools.h"
#include "support/tools/run_tool.h"
#include "support/tools/sfdisk_table.h"

namespace conversion {

using nlohmann::json;

namespace {

std::string Plain(const json& value) {
  return value.is_string() ? value.get<std::string>() : value.dump();
}

}  // namespace

std::string Field(const Json& object, const std::string& name) {
  const json parsed = json::parse(object);
  return parsed.contains(name) ? Plain(parsed[name]) : "";
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

std::vector<Json> EventsOf(const std::filesystem::path& file) {
  std::vector<Json> events;
  for (const std::string& line : LinesOf(TextOf(file))) {
    events.push_back(json::parse(line).dump());
  }
  return events;
}

std::vector<std::pair<int, int>> Callbacks(const std::vector<Json>& events) {
  std::vector<std::pair<int, int>> callbacks;
  for (const Json& text : events) {
    const json event = json::parse(text);
    if (event["event"] == "callback") callbacks.emplace_back(event["kind"], event["value"]);
  }
  return callbacks;
}

std::vector<std::string> LogLines(const std::vector<Json>& events, int level) {
  std::vector<std::string> lines;
  for (const Json& text : events) {
    const json event = json::parse(text);
    if (event["event"] == "log" && event["level"] == level) lines.push_back(event["text"]);
  }
  return lines;
}

Json StatusEvent(int status) {
  return json{{"event", "callback"}, {"kind", 0}, {"value", status}}.dump();
}

Json ResultEvent(int value) {
  return json{{"event", "result"}, {"value", value}}.dump();
}

Json LogEvent(int level, const std::string& text) {
  return json{{"event", "log"}, {"level", level}, {"text", text}}.dump();
}

Json ScriptEvent(const std::string& text) {
  return json{{"event", "script"}, {"text", text}}.dump();
}

Json ShellEvent(const std::string& route, const std::string& line) {
  return json{{"event", "shell"}, {"route", route}, {"line", line}}.dump();
}

std::vector<ShownRow> SfdiskRows(const std::filesystem::path& image) {
  std::vector<ShownRow> rows;
  for (const testing_support::SfdiskRow& row : testing_support::ReadSfdiskTable(image).rows) {
    if (row.type == "5" || row.type == "f") continue;
    rows.emplace_back(row.start * kSectorBytes, row.count * kSectorBytes, row.type);
  }
  return rows;
}

std::vector<ShownRow> ShownRows(const Json& shown) {
  std::vector<ShownRow> rows;
  const json disk = json::parse(shown);
  for (const json& row : disk.at("partitions")) {
    rows.emplace_back(row["start"], row["length"], row["type"]);
  }
  return rows;
}

std::vector<std::string> Column(const Json& shown, const std::string& name) {
  std::vector<std::string> values;
  const json disk = json::parse(shown);
  for (const json& row : disk.at("partitions")) values.push_back(Plain(row.at(name)));
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
  return {result.exit_status, result.output, TextOf(File("err"))};
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

Json HostProgram::Shown() {
  return json::parse(Run({"show", "disk.img", "--json"}).out).dump();
}

void HostProgram::MakeFat32(const Partition& partition) {
  Tool({"mkfs.fat", "-F", "32", "-s", "1", "--offset", std::to_string(partition.first),
        Image().string(), std::to_string(partition.count() / 2)});
}

}  // namespace conversion
