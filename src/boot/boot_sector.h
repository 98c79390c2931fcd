// Boot code for a disk that boots by its MBR, written by the system's bootsect tool.
#pragma once

#include <string>

namespace velkora {

// Has bootsect write the boot sector of the volume with this letter (one character, no colon) and
// the disk's master boot code. Logs "RecoverMbr Begin..." and the line as "cmd=%s" (level 1), then
// "RecoverMbr Success!" (level 1) or "RecoverMbr fail!" (level 3). The exit status alone decides;
// the tool's text is appended to "\BOOTSECT_result.log" and never read.
bool RecoverMbr(std::string letter);

}  // namespace velkora
