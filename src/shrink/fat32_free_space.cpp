#include "shrink/fat32_free_space.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <limits>
#include <new>

#include "logging/log.h"
#include "platform/guard.h"
#include "platform/win32.h"

namespace velkora {
namespace {

constexpr unsigned kMibShift = 20;
constexpr std::uint64_t kByteBits = 8;
constexpr std::uint64_t kWordBits = 64;
constexpr std::size_t kBlockWords = 8;
constexpr std::size_t kBitmapHeaderBytes = offsetof(VOLUME_BITMAP_BUFFER, Buffer);
// Behind the bits: the header, and zero bytes to spare.
constexpr std::uint64_t kBufferExtraBytes = 24;
// The query is longer than the structure that it holds.
constexpr DWORD kQueryBytes = 16;

static_assert(sizeof(VOLUME_BITMAP_BUFFER) == kBufferExtraBytes);

// The `index`-th 64 bits; bits behind the end are clear.
std::uint64_t WordAt(std::span<const std::byte> bits, std::uint64_t index) {
  const std::span<const std::byte> rest = bits.subspan(index * sizeof(std::uint64_t));
  std::uint64_t word = 0;
  std::memcpy(&word, rest.data(), std::min(rest.size(), sizeof word));
  return word;
}

// Whether none of the eight words from the `index`-th on has a bit that is `set`.
bool BlockHasNone(std::span<const std::byte> bits, std::uint64_t index, bool set) {
  std::array<std::uint64_t, kBlockWords> words;
  std::memcpy(words.data(), bits.data() + index * sizeof(std::uint64_t), sizeof words);
  const std::uint64_t other = set ? 0 : ~std::uint64_t{0};
  std::uint64_t different = 0;
  for (const std::uint64_t word : words) different |= word ^ other;
  return different == 0;
}

// The first word at or behind the `index`-th that may have a bit that is `set`: long runs are
// passed by whole blocks.
std::uint64_t SkipBlocks(std::span<const std::byte> bits, std::uint64_t index, bool set) {
  const std::uint64_t whole_words = bits.size() / sizeof(std::uint64_t);
  while (index + kBlockWords <= whole_words && BlockHasNone(bits, index, set)) index += kBlockWords;
  return index;
}

// The first bit at or behind `position` that is `set`, or `end`.
std::uint64_t FindBit(std::span<const std::byte> bits, std::uint64_t position, std::uint64_t end,
                      bool set) {
  std::uint64_t skipped = ~std::uint64_t{0} << position % kWordBits;
  for (std::uint64_t index = position / kWordBits; index * kWordBits < end;
       index = SkipBlocks(bits, index + 1, set)) {
    const std::uint64_t word = WordAt(bits, index);
    const std::uint64_t found = (set ? word : ~word) & skipped;
    if (found != 0) {
      return std::min(end, index * kWordBits + static_cast<std::uint64_t>(std::countr_zero(found)));
    }
    skipped = ~std::uint64_t{0};
  }
  return end;
}

BOOL GetVolumeBitmap(HANDLE volume, void* out, DWORD out_size) {
  std::byte query[kQueryBytes] = {};  // from LCN 0
  DWORD returned = 0;
  return win32::DeviceIoControl(volume, FSCTL_GET_VOLUME_BITMAP, query, kQueryBytes, out, out_size,
                                &returned, nullptr);
}

bool FailWith(DWORD error) {
  LogEx(kLogModule, kLogError, "GET VOLUME BITMAP Error! error_code: %d", static_cast<int>(error));
  return false;
}

}  // namespace

std::uint64_t BoundaryCluster(std::uint64_t total_clusters, std::uint64_t size_mib,
                              std::uint64_t cluster_size) {
  if (cluster_size == 0) win32::RaiseFault(EXCEPTION_INT_DIVIDE_BY_ZERO);
  return total_clusters - (size_mib << kMibShift) / cluster_size + 1;
}

void AppendFreeRuns(std::span<const std::byte> bits, std::uint64_t cluster_count,
                    std::vector<ClusterRun>& runs) {
  const std::uint64_t end = (cluster_count + kByteBits - 1) / kByteBits * kByteBits;
  std::uint64_t position = kByteBits;
  while (position < end) {
    const std::uint64_t first = FindBit(bits, position, end, /*set=*/false);
    if (first == end) return;
    position = FindBit(bits, first, end, /*set=*/true);
    // The length of a run that reaches the end is that of the whole volume and more: it is not
    // reduced by the run's start. File moves cut runs down to the boundary, so the excess does no
    // harm there; directory moves do not cut them.
    const std::uint64_t length = position == end ? end + kFirstFatCluster : position - first;
    runs.push_back({first + kFirstFatCluster, length});
  }
}

bool GetClusterLocation(HANDLE volume, std::vector<ClusterRun>& runs,
                        std::uint64_t& total_clusters) {
  VOLUME_BITMAP_BUFFER header{};
  if (!GetVolumeBitmap(volume, &header, sizeof header)) {
    const DWORD error = win32::GetLastError();
    if (error != ERROR_MORE_DATA) return FailWith(error);
  }
  total_clusters = static_cast<std::uint64_t>(header.BitmapSize.QuadPart);
  if (total_clusters > std::numeric_limits<DWORD>::max() - kBufferExtraBytes) {
    throw std::bad_alloc();
  }
  // A byte for each cluster, about eight times what the bits need.
  std::vector<std::byte> buffer(total_clusters + kBufferExtraBytes);
  if (!GetVolumeBitmap(volume, buffer.data(), static_cast<DWORD>(buffer.size()))) {
    return FailWith(win32::GetLastError());
  }
  AppendFreeRuns(std::span<const std::byte>(buffer).subspan(kBitmapHeaderBytes), total_clusters,
                 runs);
  return true;
}

}  // namespace velkora
