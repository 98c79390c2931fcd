#include "conformance/program/command_line.h"

#include <charconv>
#include <cstddef>

namespace conformance {
namespace {

CommandLine Wrong(const std::string& error) {
  CommandLine line;
  line.error = error;
  return line;
}

std::optional<std::uint32_t> ParseNumber(const std::string& text) {
  std::uint32_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || stop != end) return std::nullopt;
  return number;
}

}  // namespace

const char kUsage[] =
    "velkora-conformance [--disk N --erase]\n"
    "\n"
    "Looks whether this Windows behaves as Velkora SDK takes it to. Without arguments it uses a\n"
    "temporary folder and touches no disk. Run it as an administrator.\n"
    "\n"
    "  --disk N   also try everything that is done to disks, on \\\\.\\PhysicalDriveN.\n"
    "             EVERYTHING ON THAT DISK IS LOST. It needs 256 MiB, in sectors of 512 bytes.\n"
    "  --erase    says that you know; --disk goes nowhere without it\n"
    "  --help     this text\n"
    "\n"
    "Exit status: 0 all confirmed, 1 something differs, 2 the arguments are wrong or the disk may\n"
    "not be wiped.\n";

CommandLine ParseCommandLine(const std::vector<std::string>& arguments) {
  CommandLine line;
  bool erase = false;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& argument = arguments[i];
    if (argument == "--help") {
      line.help = true;
    } else if (argument == "--erase") {
      erase = true;
    } else if (argument == "--disk") {
      if (line.disk) return Wrong("--disk: given twice");
      if (++i == arguments.size()) return Wrong("--disk: the number of the disk is missing");
      line.disk = ParseNumber(arguments[i]);
      if (!line.disk) return Wrong("--disk: \"" + arguments[i] + "\" is no number of a disk");
    } else {
      return Wrong("unknown argument \"" + argument + "\"");
    }
  }
  if (line.help) return line;
  if (line.disk && !erase) {
    return Wrong("--disk " + std::to_string(*line.disk) +
                 ": everything on that disk would be lost; add --erase if that is meant");
  }
  if (erase && !line.disk) return Wrong("--erase: which disk? Add --disk N");
  return line;
}

}  // namespace conformance
