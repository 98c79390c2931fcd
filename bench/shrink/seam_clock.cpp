// Stands between the library and the simulated machine: the linker sends each call of the library
// to a function of the same name with __wrap_ in front, and that name with __real_ in front to the
// machine (--wrap; the list of names is in CMakeLists.txt).
#include "bench/shrink/seam_clock.h"

#include <cstring>

#include "platform/win32.h"

namespace bench {
namespace {

using Clock = std::chrono::steady_clock;

SeamFigures figures;
bool is_timed = false;
int depth = 0;  // the machine calls itself

class Stay {
 public:
  Stay() {
    if (++depth == 1 && is_timed) begin_ = Clock::now();
  }
  ~Stay() {
    if (--depth > 0) return;
    if (is_timed) figures.time += Clock::now() - begin_;
    ++figures.calls;
  }
  Stay(const Stay&) = delete;
  Stay& operator=(const Stay&) = delete;

 private:
  Clock::time_point begin_;
};

void NoteControl(DWORD code, const void* in, DWORD in_size) {
  if (code != FSCTL_MOVE_FILE || in_size < sizeof(MOVE_FILE_DATA)) return;
  MOVE_FILE_DATA request;
  std::memcpy(&request, in, sizeof request);
  figures.moved_clusters += request.ClusterCount;
}

void NoteWrite(DWORD length) {
  ++figures.raw_writes;
  figures.raw_bytes += length;
}

}  // namespace

SeamFigures Seam() {
  return figures;
}

void StartSeamClock() {
  is_timed = true;
}

}  // namespace bench

// NAME is free, SYMBOL what the linker calls the operation.
#define VELKORA_TIMED(RESULT, NAME, SYMBOL, PARAMETERS, ARGUMENTS, NOTE) \
  RESULT Real##NAME PARAMETERS __asm__("__real_" SYMBOL);                \
  RESULT Wrapped##NAME PARAMETERS __asm__("__wrap_" SYMBOL);             \
  RESULT Wrapped##NAME PARAMETERS {                                      \
    NOTE;                                                                \
    const bench::Stay stay;                                              \
    return Real##NAME ARGUMENTS;                                         \
  }

using Bytes = const void*;
using Wide = const WCHAR*;
using Security = SECURITY_ATTRIBUTES*;

VELKORA_TIMED(HANDLE, CreateFileA, "_ZN5win3211CreateFileAEPKcjjP19SECURITY_ATTRIBUTESjjPv",
              (const char* a, DWORD b, DWORD c, Security d, DWORD e, DWORD f, HANDLE g),
              (a, b, c, d, e, f, g), )
VELKORA_TIMED(HANDLE, CreateFileW, "_ZN5win3211CreateFileWEPKDsjjP19SECURITY_ATTRIBUTESjjPv",
              (Wide a, DWORD b, DWORD c, Security d, DWORD e, DWORD f, HANDLE g),
              (a, b, c, d, e, f, g), )
VELKORA_TIMED(BOOL, CloseHandle, "_ZN5win3211CloseHandleEPv", (HANDLE a), (a), )
VELKORA_TIMED(DWORD, SetFilePointer, "_ZN5win3214SetFilePointerEPviPij",
              (HANDLE a, LONG b, LONG* c, DWORD d), (a, b, c, d), )
VELKORA_TIMED(BOOL, SetFilePointerEx, "_ZN5win3216SetFilePointerExEPv13LARGE_INTEGERPS1_j",
              (HANDLE a, LARGE_INTEGER b, LARGE_INTEGER* c, DWORD d), (a, b, c, d), )
VELKORA_TIMED(BOOL, ReadFile, "_ZN5win328ReadFileEPvS0_jPjP10OVERLAPPED",
              (HANDLE a, void* b, DWORD c, DWORD* d, OVERLAPPED* e), (a, b, c, d, e), )
VELKORA_TIMED(BOOL, WriteFile, "_ZN5win329WriteFileEPvPKvjPjP10OVERLAPPED",
              (HANDLE a, Bytes b, DWORD c, DWORD* d, OVERLAPPED* e), (a, b, c, d, e),
              bench::NoteWrite(c))
VELKORA_TIMED(BOOL, DeviceIoControl, "_ZN5win3215DeviceIoControlEPvjS0_jS0_jPjP10OVERLAPPED",
              (HANDLE a, DWORD b, void* c, DWORD d, void* e, DWORD f, DWORD* g, OVERLAPPED* h),
              (a, b, c, d, e, f, g, h), bench::NoteControl(b, c, d))
VELKORA_TIMED(BOOL, SetFileAttributesW, "_ZN5win3218SetFileAttributesWEPKDsj", (Wide a, DWORD b),
              (a, b), )
VELKORA_TIMED(HANDLE, FindFirstFileW, "_ZN5win3214FindFirstFileWEPKDsP16WIN32_FIND_DATAW",
              (Wide a, WIN32_FIND_DATAW* b), (a, b), )
VELKORA_TIMED(BOOL, FindNextFileW, "_ZN5win3213FindNextFileWEPvP16WIN32_FIND_DATAW",
              (HANDLE a, WIN32_FIND_DATAW* b), (a, b), )
VELKORA_TIMED(BOOL, FindClose, "_ZN5win329FindCloseEPv", (HANDLE a), (a), )
VELKORA_TIMED(int, system, "_ZN5win326systemEPKc", (const char* a), (a), )
VELKORA_TIMED(errno_t, wfopen, "_ZN5win329_wfopen_sEPP8_IO_FILEPKDsS4_",
              (std::FILE * *a, Wide b, Wide c), (a, b, c), )
VELKORA_TIMED(std::size_t, fwrite, "_ZN5win326fwriteEPKvmmP8_IO_FILE",
              (Bytes a, std::size_t b, std::size_t c, std::FILE* d), (a, b, c, d), )
VELKORA_TIMED(int, fclose, "_ZN5win326fcloseEP8_IO_FILE", (std::FILE * a), (a), )
