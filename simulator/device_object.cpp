#include "simulator/device_object.h"

#include <limits>

namespace simulator {
namespace {

constexpr DWORD kCodeNeedsRead = 1;
constexpr DWORD kCodeNeedsWrite = 2;
constexpr DWORD kCodeAccessShift = 14;

constexpr std::uint64_t kLastPosition =
    static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());

}  // namespace

DWORD DeviceObject::Control(DWORD code, std::span<const std::byte> in, std::span<std::byte> out,
                            DWORD& returned) {
  const DWORD needed = code >> kCodeAccessShift;
  if ((needed & kCodeNeedsRead) != 0 && !readable()) return ERROR_ACCESS_DENIED;
  if ((needed & kCodeNeedsWrite) != 0 && !writable()) return ERROR_ACCESS_DENIED;
  return Answer(code, in, out, returned);
}

DWORD DeviceObject::Answer(DWORD, std::span<const std::byte>, std::span<std::byte>, DWORD&) {
  return ERROR_INVALID_FUNCTION;
}

DWORD DeviceObject::End(std::uint64_t&) {
  return ERROR_INVALID_FUNCTION;
}

DWORD DeviceObject::Flush() {
  return writable() ? FlushWritten() : ERROR_ACCESS_DENIED;
}

DWORD DeviceObject::Seek(std::int64_t distance, DWORD method, std::uint64_t& position) {
  std::uint64_t base = 0;
  if (method == FILE_CURRENT) {
    base = position_;
  } else if (method == FILE_END) {
    const DWORD error = End(base);
    if (error != ERROR_SUCCESS) return error;
  } else if (method != FILE_BEGIN) {
    return ERROR_INVALID_PARAMETER;
  }
  if (distance < 0) {
    const std::uint64_t back = 0 - static_cast<std::uint64_t>(distance);
    if (back > base) return ERROR_NEGATIVE_SEEK;
    position_ = base - back;
  } else {
    const auto forward = static_cast<std::uint64_t>(distance);
    if (forward > kLastPosition - base) return ERROR_INVALID_PARAMETER;
    position_ = base + forward;
  }
  position = position_;
  return ERROR_SUCCESS;
}

bool IsAligned(std::uint32_t sector_size, std::uint64_t position, std::uint64_t length) {
  return position % sector_size == 0 && length % sector_size == 0;
}

}  // namespace simulator
