#include "boot/boot_recovery.h"

#include <optional>
#include <sstream>
#include <string_view>

#include "logging/log.h"
#include "platform/win32.h"
#include "tools/logs_path.h"

namespace velkora {
namespace {

bool RunLoggedLine(const std::string& line) {
  LogEx(kLogModule, kLogProgress, "cmd: %s", line.c_str());
  return win32::system(line.c_str()) == 0;
}

// The value of a line whose key is "resumeobject": the key ends at the first blank, the value
// begins behind the last, and what lies between is dropped.
std::optional<std::string> ResumeObject(std::string_view line) {
  const std::size_t first_blank = line.find(' ');
  if (first_blank == std::string_view::npos) return std::nullopt;
  if (line.substr(0, first_blank) != "resumeobject") return std::nullopt;
  return std::string(line.substr(line.rfind(' ') + 1));
}

// The rest of the stream, up to its end or failure.
std::string ReadAll(std::FILE* file) {
  std::string text;
  char block[4096];
  while (const std::size_t length = win32::fread(block, 1, sizeof block, file)) {
    text.append(block, length);
  }
  return text;
}

std::string FindResumeObject(std::FILE* listing) {
  std::istringstream lines(ReadAll(listing));
  for (std::string line; std::getline(lines, line);) {
    const std::optional<std::string> value = ResumeObject(line);
    if (!value) continue;
    LogEx(kLogModule, kLogProgress, "bcdedit key: %s, value: %s", "resumeobject", value->c_str());
    return *value;
  }
  return {};
}

}  // namespace

bool BcdEnableRecovery(std::string letter) {
  LogEx(kLogModule, kLogProgress, "BcdEnableRecovery Begin...");
  const std::string result_path = LogsPath("\\BCDEDIT_result.log");
  win32::remove(result_path.c_str());
  const std::string store = "bcdedit /store " + letter + ":\\EFI\\Microsoft\\Boot\\BCD";
  const std::string redirection = " >> " + Quoted(result_path);
  if (!RunLoggedLine(store + redirection)) {
    LogEx(kLogModule, kLogError, "Bcdedit Get Info Failed!");
    return false;
  }
  LogEx(kLogModule, kLogProgress, "Bcdedit Get Info Success!");
  std::FILE* listing = win32::fopen(result_path.c_str(), "r");
  if (listing == nullptr) {
    LogEx(kLogModule, kLogError, "File Open Failed: %s", result_path.c_str());
    return false;
  }
  const std::string object = FindResumeObject(listing);
  // The second run appends to the file that is still open for reading.
  const bool set = RunLoggedLine(store + " /set " + object + " recoveryenabled ON" + redirection);
  win32::fclose(listing);
  if (!set) {
    LogEx(kLogModule, kLogError, "BcdEdit Set Failed!");
    return false;
  }
  LogEx(kLogModule, kLogProgress, "BcdEnableRecovery Success!");
  return true;
}

bool BCDEDIT_print() {
  LogEx(kLogModule, kLogProgress, "BCDEDIT_print Begin...");
  const std::string line = "bcdedit /enum all >> " + Quoted(LogsPath("\\BCDEDIT_print.log"));
  if (!RunLoggedLine(line)) {
    LogEx(kLogModule, kLogError, "BCDEDIT_print Failed!");
    return false;
  }
  LogEx(kLogModule, kLogProgress, "BCDEDIT_print Success!");
  return true;
}

}  // namespace velkora
