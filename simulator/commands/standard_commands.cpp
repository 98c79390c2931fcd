#include "simulator/commands/standard_commands.h"

#include "simulator/commands/bcdboot.h"
#include "simulator/commands/bcdedit.h"
#include "simulator/commands/bootrec.h"
#include "simulator/commands/bootsect.h"
#include "simulator/commands/chkdsk.h"
#include "simulator/commands/diskpart.h"
#include "simulator/system.h"

namespace simulator {

void RegisterStandardCommands(System& system) {
  system.SetTool("bcdboot", RunBcdboot);
  system.SetTool("bcdedit", RunBcdedit);
  system.SetTool("bootrec", RunBootrec);
  system.SetTool("bootsect", RunBootsect);
  system.SetTool("chkdsk", RunChkdsk);
  system.SetTool("diskpart", RunDiskpart);
}

}  // namespace simulator
