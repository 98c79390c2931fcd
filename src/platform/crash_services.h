// The crash sender of an outside vendor's closed library, as an operation to be supplied. Its
// members keep that library's names.
//
// On Windows an adapter calls BugSplat64.dll where it is installed and otherwise keeps what it was
// given; the simulated machine records it.
#pragma once

#include <cstdint>

#include "platform/win32_types.h"

namespace win32 {

class MiniDmpSender {
 public:
  // Called when the vendor's library has something to tell, on a thread of its choice. What the
  // codes mean and what it does with the result is the vendor's.
  using Callback = bool (*)(std::uint32_t code, void* first, void* second);

  // Bits of MINIDUMP_TYPE.
  virtual std::uint32_t getMiniDumpType() = 0;
  virtual void setMiniDumpType(std::uint32_t type) = 0;
  virtual void setCallback(Callback callback) = 0;
  // Attaches the file at `path` to the report.
  virtual void sendAdditionalFile(const WCHAR* path) = 0;
  // Sends a report on demand.
  virtual void createReport(EXCEPTION_POINTERS* pointers) = 0;

 protected:
  ~MiniDmpSender() = default;  // a sender is never freed
};

// Makes a sender with the vendor's constructor arguments; what the fourth text and the flags mean
// is the vendor's. The texts are copied. Never null; throws std::bad_alloc.
MiniDmpSender* NewMiniDmpSender(const WCHAR* database, const WCHAR* application,
                                const WCHAR* version, const WCHAR* fourth, std::uint32_t flags);

}  // namespace win32
