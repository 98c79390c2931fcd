#include "boot/boot_sector.h"

#include "logging/log.h"
#include "tools/logs_path.h"
#include "tools/process_runner.h"

namespace velkora {

bool RecoverMbr(std::string letter) {
  LogEx(kLogModule, kLogProgress, "RecoverMbr Begin...");
  const std::string line =
      "bootsect /nt60 " + letter + ": /force /mbr >> " + Quoted(LogsPath("\\BOOTSECT_result.log"));
  LogEx(kLogModule, kLogProgress, "cmd=%s", line.c_str());
  if (!RunBareLineByRoute(line)) {
    LogEx(kLogModule, kLogError, "RecoverMbr fail!");
    return false;
  }
  LogEx(kLogModule, kLogProgress, "RecoverMbr Success!");
  return true;
}

}  // namespace velkora
