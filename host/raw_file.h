// Files and disks at 64-bit places, with failures told by exceptions.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>

#include "platform/win32_types.h"

namespace velkora_host {

// A rescue file cannot be written, is damaged or belongs to another disk, or a transfer failed. The
// text names the file or disk, the field or place, and the value.
class RescueError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A handle that its owner closes, and the name that messages use. A transfer that comes short
// is a failure; each failure throws RescueError. The position of the handle is moved.
class RawFile {
 public:
  RawFile(HANDLE handle, std::string name);

  const std::string& name() const { return name_; }
  void Read(std::uint64_t place, std::span<std::byte> bytes) const;
  void Write(std::uint64_t place, std::span<const std::byte> bytes) const;
  // Returns once the medium has what was written.
  void Flush() const;
  // Of a file; a disk refuses it.
  std::uint64_t Size() const;

 private:
  void Seek(std::uint64_t place) const;

  HANDLE handle_;
  std::string name_;
};

// A file that is open for as long as the object lives.
class OpenFile {
 public:
  // Throws RescueError. `disposition` is CREATE_NEW, for reading and writing without sharing, or
  // OPEN_EXISTING, for reading.
  OpenFile(const std::string& path, DWORD disposition);
  ~OpenFile() { Close(); }
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;

  HANDLE handle() const { return handle_; }
  void Close();

 private:
  HANDLE handle_;
};

}  // namespace velkora_host
