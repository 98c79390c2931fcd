#include "frame/crash_reporting.h"

#include <array>
#include <cstdio>
#include <exception>
#include <string>

#include "frame/global_context.h"
#include "frame/minidump.h"
#include "frame/version.h"
#include "platform/guard.h"
#include "platform/win32.h"
#include "tools/text_encoding.h"

namespace velkora {

const char* const kSdkVersion = VELKORA_VERSION_TEXT;
win32::MiniDmpSender* crash_sender = nullptr;
std::uint8_t dump_written = 0;

namespace {

// What both mean is the sender's to say.
constexpr std::uint32_t kSenderFlags = 21;
constexpr std::uint32_t kExceptionCode = 80;

// Handle data, scanned memory, unloaded modules, indirectly referenced memory, process and thread
// data, thread info, in the numbering of MINIDUMP_TYPE.
constexpr std::uint32_t kDumpBits = 0x1174;

constexpr char kDumpName[] = "VelkoraSDK_v" VELKORA_VERSION_TEXT;
constexpr std::size_t kNameBytes = 260;

}  // namespace

std::int32_t InitCrashReporting(const char* database, const char* application,
                                const char* version) {
  const WideString wide_version = Utf8ToWide(version);
  const WideString wide_application = Utf8ToWide(application);
  const WideString wide_database = Utf8ToWide(database);
  crash_sender = win32::NewMiniDmpSender(wide_database.c_str(), wide_application.c_str(),
                                         wide_version.c_str(), nullptr, kSenderFlags);
  crash_sender->setMiniDumpType(crash_sender->getMiniDumpType() | kDumpBits);
  crash_sender->setCallback(OnCrashEvent);
  return 0;
}

bool OnCrashEvent(std::uint32_t code, void*, void*) {
  // On the sender's thread nothing may be thrown.
  if (code == kExceptionCode) win32::Catching([] { AddLogFilesToReport(); });
  return false;
}

void AddLogFilesToReport() {
  // A folder that is no UTF-8 has nothing to attach.
  WideString folder;
  if (!TryUtf8ToWide(GetGlobalContext().logs_folder, folder)) return;
  folder += WIDE("\\");
  WIN32_FIND_DATAW found{};
  HANDLE find = win32::FindFirstFileW((folder + WIDE("*")).c_str(), &found);
  if (find == INVALID_HANDLE_VALUE) return;
  // The first result is taken for "." and never looked at; a folder that lists none loses a file.
  const std::exception_ptr thrown = win32::Catching([&] {
    while (win32::FindNextFileW(find, &found)) {
      if (found.cFileName[0] == WIDE('.')) continue;
      crash_sender->sendAdditionalFile((folder + found.cFileName).c_str());
    }
  });
  win32::FindClose(find);
  if (thrown) std::rethrow_exception(thrown);
}

LONG DumpOnceFilter(EXCEPTION_POINTERS* pointers) {
  if (dump_written == 0) WriteDumpToLogsFolder(pointers, &dump_written);
  return EXCEPTION_EXECUTE_HANDLER;
}

std::int32_t WriteDumpToLogsFolder(EXCEPTION_POINTERS* pointers, std::uint8_t* written) {
  std::array<char, kNameBytes> name{};
  std::snprintf(name.data(), name.size(), "\\%s.dmp", kDumpName);
  const std::string path = GetGlobalContext().logs_folder + name.data();
  return WriteDump(pointers, path.c_str(), written);
}

}  // namespace velkora
