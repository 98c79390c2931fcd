// How the command interpreter takes one line apart. Only texts; nothing runs here.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace simulator {

struct Redirection {
  std::string path;  // without quotes
  bool append = false;
};

struct ShellLine {
  std::vector<std::string> words;  // the tool and its arguments, without quotes
  std::optional<Redirection> redirection;
};

// What remains of the text behind `/c`. Its quotes are kept when there is exactly one pair, with
// white space and none of &<>()@^| inside, around an executable's name; or when the text does not
// begin with a quote. Otherwise its first and its last quote go.
std::string ApplyQuoteRule(std::string_view text,
                           const std::function<bool(std::string_view name)>& is_executable);

// Splits a line at blanks outside of quotes. A redirection may stand anywhere; of several the last
// one counts. Nothing for a redirection without a path.
std::optional<ShellLine> ParseShellLine(std::string_view line);

// "diskpart" for `C:\Windows\System32\DiskPart.EXE`.
std::string ToolName(std::string_view word);

// The text behind the first switch /c or /k in the interpreter's own parameters.
struct InterpreterCommand {
  std::string_view line;
  bool stays = false;  // /k: the interpreter waits for a person afterwards
};
std::optional<InterpreterCommand> FindInterpreterCommand(std::string_view parameters);

}  // namespace simulator
