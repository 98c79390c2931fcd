#include "simulator/handle_object.h"

namespace simulator {

DWORD HandleObject::Read(std::span<std::byte>, DWORD&) {
  return ERROR_INVALID_HANDLE;
}

DWORD HandleObject::Write(std::span<const std::byte>, DWORD&) {
  return ERROR_INVALID_HANDLE;
}

DWORD HandleObject::Seek(std::int64_t, DWORD, std::uint64_t&) {
  return ERROR_INVALID_HANDLE;
}

DWORD HandleObject::Control(DWORD, std::span<const std::byte>, std::span<std::byte>, DWORD&) {
  return ERROR_INVALID_HANDLE;
}

DWORD HandleObject::Flush() {
  return ERROR_INVALID_HANDLE;
}

}  // namespace simulator
