// Repair with the system's BootRec tool: boot record, boot sector, boot store.
#pragma once

namespace velkora {

// Runs the BootRec.exe that stands in the logs folder with /fixmbr, /fixboot and /rebuildbcd, all
// three in any case, its console text appended to "\BOOTREC_result.log" and never read. Every line
// goes to `system`, whatever disk is converted. Returns whether all three ended with status 0. Logs
// "FixWithBootRec Begin..." (level 1), "%s Failed!" with the line of each that failed (level 3),
// and "FixWithBootRec Success!" (level 1), the last one also after a failure.
//
// Nothing here brings a BootRec.exe into the logs folder or looks for one.
bool FixWithBootRec();

}  // namespace velkora
