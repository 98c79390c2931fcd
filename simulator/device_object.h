// What the handles of disks, volumes and files have in common: access rights and a position.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

#include "simulator/handle_object.h"

namespace simulator {

class DeviceObject : public HandleObject {
 public:
  // Checks the rights that stand in bits 14 and 15 of every control code, then asks Answer.
  DWORD Control(DWORD code, std::span<const std::byte> in, std::span<std::byte> out,
                DWORD& returned) final;
  // 131 for a position in front of the start, 87 for one behind 2^63 or an unknown method.
  DWORD Seek(std::int64_t distance, DWORD method, std::uint64_t& position) final;
  // Checks the right to write, then asks FlushWritten.
  DWORD Flush() final;

 protected:
  // `access` holds GENERIC_ bits.
  explicit DeviceObject(DWORD access) : access_(access) {}

  bool readable() const { return (access_ & GENERIC_READ) != 0; }
  bool writable() const { return (access_ & GENERIC_WRITE) != 0; }
  std::uint64_t position() const { return position_; }
  void Advance(std::uint64_t bytes) { position_ += bytes; }

  // By default no control code is known: error 1.
  virtual DWORD Answer(DWORD code, std::span<const std::byte> in, std::span<std::byte> out,
                       DWORD& returned);
  // What FILE_END counts from. Believed: a raw device refuses it with error 1.
  virtual DWORD End(std::uint64_t& end);
  virtual DWORD FlushWritten() = 0;

 private:
  DWORD access_;
  std::uint64_t position_ = 0;
};

// Position and length of a raw transfer are multiples of the sector size.
bool IsAligned(std::uint32_t sector_size, std::uint64_t position, std::uint64_t length);

// Answers a query with one structure: error 122 when `out` is too small for it.
template <typename T>
DWORD AnswerWith(const T& value, std::span<std::byte> out, DWORD& returned) {
  if (out.size() < sizeof(T)) return ERROR_INSUFFICIENT_BUFFER;
  std::memcpy(out.data(), &value, sizeof(T));
  returned = static_cast<DWORD>(sizeof(T));
  return ERROR_SUCCESS;
}

}  // namespace simulator
