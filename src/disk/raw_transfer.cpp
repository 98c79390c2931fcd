#include "disk/raw_transfer.h"

#include "logging/log.h"
#include "platform/win32.h"

namespace velkora {
namespace {

constexpr int kAttempts = 3;

// `transfer(count)` moves the bytes at the current position.
template <typename Transfer>
bool TransferAt(HANDLE handle, LARGE_INTEGER* position, std::uint32_t length, std::uint32_t* done,
                const char* what, Transfer transfer) {
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    // A position whose lower half equals the failure value is taken for a failed seek; no position
    // in use is one, since all are whole sectors.
    const DWORD low = win32::SetFilePointer(handle, static_cast<LONG>(position->u.LowPart),
                                            &position->u.HighPart, FILE_BEGIN);
    if (low == INVALID_SET_FILE_POINTER) continue;
    DWORD count = 0;
    const BOOL succeeded = transfer(&count);
    if (done != nullptr) *done = count;
    if (succeeded && count == length) return true;
    LogEx(kLogModule, kLogError, "%s Data Error! error_code: %d", what,
          static_cast<int>(win32::GetLastError()));
  }
  return false;
}

}  // namespace

bool ReadData(const HANDLE* handle, LARGE_INTEGER* position, void* buffer, std::uint32_t length,
              std::uint32_t* done) {
  return TransferAt(*handle, position, length, done, "Read", [&](DWORD* count) {
    return win32::ReadFile(*handle, buffer, length, count, nullptr);
  });
}

bool WriteData(const HANDLE* handle, LARGE_INTEGER* position, const void* buffer,
               std::uint32_t length, std::uint32_t* done) {
  return TransferAt(*handle, position, length, done, "Write", [&](DWORD* count) {
    return win32::WriteFile(*handle, buffer, length, count, nullptr);
  });
}

}  // namespace velkora
