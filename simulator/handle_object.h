// What an open handle of the simulated machine stands for.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "platform/win32_types.h"

namespace simulator {

// Each operation returns a Windows error, ERROR_SUCCESS for success. The
// defaults answer as an object of another kind does (a process, a walk): error 6. `done` and
// `returned` are 0 when they are handed in.
class HandleObject {
 public:
  virtual ~HandleObject() = default;
  // For reading in a list of what is still open: "disk 1", "volume \\?\Volume{…}", "process".
  virtual std::string Describe() const = 0;
  virtual DWORD Read(std::span<std::byte> buffer, DWORD& done);
  virtual DWORD Write(std::span<const std::byte> data, DWORD& done);
  // Moves the position and gives the new one; nothing moves on failure.
  virtual DWORD Seek(std::int64_t distance, DWORD method, std::uint64_t& position);
  virtual DWORD Control(DWORD code, std::span<const std::byte> in, std::span<std::byte> out,
                        DWORD& returned);
  // Has the host write what was written so far to its medium.
  virtual DWORD Flush();
};

}  // namespace simulator
