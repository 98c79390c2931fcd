#include "simulator/commands/diskpart_script.h"

#include <algorithm>
#include <charconv>

#include "simulator/text.h"

namespace simulator {
namespace {

constexpr std::size_t kShortestKeyword = 3;

// Splits at any of `separators`; empty pieces are left out.
std::vector<std::string> Split(std::string_view text, std::string_view separators) {
  std::vector<std::string> pieces;
  while (!text.empty()) {
    const std::size_t length = std::min(text.find_first_of(separators), text.size());
    if (length > 0) pieces.emplace_back(text.substr(0, length));
    text.remove_prefix(std::min(length + 1, text.size()));
  }
  return pieces;
}

}  // namespace

std::vector<std::string> ScriptLines(std::string_view script) {
  std::vector<std::string> lines = Split(script, "\n");
  for (std::string& line : lines) {
    if (line.ends_with('\r')) line.pop_back();
  }
  std::erase_if(lines, [](const std::string& line) { return ScriptWords(line).empty(); });
  return lines;
}

std::vector<std::string> ScriptWords(std::string_view line) {
  return Split(line, " \t");
}

bool IsKeyword(std::string_view word, std::string_view full) {
  if (word.size() < std::min(kShortestKeyword, full.size())) return false;
  return StartsWithIgnoringCase(full, word);
}

std::optional<std::string_view> ParameterValue(std::string_view word, std::string_view name) {
  const std::size_t sign = word.find('=');
  if (sign == std::string_view::npos || !EqualsIgnoringCase(word.substr(0, sign), name)) {
    return std::nullopt;
  }
  return word.substr(sign + 1);
}

std::optional<std::uint64_t> ParseNumber(std::string_view text) {
  std::uint64_t value = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc() || stop != end) return std::nullopt;
  return value;
}

std::optional<char> ParseLetter(std::string_view text) {
  if (text.size() != 1) return std::nullopt;
  const char letter = ToUpperAscii(text.front());
  if (letter < 'A' || letter > 'Z') return std::nullopt;
  return letter;
}

}  // namespace simulator
