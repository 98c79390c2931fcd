#include "simulator/commands/diskpart.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <iterator>
#include <optional>
#include <span>
#include <sstream>
#include <string_view>

#include "simulator/commands/diskpart_script.h"
#include "simulator/commands/diskpart_verbs.h"
#include "simulator/text.h"

namespace simulator {
namespace {

using diskpart::Session;

struct Verb {
  std::array<std::string_view, 3> words;  // unused ones are empty
  std::size_t fewest_arguments;
  std::size_t most_arguments;
  DWORD (*run)(Session& session, diskpart::Arguments arguments);

  std::size_t word_count() const {
    return words.size() -
           static_cast<std::size_t>(std::count(words.begin(), words.end(), std::string_view()));
  }
};

constexpr Verb kVerbs[] = {
    {{"select", "disk"}, 1, 1, diskpart::SelectDisk},
    {{"select", "partition"}, 1, 1, diskpart::SelectPartition},
    {{"list", "partition"}, 0, 0, diskpart::ListPartition},
    {{"detail", "volume"}, 0, 0, diskpart::DetailVolume},
    {{"clean"}, 0, 0, diskpart::Clean},
    {{"convert"}, 1, 1, diskpart::Convert},
    {{"create", "partition", "efi"}, 1, 1, diskpart::CreateEfiPartition},
    {{"format"}, 1, 3, diskpart::Format},
    {{"active"}, 0, 0, diskpart::Active},
    {{"assign"}, 1, 1, diskpart::Assign},
    {{"remove"}, 1, 1, diskpart::Remove},
    {{"shrink"}, 1, 1, diskpart::Shrink},
    {{"rescan"}, 0, 0, diskpart::Rescan},
    {{"offline", "disk"}, 0, 0, diskpart::OfflineDisk},
    {{"online", "disk"}, 0, 0, diskpart::OnlineDisk},
};

bool Matches(const Verb& verb, std::span<const std::string> words) {
  const std::size_t count = verb.word_count();
  if (words.size() < count + verb.fewest_arguments) return false;
  if (words.size() > count + verb.most_arguments) return false;
  return std::equal(words.begin(), words.begin() + static_cast<std::ptrdiff_t>(count),
                    verb.words.begin(), IsKeyword);
}

DWORD RunLine(Session& session, std::string_view line) {
  const std::vector<std::string> words = ScriptWords(line);
  const auto verb = std::find_if(std::begin(kVerbs), std::end(kVerbs),
                                 [&words](const Verb& each) { return Matches(each, words); });
  if (verb == std::end(kVerbs)) return diskpart::kSyntaxError;
  return verb->run(session, std::span(words).subspan(verb->word_count()));
}

// The bytes of the script, or nothing when there is no such file.
std::optional<std::string> ReadScript(const System& system, std::string_view path) {
  const auto host_path = system.HostPath(path);
  if (!host_path || !std::filesystem::is_regular_file(*host_path)) return std::nullopt;
  std::ifstream file(*host_path, std::ios::binary);
  if (!file) return std::nullopt;
  std::ostringstream bytes;
  bytes << file.rdbuf();
  return bytes.str();
}

DWORD RunScript(Session& session, std::string_view script) {
  for (const std::string& line : ScriptLines(script)) {
    session.Print("\r\n> " + line);
    const DWORD status = RunLine(session, line);
    if (status != diskpart::kSuccess) {
      session.Print("The line failed with status " + HexText(status) + ".");
      return status;
    }
  }
  return diskpart::kSuccess;
}

// The second of the two words that name a script, or nothing.
std::optional<std::string> ScriptPath(const std::vector<std::string>& arguments) {
  if (arguments.size() != 2 || !EqualsIgnoringCase(arguments[0], "/s")) return std::nullopt;
  return arguments[1];
}

}  // namespace

void TellDiskpartScript(System& system, const std::vector<std::string>& arguments) {
  const auto path = ScriptPath(arguments);
  const auto script = path ? ReadScript(system, *path) : std::nullopt;
  const auto& listener = system.settings().on_script;
  if (script && listener) listener(*script);
}

CommandResult RunDiskpart(System& system, const std::vector<std::string>& arguments) {
  const auto path = ScriptPath(arguments);
  if (!path) return {diskpart::kBadUsage, "Usage: diskpart /s <script>\r\n"};
  const auto script = ReadScript(system, *path);
  if (!script) {
    return {diskpart::kScriptNotOpened, "The script " + *path + " cannot be opened.\r\n"};
  }
  TellDiskpartScript(system, arguments);

  Session session{system};
  session.Print("diskpart on the simulated machine");
  const DWORD status = RunScript(session, *script);
  return {status, session.output};
}

}  // namespace simulator
