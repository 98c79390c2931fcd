// diskpart, driven through script files in the logs folder.
//
// Success of a run is decided by the exit status alone; no text of diskpart's is ever read. Each
// verb logs "<verb> Begin..." (level 1) on entry, then "<verb> Success!" (level 1) or
// "<verb> Failed!" (level 3), and returns whether the run ended with status 0. Disk numbers are
// those of \\.\PhysicalDriveN, partition numbers diskpart's own.
#pragma once

#include <cstdint>
#include <string>

namespace velkora {

// Replaces "\DISKPART_cmd.log" by the script, runs diskpart on it with its console text appended to
// "\DISKPART_result.log", and waits for its end. Lines of a script end in CR LF, the last one too.
// Logs "File not open: %s" (level 3) and runs nothing if the script file cannot be opened.
// Not for two threads at once: the file names are constants.
bool DISKPART_RunScript(std::string script);

bool DISKPART_Active(std::uint32_t disk, std::uint32_t partition);
// Alone logs the script too ("cmd: %s", level 1). `letter` is inserted as it stands.
bool DISKPART_Assign(std::uint32_t disk, std::uint32_t partition, std::string letter);
bool DISKPART_Clean(std::uint32_t disk);
// `style` is "gpt" or "mbr".
bool DISKPART_Convert(std::uint32_t disk, const char* style);
// `size` in MiB.
bool DISKPART_CreateEFI(std::uint32_t disk, std::uint64_t size);
bool DISKPART_Format(std::uint32_t disk, std::uint32_t partition, std::string file_system,
                     bool quick);
bool DISKPART_Remove(std::uint32_t disk, std::uint32_t partition, std::string letter);
bool DISKPART_Rescan();
bool DISKPART_offlinedisk(std::uint32_t disk);
bool DISKPART_onlinedisk(std::uint32_t disk);

}  // namespace velkora
