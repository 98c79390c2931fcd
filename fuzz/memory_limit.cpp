// A machine with little memory, so that a block of gigabytes, which the library asks for where a
// boot sector says so, ends in std::bad_alloc and not in the fuzzer's own limit.
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <malloc.h>
#include <new>

namespace {

constexpr std::size_t kMost = std::size_t{512} << 20;
std::atomic<std::size_t> in_use{0};

void* Allocate(std::size_t size) noexcept {
  if (size > kMost || in_use > kMost - size) return nullptr;
  void* memory = std::malloc(size == 0 ? 1 : size);
  if (memory != nullptr) in_use += malloc_usable_size(memory);
  return memory;
}

void* AllocateOrThrow(std::size_t size) {
  void* memory = Allocate(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

void Free(void* memory) noexcept {
  if (memory == nullptr) return;
  in_use -= malloc_usable_size(memory);
  std::free(memory);
}

}  // namespace

// All of them, since the sanitizer has its own of each.
void* operator new(std::size_t size) {
  return AllocateOrThrow(size);
}
void* operator new[](std::size_t size) {
  return AllocateOrThrow(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return Allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return Allocate(size);
}
void operator delete(void* memory) noexcept {
  Free(memory);
}
void operator delete[](void* memory) noexcept {
  Free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  Free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
  Free(memory);
}
