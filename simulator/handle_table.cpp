#include "simulator/handle_table.h"

#include <utility>

namespace simulator {
namespace {

// Handles are multiples of four, as Windows gives them.
constexpr std::uintptr_t kHandleStep = 4;

}  // namespace

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

HANDLE HandleTable::Add(std::unique_ptr<HandleObject> object) {
  const std::uintptr_t value = next_;
  next_ += kHandleStep;
  objects_.emplace(value, std::move(object));
  return reinterpret_cast<HANDLE>(value);
}

HandleObject* HandleTable::Find(HANDLE handle) {
  const auto found = objects_.find(reinterpret_cast<std::uintptr_t>(handle));
  return found == objects_.end() ? nullptr : found->second.get();
}

bool HandleTable::Close(HANDLE handle) {
  return objects_.erase(reinterpret_cast<std::uintptr_t>(handle)) != 0;
}

std::vector<std::string> HandleTable::Open() const {
  std::vector<std::string> descriptions;
  for (const auto& [value, object] : objects_) descriptions.push_back(object->Describe());
  return descriptions;
}

}  // namespace simulator
