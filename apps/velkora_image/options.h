// The command line.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "platform/win32_types.h"

namespace velkora_image {

// By partition number.
using LetterChoices = std::map<std::uint32_t, char>;

// A call across the seam that is made to fail.
struct FailRequest {
  std::string call;  // as simulator::CallLog::FailOn takes it
  std::size_t occurrence = 1;
  DWORD error = ERROR_GEN_FAILURE;
};

struct ShowOptions {
  std::filesystem::path image;
  bool json = false;
};

struct ConvertOptions {
  std::filesystem::path image;
  std::string target;  // "mbr" or "gpt"
  std::optional<char> system_letter;
  LetterChoices letters;
  std::optional<std::filesystem::path> logs;
  std::optional<std::filesystem::path> events;
  std::optional<std::filesystem::path> rescue;
  std::vector<FailRequest> failures;
  std::optional<std::int32_t> stop_at;
};

struct UndoOptions {
  std::filesystem::path image;
  std::filesystem::path rescue;
};

struct HelpOptions {
  std::string text;
};

using Options = std::variant<ShowOptions, ConvertOptions, UndoOptions, HelpOptions>;

// The whole command line (command_line.cpp). Throws InputError for anything that is not as the help
// says.
Options ParseOptions(int argc, const char* const* argv);

// "NUMBER=LETTER"; throws InputError, also for a number that `letters` holds already.
void ParseLetterChoice(std::string_view text, LetterChoices& letters);
// A letter in either case, with or without a colon; throws InputError.
char ParseSystemLetter(std::string_view text);
// A status of the library's callback, 1 to 11; throws InputError.
std::int32_t ParseStatus(std::string_view text);
// "CALL[:OCCURRENCE[:ERROR]]"; throws InputError. A call's detail may hold a path with a colon.
FailRequest ParseFailRequest(std::string_view text);

}  // namespace velkora_image
