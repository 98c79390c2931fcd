#include "tools/process_runner.h"

#include "frame/global_context.h"
#include "logging/log.h"
#include "platform/win32.h"
#include "tools/text_encoding.h"

namespace velkora {

bool RunElevatedAndWait(const std::string& parameters, const std::string& file,
                        std::uint32_t* exit_code) {
  const WideString wide_parameters = Utf8ToWide(parameters);
  const WideString wide_file = Utf8ToWide(file);
  SHELLEXECUTEINFOW info{};
  info.cbSize = sizeof info;
  info.fMask = SEE_MASK_NOCLOSEPROCESS;
  info.lpVerb = WIDE("runas");
  info.lpFile = wide_file.c_str();
  info.lpParameters = wide_parameters.c_str();
  info.nShow = SW_HIDE;
  if (!win32::ShellExecuteExW(&info)) {
    LogEx(kLogModule, kLogError, "ShellExecuteExW fail");
    return false;
  }
  // The process handle is left open, one for each run, until the host process ends.
  win32::WaitForMultipleObjects(1, &info.hProcess, TRUE, INFINITE);
  DWORD status = 0;
  if (!win32::GetExitCodeProcess(info.hProcess, &status)) return false;
  if (status == 0) return true;
  if (exit_code != nullptr) *exit_code = status;
  // The call succeeded and the tool did not: the wording is how readers of these logs know it.
  LogEx(kLogModule, kLogError, "GetExitCodeProcess fail, error: %d, last error: %d",
        static_cast<int>(status), static_cast<int>(win32::GetLastError()));
  return false;
}

bool RunBareLineByRoute(const std::string& line) {
  if (GetGlobalContext().is_system != 0) return win32::system(line.c_str()) == 0;
  return RunElevatedAndWait(line, "cmd.exe", nullptr);
}

}  // namespace velkora
