#include "conversion/host_program.h"

#include <fstream>
#include <sstream>
#include <stdexcept>

#include "conversion/image_bytes.h"
#include "conversion/tools.h"
#include "support/run_tool.h"

namespace conversion {
namespace {

// sgdisk's codes as sfdisk wants them.
std::string TypeGuid(const std::string& code) {
  if (code == kBasicData) return "EBD0A0A2-B9E5-4433-87C0-68B6B72699C7";
  if (code == kReserved) return "E3C9E316-0B5C-4DB8-817D-F92DF00215AE";
  if (code == kEfiSystem) return "C12A7328-F81F-11D2-BA4B-00A0C93EC93B";
  if (code == kLinux) return "0FC63DAF-8483-4772-8E79-3D69D8477DE4";
  throw std::invalid_argument("no GUID for " + code);
}

}  // namespace

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

std::vector<std::string> ToMbr(const std::vector<std::string>& more) {
  std::vector<std::string> arguments = {"convert", "disk.img", "--to", "mbr"};
  arguments.insert(arguments.end(), more.begin(), more.end());
  return arguments;
}

HostProgram::HostProgram() {
  std::filesystem::create_directory(File("tmp"));
}

Outcome HostProgram::Run(const std::vector<std::string>& arguments) {
  std::vector<std::string> argv = {
      "/bin/sh",
      "-c",
      "cd \"$1\" && p=$2 && shift 2 && TMPDIR=$PWD/tmp exec \"$p\" \"$@\" 2>err",
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
              ", size=" + std::to_string(partition.count()) + ", type=" + TypeGuid(partition.type) +
              "\n";
  }
  Tool({"sfdisk", "--quiet", Image().string()}, script);
}

void HostProgram::MakeFat32(const Partition& partition) {
  Tool({"mkfs.fat", "-F", "32", "-s", "1", "--offset", std::to_string(partition.first),
        Image().string(), std::to_string(partition.count() / 2)});
}

}  // namespace conversion
