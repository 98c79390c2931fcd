// Open handles of the simulated machine.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "platform/win32_types.h"

namespace simulator {

// What a handle stands for. Each operation returns a Windows error, ERROR_SUCCESS for success. The
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
};

class HandleTable {
 public:
  HANDLE Add(std::unique_ptr<HandleObject> object);
  // Null for a handle that is not open.
  HandleObject* Find(HANDLE handle);
  bool Close(HANDLE handle);
  // Describe() of each open handle, in the order of opening.
  std::vector<std::string> Open() const;

 private:
  // In the order of opening; null once closed: a value is never given again.
  std::vector<std::unique_ptr<HandleObject>> objects_;
};

}  // namespace simulator
