// MiniDumpWriteDump of the simulated machine.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/handle_object.h"
#include "simulator/libraries.h"
#include "simulator/seam_call.h"
#include "simulator/text.h"

namespace simulator {
namespace {

constexpr std::string_view kSignature = "MDMP";
constexpr std::uint32_t kVersion = 0xA793;
constexpr std::uint32_t kHeaderLength = 32;          // bytes
constexpr std::uint32_t kDirectoryEntryLength = 12;  // bytes
constexpr std::uint32_t kExceptionStream = 6;
constexpr std::uint32_t kExceptionStreamLength = 168;  // bytes

// What a failed dump leaves as the last error: the Windows error as an HRESULT.
constexpr DWORD AsHresult(DWORD error) {
  return 0x80070000 | (error & 0xFFFF);
}

// Collects little-endian fields.
class Fields {
 public:
  void Put(std::uint64_t value, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i) bytes_.push_back(static_cast<std::byte>(value >> 8 * i));
  }
  void Put32(std::uint32_t value) { Put(value, sizeof value); }
  void Put64(std::uint64_t value) { Put(value, sizeof value); }
  void PutText(std::string_view text) {
    for (const char character : text) bytes_.push_back(static_cast<std::byte>(character));
  }
  const std::vector<std::byte>& bytes() const { return bytes_; }

 private:
  std::vector<std::byte> bytes_;
};

void PutHeader(Fields& fields, std::uint32_t streams, std::int64_t time, std::uint64_t type) {
  fields.PutText(kSignature);
  fields.Put32(kVersion);
  fields.Put32(streams);
  fields.Put32(kHeaderLength);  // where the directory stands
  fields.Put32(0);              // no checksum
  fields.Put32(static_cast<std::uint32_t>(time & 0xFFFFFFFF));
  fields.Put64(type);
}

void PutExceptionStream(Fields& fields, const MINIDUMP_EXCEPTION_INFORMATION& exception) {
  fields.Put32(kExceptionStream);
  fields.Put32(kExceptionStreamLength);
  fields.Put32(kHeaderLength + kDirectoryEntryLength);

  const EXCEPTION_RECORD& record = *exception.ExceptionPointers->ExceptionRecord;
  fields.Put32(exception.ThreadId);
  fields.Put32(0);
  fields.Put32(record.ExceptionCode);
  fields.Put32(record.ExceptionFlags);
  fields.Put64(reinterpret_cast<std::uintptr_t>(record.ExceptionRecord));
  fields.Put64(reinterpret_cast<std::uintptr_t>(record.ExceptionAddress));
  fields.Put32(record.NumberParameters);
  fields.Put32(0);
  for (const std::uintptr_t parameter : record.ExceptionInformation) fields.Put64(parameter);
  fields.Put64(0);  // no thread context
}

BOOL WINAPI WriteDump(HANDLE, DWORD, HANDLE file, MINIDUMP_TYPE type,
                      MINIDUMP_EXCEPTION_INFORMATION* exception, MINIDUMP_USER_STREAM_INFORMATION*,
                      MINIDUMP_CALLBACK_INFORMATION*) {
  System& system = System::Current();
  const std::string arguments =
      Describe(system, file) + " type " + HexText(static_cast<std::uint64_t>(type));
  if (FailsOnDemand(system, "MiniDumpWriteDump", {}, arguments)) return FALSE;
  HandleObject* object = system.handles().Find(file);
  if (object == nullptr) return ToResult(AsHresult(ERROR_INVALID_HANDLE));
  Fields fields;
  PutHeader(fields, exception == nullptr ? 0 : 1, system.time(), static_cast<std::uint64_t>(type));
  if (exception != nullptr) PutExceptionStream(fields, *exception);
  DWORD done = 0;
  const DWORD error = object->Write(fields.bytes(), done);
  return ToResult(error == ERROR_SUCCESS ? error : AsHresult(error));
}

}  // namespace

LibraryFunctions DbgHelpFunctions() {
  // Kept as it is found: as a function of no particular form.
  const MiniDumpWriteDumpFunction write_dump = &WriteDump;
  return {{"MiniDumpWriteDump",
           reinterpret_cast<FARPROC>(reinterpret_cast<std::uintptr_t>(write_dump))}};
}

}  // namespace simulator
