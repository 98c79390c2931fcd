// Recovery settings of a boot store, through the system's bcdedit tool. Both operations run their
// lines with `system`, whatever the disk is.
#pragma once

#include <string>

namespace velkora {

// Switches recovery on in the UEFI store of the EFI system partition with this letter (one
// character, no colon): lists the store into "\BCDEDIT_result.log", which is removed first, takes
// the identifier behind the first "resumeobject" in it, and sets "recoveryenabled" to ON for that
// object. A listing without one leaves the identifier empty, and the tool decides on that line.
// Logs "BcdEnableRecovery Begin...", each line as "cmd: %s", "Bcdedit Get Info Success!",
// "bcdedit key: %s, value: %s" and "BcdEnableRecovery Success!" at level 1; "Bcdedit Get Info
// Failed!", "File Open Failed: %s" and "BcdEdit Set Failed!" at level 3. Nothing is undone.
bool BcdEnableRecovery(std::string letter);

// Appends the listing of the running system's store to "\BCDEDIT_print.log". Logs "BCDEDIT_print
// Begin...", "cmd: %s", then "BCDEDIT_print Success!" (level 1) or "BCDEDIT_print Failed!" (level
// 3).
bool BCDEDIT_print();

}  // namespace velkora
