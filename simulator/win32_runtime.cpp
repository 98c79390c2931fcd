// Last error, COM and the C runtime of the seam, answered by the current simulated machine.
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <span>
#include <string>

#include "simulator/seam_call.h"
#include "simulator/text.h"
#include "simulator/wide_text.h"

namespace win32 {
namespace {

using simulator::FailsOnDemand;
using simulator::System;

constexpr auto kUnspecifiedFailure = static_cast<HRESULT>(0x80004005);

thread_local DWORD last_error = ERROR_SUCCESS;

// Opens a stream that the host leaves as it is: what a text mode changes is changed here.
std::FILE* OpenOnHost(System& system, const std::filesystem::path& path, const std::string& mode) {
  const bool binary = mode.find('b') != std::string::npos;
  const std::string host_mode = binary ? mode : mode + 'b';
#ifdef _WIN32
  std::FILE* file = ::_wfopen(path.c_str(), simulator::Utf8ToUtf16(host_mode).c_str());
#else
  std::FILE* file = std::fopen(path.c_str(), host_mode.c_str());
#endif
  if (file != nullptr && !binary) system.text_streams().insert(file);
  return file;
}

// The errno value of a call that failed on demand.
errno_t ErrnoOnDemand() {
  const DWORD error = GetLastError();
  return error == ERROR_GEN_FAILURE ? EACCES : static_cast<errno_t>(error);
}

// Opens the file that `name` leads to; the errno value of a failure, or 0.
errno_t OpenByName(System& system, std::string_view name, const std::string& mode,
                   std::FILE*& file) {
  const auto host_path = system.HostPath(name);
  if (!host_path) return ENOENT;
  if (std::filesystem::is_directory(*host_path)) return EACCES;
  errno = 0;
  file = OpenOnHost(system, *host_path, mode);
  if (file != nullptr) return 0;
  return errno != 0 ? errno : EINVAL;
}

// Reads each CR LF as a line feed. The count of characters read.
std::size_t ReadAsText(std::span<char> text, std::FILE* file) {
  std::size_t length = 0;
  for (; length < text.size(); ++length) {
    int character = std::getc(file);
    if (character == '\r') {
      const int next = std::getc(file);
      if (next == '\n') character = next;
      if (next != '\n' && next != EOF) std::ungetc(next, file);
    }
    if (character == EOF) break;
    text[length] = static_cast<char>(character);
  }
  return length;
}

// Writes each line feed as CR LF. The count of bytes of `text` that were written.
std::size_t WriteAsText(std::string_view text, std::FILE* file) {
  std::size_t done = 0;
  for (; done < text.size(); ++done) {
    if (text[done] == '\n' && std::putc('\r', file) == EOF) break;
    if (std::putc(static_cast<unsigned char>(text[done]), file) == EOF) break;
  }
  return done;
}

}  // namespace

DWORD GetLastError() {
  return last_error;
}

void SetLastError(DWORD error) {
  last_error = error;
}

HRESULT CoCreateGuid(GUID* guid) {
  System& system = System::Current();
  if (FailsOnDemand(system, "CoCreateGuid")) return kUnspecifiedFailure;
  *guid = system.NextGuid();
  return S_OK;
}

errno_t _wfopen_s(std::FILE** file, const WCHAR* path, const WCHAR* mode) {
  System& system = System::Current();
  const std::string name = simulator::Utf16ToUtf8(path);
  const std::string mode_text = simulator::Utf16ToUtf8(mode);
  if (file != nullptr) *file = nullptr;
  if (FailsOnDemand(system, "_wfopen_s", simulator::FileNameOf(name), mode_text)) {
    return ErrnoOnDemand();
  }
  if (file == nullptr || path == nullptr || mode == nullptr) return EINVAL;
  return OpenByName(system, name, mode_text, *file);
}

std::size_t fwrite(const void* data, std::size_t size, std::size_t count, std::FILE* file) {
  System& system = System::Current();
  const std::string arguments = std::to_string(count) + " of " + std::to_string(size) + " bytes";
  if (FailsOnDemand(system, "fwrite", {}, arguments)) return 0;
  if (!system.text_streams().contains(file)) return std::fwrite(data, size, count, file);
  return size == 0 ? 0 : WriteAsText({static_cast<const char*>(data), size * count}, file) / size;
}

int fclose(std::FILE* file) {
  System& system = System::Current();
  const bool fails = FailsOnDemand(system, "fclose");
  system.text_streams().erase(file);
  const int result = std::fclose(file);
  return fails ? EOF : result;
}

std::FILE* fopen(const char* path, const char* mode) {
  System& system = System::Current();
  if (FailsOnDemand(system, "fopen", simulator::FileNameOf(path), mode)) {
    errno = ErrnoOnDemand();
    return nullptr;
  }
  std::FILE* file = nullptr;
  const errno_t error = OpenByName(system, path, mode, file);
  if (error != 0) errno = error;
  return file;
}

std::size_t fread(void* data, std::size_t size, std::size_t count, std::FILE* file) {
  System& system = System::Current();
  const std::string arguments = std::to_string(count) + " of " + std::to_string(size) + " bytes";
  if (FailsOnDemand(system, "fread", {}, arguments) || size == 0) return 0;
  if (!system.text_streams().contains(file)) return std::fread(data, size, count, file);
  return ReadAsText({static_cast<char*>(data), size * count}, file) / size;
}

int fseek(std::FILE* file, std::int32_t offset, int origin) {
  const std::string arguments = std::to_string(offset) + " from " + std::to_string(origin);
  if (FailsOnDemand(System::Current(), "fseek", {}, arguments)) return -1;
  return std::fseek(file, offset, origin);
}

std::int32_t ftell(std::FILE* file) {
  if (FailsOnDemand(System::Current(), "ftell")) return -1;
#ifdef _WIN32
  const auto position = _ftelli64(file);  // its ftell wraps
#else
  const auto position = std::ftell(file);
#endif
  return position > std::numeric_limits<std::int32_t>::max() ? -1
                                                             : static_cast<std::int32_t>(position);
}

void rewind(std::FILE* file) {
  if (!FailsOnDemand(System::Current(), "rewind")) std::rewind(file);
}

int remove(const char* path) {
  System& system = System::Current();
  if (FailsOnDemand(system, "remove", simulator::FileNameOf(path))) return -1;
  const auto host_path = system.HostPath(path);
  return host_path ? std::remove(host_path->string().c_str()) : -1;
}

std::int64_t time(std::int64_t* out) {
  System& system = System::Current();
  if (FailsOnDemand(system, "time")) return -1;
  if (out != nullptr) *out = system.time();
  return system.time();
}

}  // namespace win32
