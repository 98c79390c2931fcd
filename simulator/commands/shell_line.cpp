#include "simulator/commands/shell_line.h"

#include <algorithm>

#include "simulator/text.h"

namespace simulator {
namespace {

constexpr std::string_view kBlanks = " \t";

bool IsBlank(char character) {
  return kBlanks.find(character) != std::string_view::npos;
}

std::string_view WithoutLeadingBlanks(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
  return text;
}

// Takes the characters up to a blank or a redirection sign outside of quotes, without the quotes.
std::string TakeWord(std::string_view& text) {
  std::string word;
  bool quoted = false;
  std::size_t position = 0;
  for (; position < text.size(); ++position) {
    const char character = text[position];
    if (!quoted && (IsBlank(character) || character == '>')) break;
    if (character == '"') {
      quoted = !quoted;
    } else {
      word += character;
    }
  }
  text.remove_prefix(position);
  return word;
}

std::optional<Redirection> TakeRedirection(std::string_view& text) {
  Redirection redirection;
  redirection.append = text.starts_with(">>");
  text.remove_prefix(redirection.append ? 2 : 1);
  text = WithoutLeadingBlanks(text);
  redirection.path = TakeWord(text);
  if (redirection.path.empty()) return std::nullopt;
  return redirection;
}

bool KeepsQuotes(std::string_view text,
                 const std::function<bool(std::string_view name)>& is_executable) {
  if (!text.starts_with('"')) return true;
  if (std::count(text.begin(), text.end(), '"') != 2) return false;
  const std::string_view inside = text.substr(1, text.rfind('"') - 1);
  return inside.find_first_of("&<>()@^|") == std::string_view::npos &&
         inside.find_first_of(kBlanks) != std::string_view::npos && is_executable(inside);
}

}  // namespace

std::string ApplyQuoteRule(std::string_view text,
                           const std::function<bool(std::string_view name)>& is_executable) {
  std::string line(WithoutLeadingBlanks(text));
  if (KeepsQuotes(line, is_executable)) return line;
  line.erase(0, 1);
  const std::size_t last_quote = line.rfind('"');
  if (last_quote != std::string::npos) line.erase(last_quote, 1);
  return line;
}

std::optional<ShellLine> ParseShellLine(std::string_view line) {
  ShellLine parsed;
  for (line = WithoutLeadingBlanks(line); !line.empty(); line = WithoutLeadingBlanks(line)) {
    if (line.front() == '>') {
      parsed.redirection = TakeRedirection(line);
      if (!parsed.redirection) return std::nullopt;
    } else {
      parsed.words.push_back(TakeWord(line));
    }
  }
  return parsed;
}

std::string ToolName(std::string_view word) {
  std::string name = ToLowerAscii(FileNameOf(word));
  if (name.ends_with(".exe")) name.resize(name.size() - 4);
  return name;
}

std::optional<InterpreterCommand> FindInterpreterCommand(std::string_view parameters) {
  std::string_view rest = WithoutLeadingBlanks(parameters);
  while (!rest.empty()) {
    if (rest.size() >= 2 && rest[0] == '/') {
      const char letter = ToUpperAscii(rest[1]);
      if (letter == 'C' || letter == 'K') return InterpreterCommand{rest.substr(2), letter == 'K'};
    }
    // A word may end at a redirection sign, which is no sign here.
    if (TakeWord(rest).empty() && rest.starts_with('>')) rest.remove_prefix(1);
    rest = WithoutLeadingBlanks(rest);
  }
  return std::nullopt;
}

}  // namespace simulator
