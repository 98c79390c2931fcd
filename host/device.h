// A disk or volume, opened through the seam.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/win32.h"

namespace velkora_host {

// "error 5".
std::string ErrorText(DWORD error);

// Owns the handle. Of one thread.
class Device {
 public:
  // Opens `path` (`\\.\PhysicalDrive1`, or a volume's path without its trailing backslash) for
  // reading, shared with everyone. Throws HostError.
  explicit Device(std::string path);
  ~Device();
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;

  // The answer to a control code without input: at least `size` bytes asked for, more where the
  // device has more to say. Null with the Windows error in `error` when it refuses.
  std::optional<std::vector<std::byte>> Ask(DWORD code, std::size_t size, DWORD& error,
                                            std::span<const std::byte> in = {}) const;
  // The same for an answer of fixed size. Throws HostError, which names `question`, when the device
  // refuses or answers less.
  template <typename Answer>
  Answer Ask(DWORD code, const char* question) const {
    Answer answer{};
    AskFor(code, question, std::as_writable_bytes(std::span(&answer, 1)));
    return answer;
  }

  // The bytes at `offset`, a multiple of the sector size as the length of `bytes` is. False when
  // they cannot be read.
  bool Read(std::uint64_t offset, std::span<std::byte> bytes) const;

  const std::string& path() const { return path_; }

 private:
  void AskFor(DWORD code, const char* question, std::span<std::byte> answer) const;

  std::string path_;
  HANDLE handle_;
};

}  // namespace velkora_host
