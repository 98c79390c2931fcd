// A diskpart script as text: its lines, the words of a line, and what a word says.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace simulator {

// Lines end in LF, CR LF, or with a lone CR at the end of the script. Lines without words are left
// out.
std::vector<std::string> ScriptLines(std::string_view script);

std::vector<std::string> ScriptWords(std::string_view line);

// True if `word` is `full` or a beginning of it of at least three letters, in any case: "sel",
// "part".
bool IsKeyword(std::string_view word, std::string_view full);

// The text behind "name=", or nothing when the word is something else.
std::optional<std::string_view> ParameterValue(std::string_view word, std::string_view name);

// A decimal number that fits 64 bits, and nothing else.
std::optional<std::uint64_t> ParseNumber(std::string_view text);

// A single letter A to Z in either case, given as a capital.
std::optional<char> ParseLetter(std::string_view text);

}  // namespace simulator
