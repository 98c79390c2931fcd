#include "simulator/handle_table.h"

#include <cstddef>
#include <cstdint>
#include <utility>

#include "simulator/handle_object.h"

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

HandleTable::HandleTable() = default;

HandleTable::~HandleTable() = default;

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

// Each object ends while the table is empty already.
void HandleTable::CloseAll() {
  std::exchange(objects_, {}).clear();
}

std::vector<std::string> HandleTable::Open() const {
  std::vector<std::string> descriptions;
  for (const auto& object : objects_) {
    if (object != nullptr) descriptions.push_back(object->Describe());
  }
  return descriptions;
}

}  // namespace simulator
