// The boot configuration store, rebuilt by the system's bcdboot tool.
#pragma once

#include <string>

namespace velkora {

// Deletes the store on the volume `boot_letter` and has bcdboot make a new one there from the
// Windows folder on `windows_letter` (one character each, no colon). `uefi` selects where the store
// lies and what it is for; `plain`, looked at only without `uefi`, leaves the firmware to the tool.
// Logs "RecoverBcd Begin..." and the line as "cmd=%s" (level 1), "Delete Bcd Error! error_code: %d"
// (level 2) for a store that cannot be deleted or was not there, which stops nothing, then
// "RecoverBcd Success!" (level 1) or "RecoverBcd fail!" (level 3). The tool's text is appended to
// "\BCDBOOT_result.log" and never read. After a failure the old store is gone.
bool RecoverBcd(std::string windows_letter, std::string boot_letter, bool uefi, bool plain);

}  // namespace velkora
