#include "boot/boot_rec.h"

#include <string>

#include "logging/log.h"
#include "platform/win32.h"
#include "tools/logs_path.h"

namespace velkora {

bool FixWithBootRec() {
  LogEx(kLogModule, kLogProgress, "FixWithBootRec Begin...");
  bool fixed = true;
  // The folder is not tried out beforehand: no probe like `dir >> "…\testdir.log"` is run.
  const std::string redirection = " >> " + Quoted(LogsPath("\\BOOTREC_result.log"));
  for (const char* step : {"/fixmbr", "/fixboot", "/rebuildbcd"}) {
    // Without quotes around the tool: a logs folder with a blank in its path has no such tool.
    const std::string line = LogsPath("\\BootRec.exe ") + step + redirection;
    if (win32::system(line.c_str()) == 0) continue;
    LogEx(kLogModule, kLogError, "%s Failed!", line.c_str());
    fixed = false;
  }
  // The closing line stands for the end of the run; the result tells how it went.
  LogEx(kLogModule, kLogProgress, "FixWithBootRec Success!");
  return fixed;
}

}  // namespace velkora
