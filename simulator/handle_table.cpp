#include "simulator/handle_table.h"

#include <utility>

namespace simulator {
namespace {

// Handles are multiples of four, as Windows gives them.
constexpr std::uintptr_t kHandleStep = 4;
constexpr std::uintptr_t kFirstHandle = 0x100;

// Where the object of a handle stands; for what was never a handle, behind any of them.
std::size_t IndexOf(HANDLE handle) {
  const std::uintptr_t distance = reinterpret_cast<std::uintptr_t>(handle) - kFirstHandle;
  return distance % kHandleStep == 0 ? distance / kHandleStep : static_cast<std::size_t>(-1);
}

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
  objects_.push_back(std::move(object));
  return reinterpret_cast<HANDLE>(kFirstHandle + (objects_.size() - 1) * kHandleStep);
}

HandleObject* HandleTable::Find(HANDLE handle) {
  const std::size_t index = IndexOf(handle);
  return index < objects_.size() ? objects_[index].get() : nullptr;
}

bool HandleTable::Close(HANDLE handle) {
  if (Find(handle) == nullptr) return false;
  objects_[IndexOf(handle)].reset();
  return true;
}

std::vector<std::string> HandleTable::Open() const {
  std::vector<std::string> descriptions;
  for (const auto& object : objects_) {
    if (object != nullptr) descriptions.push_back(object->Describe());
  }
  return descriptions;
}

}  // namespace simulator
