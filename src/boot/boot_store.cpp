#include "boot/boot_store.h"

#include "logging/log.h"
#include "platform/win32.h"
#include "tools/logs_path.h"
#include "tools/process_runner.h"

namespace velkora {
namespace {

const char* FirmwareClause(bool uefi, bool plain) {
  if (uefi) return ": /f uefi >> ";
  return plain ? ": >> " : ": /f bios >> ";
}

}  // namespace

bool RecoverBcd(std::string windows_letter, std::string boot_letter, bool uefi, bool plain) {
  LogEx(kLogModule, kLogProgress, "RecoverBcd Begin...");
  const std::string store = boot_letter + (uefi ? ":\\EFI\\Microsoft\\Boot\\BCD" : ":\\Boot\\BCD");
  if (!win32::DeleteFileA(store.c_str())) {
    LogEx(kLogModule, kLogWarning, "Delete Bcd Error! error_code: %d",
          static_cast<int>(win32::GetLastError()));
  }
  const std::string line = "bcdboot /v " + windows_letter + ":\\Windows /s " + boot_letter +
                           FirmwareClause(uefi, plain) + Quoted(LogsPath("\\BCDBOOT_result.log"));
  LogEx(kLogModule, kLogProgress, "cmd=%s", line.c_str());
  if (!RunBareLineByRoute(line)) {
    LogEx(kLogModule, kLogError, "RecoverBcd fail!");
    return false;
  }
  LogEx(kLogModule, kLogProgress, "RecoverBcd Success!");
  return true;
}

}  // namespace velkora
