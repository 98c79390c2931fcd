#include "apps/velkora_image/options.h"

#include <algorithm>
#include <charconv>
#include <iterator>

#include "apps/velkora_image/input_error.h"
#include "simulator/text.h"

namespace velkora_image {
namespace {

// The calls that can be made to fail.
constexpr std::string_view kCallNames[] = {
    "CreateFileA",
    "CreateFileW",
    "CloseHandle",
    "SetFilePointer",
    "SetFilePointerEx",
    "ReadFile",
    "WriteFile",
    "FlushFileBuffers",
    "DeviceIoControl",
    "DeleteFileA",
    "FindFirstFileW",
    "FindNextFileW",
    "FindClose",
    "FindFirstVolumeA",
    "FindNextVolumeA",
    "FindVolumeClose",
    "GetVolumePathNamesForVolumeNameA",
    "SetVolumeMountPointA",
    "DeleteVolumeMountPointA",
    "GetLogicalDrives",
    "GetSystemDirectoryA",
    "SetupDiGetClassDevsW",
    "SetupDiEnumDeviceInterfaces",
    "SetupDiGetDeviceInterfaceDetailA",
    "ShellExecuteExW",
    "WaitForMultipleObjects",
    "GetExitCodeProcess",
    "LoadLibraryW",
    "GetProcAddress",
    "FreeLibrary",
    "MiniDumpWriteDump",
    "NewMiniDmpSender",
    "getMiniDumpType",
    "setMiniDumpType",
    "setCallback",
    "sendAdditionalFile",
    "createReport",
    "CoCreateGuid",
    "system",
    "_wfopen_s",
    "fwrite",
    "fclose",
    "fread",
    "fopen",
    "fseek",
    "ftell",
    "rewind",
    "remove",
    "time",
    "command",
};

std::string Quoted(std::string_view text) {
  return "'" + std::string(text) + "'";
}

std::optional<std::uint32_t> ParseNumber(std::string_view text) {
  std::uint32_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || stop != end) return std::nullopt;
  return number;
}

std::optional<char> ParseLetter(std::string_view text) {
  if (text.size() == 2 && text[1] == ':') text.remove_suffix(1);
  if (text.size() != 1) return std::nullopt;
  const char letter = simulator::ToUpperAscii(text[0]);
  if (letter < 'A' || letter > 'Z') return std::nullopt;
  return letter;
}

// Takes ":NUMBER" off the end of `text`. Nothing, and `text` as it was, when there is none.
std::optional<std::uint32_t> TakeNumber(std::string_view& text) {
  const std::size_t colon = text.rfind(':');
  if (colon == std::string_view::npos) return std::nullopt;
  const auto number = ParseNumber(text.substr(colon + 1));
  if (number) text = text.substr(0, colon);
  return number;
}

// A colon is part of a call only in a path, behind a drive's letter.
void RefuseStrayColon(std::string_view call, std::string_view request) {
  for (std::size_t at = call.find(':'); at != std::string_view::npos; at = call.find(':', at + 1)) {
    if (at + 1 < call.size() && call[at + 1] == '\\') continue;
    throw InputError("--fail " + std::string(request) + ": " + Quoted(call.substr(at + 1)) +
                     " is not a number");
  }
}

}  // namespace

void ParseLetterChoice(std::string_view text, LetterChoices& letters) {
  const std::string where = "--letter " + std::string(text) + ": ";
  const std::size_t equals = text.find('=');
  if (equals == std::string_view::npos) throw InputError(where + "expected NUMBER=LETTER");
  const auto number = ParseNumber(text.substr(0, equals));
  if (!number || *number == 0) {
    throw InputError(where + Quoted(text.substr(0, equals)) + " is not a partition number");
  }
  const auto letter = ParseLetter(text.substr(equals + 1));
  if (!letter) {
    throw InputError(where + Quoted(text.substr(equals + 1)) + " is not a drive letter");
  }
  if (!letters.emplace(*number, *letter).second) {
    throw InputError(where + "partition " + std::to_string(*number) + " has a letter already");
  }
}

char ParseSystemLetter(std::string_view text) {
  const auto letter = ParseLetter(text);
  if (!letter) throw InputError("--system: " + Quoted(text) + " is not a drive letter");
  return *letter;
}

FailRequest ParseFailRequest(std::string_view text) {
  FailRequest request;
  std::string_view call = text;
  if (const auto last = TakeNumber(call)) {
    request.occurrence = *last;
    if (const auto before = TakeNumber(call)) {
      request.occurrence = *before;
      request.error = *last;
    }
  }
  RefuseStrayColon(call, text);
  const std::string where = "--fail " + std::string(text) + ": ";
  const std::string_view name = call.substr(0, call.find('/'));
  if (std::find(std::begin(kCallNames), std::end(kCallNames), name) == std::end(kCallNames)) {
    throw InputError(where + "there is no call " + Quoted(name));
  }
  if (request.occurrence == 0) throw InputError(where + "occurrences are counted from 1");
  if (request.error == ERROR_SUCCESS) throw InputError(where + "error 0 is no failure");
  request.call = call;
  return request;
}

std::int32_t ParseStatus(std::string_view text) {
  constexpr std::uint32_t kLastStatus = 11;
  const auto status = ParseNumber(text);
  if (!status || *status == 0 || *status > kLastStatus) {
    throw InputError("--stop-at: " + Quoted(text) + " is not a status from 1 to 11");
  }
  return static_cast<std::int32_t>(*status);
}

}  // namespace velkora_image
