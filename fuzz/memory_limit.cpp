// A machine with little memory, so that a block of gigabytes, which the described behaviour asks
// for where a boot sector says so, ends in std::bad_alloc and not in the fuzzer's own limit.
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <malloc.h>
#include <new>

namespace {

constexpr std::size_t kMost = std::size_t{512} << 20;
std::atomic<std::size_t> in_use{0};

}  // namespace

void* operator new(std::size_t size) {
  if (size > kMost || in_use > kMost - size) throw std::bad_alloc();
  void* memory = std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) throw std::bad_alloc();
  in_use += malloc_usable_size(memory);
  return memory;
}

void operator delete(void* memory) noexcept {
  if (memory == nullptr) return;
  in_use -= malloc_usable_size(memory);
  std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
  operator delete(memory);
}
