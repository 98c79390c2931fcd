#include "frame/minidump.h"

#include "platform/win32.h"
#include "tools/text_encoding.h"

namespace velkora {
namespace {

MiniDumpWriteDumpFunction FindDumpWriter(HMODULE library) {
  const FARPROC function = win32::GetProcAddress(library, "MiniDumpWriteDump");
  // By way of the one type that any function pointer may be turned into.
  return reinterpret_cast<MiniDumpWriteDumpFunction>(reinterpret_cast<void (*)()>(function));
}

HANDLE CreateDumpFile(const char* path) {
  WideString wide_path;
  if (!TryUtf8ToWide(path, wide_path)) return INVALID_HANDLE_VALUE;
  return win32::CreateFileW(wide_path.c_str(), GENERIC_READ | GENERIC_WRITE,
                            FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, CREATE_ALWAYS, 0, nullptr);
}

bool WriteWith(MiniDumpWriteDumpFunction write, HANDLE file, EXCEPTION_POINTERS* pointers) {
  MINIDUMP_EXCEPTION_INFORMATION information{};
  information.ThreadId = win32::GetCurrentThreadId();
  information.ExceptionPointers = pointers;
  information.ClientPointers = FALSE;
  return write(win32::GetCurrentProcess(), win32::GetCurrentProcessId(), file, MiniDumpFilterMemory,
               pointers == nullptr ? nullptr : &information, nullptr, nullptr) != FALSE;
}

}  // namespace

std::int32_t WriteDump(EXCEPTION_POINTERS* pointers, const char* path, std::uint8_t* written) {
  const HMODULE library = win32::LoadLibraryW(WIDE("DbgHelp.dll"));
  if (library == nullptr) return -1;
  const MiniDumpWriteDumpFunction write = FindDumpWriter(library);
  const HANDLE file = write == nullptr ? INVALID_HANDLE_VALUE : CreateDumpFile(path);
  if (file == INVALID_HANDLE_VALUE) {
    win32::FreeLibrary(library);
    return -1;
  }
  const bool done = WriteWith(write, file, pointers);
  win32::CloseHandle(file);
  win32::FreeLibrary(library);
  if (written != nullptr) *written = done ? 1 : 0;
  return 1;
}

}  // namespace velkora
