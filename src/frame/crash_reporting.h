// The two ways out of a crash, which do not know of each other: an outside vendor's crash sender,
// to which the logs folder's files are offered, and one minidump of the process in that folder,
// written by the library's own guards. No filter for exceptions that nobody handles is installed.
#pragma once

#include <cstdint>

#include "platform/crash_services.h"
#include "platform/win32_types.h"

namespace velkora {

// The version and the build, as the log and the crash sender get them.
extern const char* const kSdkVersion;

// Of the process. Made by InitCrashReporting and never freed: a second one leaves the old object
// behind.
extern win32::MiniDmpSender* crash_sender;

// Of the process: set once a dump has been written, after which DumpOnceFilter writes none. A plain
// byte without a lock.
extern std::uint8_t dump_written;

// Makes the sender and lets it call OnCrashEvent. Texts are UTF-8 (std::range_error otherwise).
// Returns 0, always.
std::int32_t InitCrashReporting(const char* database, const char* application, const char* version);

// What the sender calls, on a thread of its choice. Attaches the logs folder's files for the one
// code by which it tells of an exception. Returns false, always, and throws nothing: for lack of
// memory the remaining files are not attached.
bool OnCrashEvent(std::uint32_t code, void* first, void* second);

// Gives the sender each file and folder of the logs folder, but for names that begin with "." and
// for the first one that the listing gives, whatever it is. Nothing is attached, and nothing said,
// where the folder is empty or missing. Throws std::bad_alloc.
void AddLogFilesToReport();

// The filter of every guard of the library: one dump in the life of the process. A failed dump is
// tried again at the next fault. Returns EXCEPTION_EXECUTE_HANDLER whatever came of it; only for
// lack of memory does it throw std::bad_alloc, which ends in the guard.
LONG DumpOnceFilter(EXCEPTION_POINTERS* pointers);

// WriteDump to the file of this version in the logs folder, in place of an earlier process's.
std::int32_t WriteDumpToLogsFolder(EXCEPTION_POINTERS* pointers, std::uint8_t* written);

}  // namespace velkora
