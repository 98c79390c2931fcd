// Processes and shell lines of the seam, answered by the current simulated machine.
#include <memory>
#include <string>
#include <string_view>

#include "simulator/commands/shell.h"
#include "simulator/handle_object.h"
#include "simulator/seam_call.h"
#include "simulator/text.h"

namespace win32 {
namespace {

using simulator::FailsOnDemand;
using simulator::HandleObject;
using simulator::ShellRoute;
using simulator::System;
using simulator::ToResult;

constexpr DWORD kMaximumWaitObjects = 64;

// A process that has run to its end: starting one runs it.
class EndedProcess : public HandleObject {
 public:
  explicit EndedProcess(DWORD exit_code) : exit_code_(exit_code) {}
  std::string Describe() const override { return "process"; }
  DWORD exit_code() const { return exit_code_; }

 private:
  DWORD exit_code_;
};

bool IsCommandInterpreter(std::string_view file) {
  const std::string_view name = simulator::FileNameOf(file);
  return simulator::EqualsIgnoringCase(name, "cmd.exe") ||
         simulator::EqualsIgnoringCase(name, "cmd");
}

void Tell(const System& system, ShellRoute route, std::string_view line) {
  if (system.settings().on_shell_line) system.settings().on_shell_line(route, line);
}

}  // namespace

BOOL ShellExecuteExW(SHELLEXECUTEINFOW* info) {
  System& system = System::Current();
  const std::string file = simulator::Utf16ToUtf8(info->lpFile);
  const std::string parameters = simulator::Utf16ToUtf8(info->lpParameters);
  const std::string arguments = simulator::Utf16ToUtf8(info->lpVerb) + " show " +
                                std::to_string(info->nShow) + " mask " +
                                simulator::HexText(info->fMask) + ' ' + parameters;
  if (FailsOnDemand(system, "ShellExecuteExW", file, arguments)) return FALSE;
  if (info->cbSize != sizeof *info) return ToResult(ERROR_ACCESS_DENIED);
  if (!IsCommandInterpreter(file)) return ToResult(ERROR_FILE_NOT_FOUND);
  Tell(system, ShellRoute::kElevated, parameters);
  const DWORD exit_code = simulator::RunCommandInterpreter(system, parameters);
  info->hProcess = nullptr;
  if ((info->fMask & SEE_MASK_NOCLOSEPROCESS) != 0) {
    info->hProcess = system.handles().Add(std::make_unique<EndedProcess>(exit_code));
  }
  return TRUE;
}

// Every object here is signalled already.
DWORD WaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL wait_all,
                             DWORD milliseconds) {
  System& system = System::Current();
  const std::string arguments = std::to_string(count) + (wait_all != FALSE ? " all " : " any ") +
                                simulator::HexText(milliseconds) + " ms";
  if (FailsOnDemand(system, "WaitForMultipleObjects", {}, arguments)) return WAIT_FAILED;
  if (count == 0 || count > kMaximumWaitObjects) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return WAIT_FAILED;
  }
  for (DWORD i = 0; i < count; ++i) {
    if (system.handles().Find(handles[i]) == nullptr) {
      SetLastError(ERROR_INVALID_HANDLE);
      return WAIT_FAILED;
    }
  }
  return WAIT_OBJECT_0;
}

BOOL GetExitCodeProcess(HANDLE process, DWORD* exit_code) {
  System& system = System::Current();
  if (FailsOnDemand(system, "GetExitCodeProcess")) return FALSE;
  const auto* ended = dynamic_cast<EndedProcess*>(system.handles().Find(process));
  if (ended == nullptr) return ToResult(ERROR_INVALID_HANDLE);
  *exit_code = ended->exit_code();
  return TRUE;
}

int system(const char* line) {
  System& system = System::Current();
  const std::string_view text = simulator::TextOrEmpty(line);
  if (FailsOnDemand(system, "system", {}, text)) return -1;
  // Without a line the question is whether there is a shell.
  if (line == nullptr) return 1;
  Tell(system, ShellRoute::kSystem, text);
  return static_cast<int>(simulator::RunShellLine(system, text));
}

}  // namespace win32
