// Last error, faults, COM and the C runtime of the seam, answered by the current simulated machine.
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <string>

#include "platform/guard.h"
#include "simulator/seam_call.h"
#include "simulator/text.h"

namespace win32 {
namespace {

using simulator::FailsOnDemand;
using simulator::SimulatedMachine;

constexpr auto kUnspecifiedFailure = static_cast<HRESULT>(0x80004005);

thread_local DWORD last_error = ERROR_SUCCESS;

std::FILE* OpenOnHost(const std::filesystem::path& path, const WCHAR* mode) {
#ifdef _WIN32
  return ::_wfopen(path.c_str(), mode);
#else
  return std::fopen(path.c_str(), simulator::Utf16ToUtf8(mode).c_str());
#endif
}

// With a CR LF as one line feed. The library reads text files alone, so every stream is taken for
// one.
int NextCharacter(std::FILE* file) {
  const int character = std::getc(file);
  if (character != '\r') return character;
  const int next = std::getc(file);
  if (next == '\n') return next;
  if (next != EOF) std::ungetc(next, file);
  return character;
}

}  // namespace

DWORD GetLastError() {
  return last_error;
}

void SetLastError(DWORD error) {
  last_error = error;
}

void RaiseFault(DWORD code) {
#ifdef _WIN32
  // Raised once more if a debugger lets it pass.
  for (;;) ::RaiseException(code, EXCEPTION_NONCONTINUABLE, 0, nullptr);
#else
  throw Fault{code};
#endif
}

HRESULT CoCreateGuid(GUID* guid) {
  SimulatedMachine& machine = SimulatedMachine::Current();
  if (FailsOnDemand(machine, "CoCreateGuid")) return kUnspecifiedFailure;
  *guid = machine.NextGuid();
  return S_OK;
}

errno_t _wfopen_s(std::FILE** file, const WCHAR* path, const WCHAR* mode) {
  SimulatedMachine& machine = SimulatedMachine::Current();
  const std::string name = simulator::Utf16ToUtf8(path);
  const std::string arguments = simulator::Utf16ToUtf8(mode);
  if (file != nullptr) *file = nullptr;
  if (FailsOnDemand(machine, "_wfopen_s", simulator::FileNameOf(name), arguments)) {
    const DWORD error = GetLastError();
    return error == ERROR_GEN_FAILURE ? EACCES : static_cast<errno_t>(error);
  }
  if (file == nullptr || path == nullptr || mode == nullptr) return EINVAL;
  const auto host_path = machine.HostPath(name);
  if (!host_path) return ENOENT;
  if (std::filesystem::is_directory(*host_path)) return EACCES;
  errno = 0;
  *file = OpenOnHost(*host_path, mode);
  if (*file != nullptr) return 0;
  return errno != 0 ? errno : EINVAL;
}

std::size_t fwrite(const void* data, std::size_t size, std::size_t count, std::FILE* file) {
  SimulatedMachine& machine = SimulatedMachine::Current();
  const std::string arguments = std::to_string(count) + " of " + std::to_string(size) + " bytes";
  if (FailsOnDemand(machine, "fwrite", {}, arguments)) return 0;
  return std::fwrite(data, size, count, file);
}

int fclose(std::FILE* file) {
  const bool fails = FailsOnDemand(SimulatedMachine::Current(), "fclose");
  const int result = std::fclose(file);
  return fails ? EOF : result;
}

std::FILE* fopen(const char* path, const char* mode) {
  SimulatedMachine& machine = SimulatedMachine::Current();
  if (FailsOnDemand(machine, "fopen", simulator::FileNameOf(path), mode)) return nullptr;
  const auto host_path = machine.HostPath(path);
  if (!host_path || std::filesystem::is_directory(*host_path)) return nullptr;
  return std::fopen(host_path->string().c_str(), mode);
}

std::size_t fread(void* data, std::size_t size, std::size_t count, std::FILE* file) {
  SimulatedMachine& machine = SimulatedMachine::Current();
  const std::string arguments = std::to_string(count) + " of " + std::to_string(size) + " bytes";
  if (FailsOnDemand(machine, "fread", {}, arguments) || size == 0) return 0;
  auto* const bytes = static_cast<char*>(data);
  std::size_t length = 0;
  for (; length < size * count; ++length) {
    const int character = NextCharacter(file);
    if (character == EOF) break;
    bytes[length] = static_cast<char>(character);
  }
  return length / size;
}

int remove(const char* path) {
  SimulatedMachine& machine = SimulatedMachine::Current();
  if (FailsOnDemand(machine, "remove", simulator::FileNameOf(path))) return -1;
  const auto host_path = machine.HostPath(path);
  return host_path ? std::remove(host_path->string().c_str()) : -1;
}

std::int64_t time(std::int64_t* out) {
  SimulatedMachine& machine = SimulatedMachine::Current();
  if (FailsOnDemand(machine, "time")) return -1;
  if (out != nullptr) *out = machine.time();
  return machine.time();
}

}  // namespace win32
