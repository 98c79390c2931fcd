// What was written over an image that itself stays as it is.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <unordered_map>
#include <vector>

namespace simulator {

class BlockDevice;

struct ByteRange {
  std::uint64_t offset = 0;
  std::uint64_t length = 0;

  bool operator==(const ByteRange&) const = default;
};

// Holds the changed pages of one image in memory; a page of zeros takes none. It outlives the
// device that writes to it, and the next device of the same image sees what was written.
class ImageOverlay {
 public:
  // Reads bytes of the image itself; what lies behind its end is left as it is. False on failure.
  using ReadImage = std::function<bool(std::uint64_t offset, std::span<std::byte> buffer)>;

  // Back to the image as it is.
  void Reset() { pages_.clear(); }
  bool empty() const { return pages_.empty(); }

  // The bytes that differ from the image's own, which `image` holds and no overlay covers:
  // ascending, each range as long as it can be. Throws std::runtime_error when it cannot be read.
  std::vector<ByteRange> Changes(BlockDevice& image) const;

  // Where it holds pages, also those that are as before: ascending, one range a page, the last one
  // whole even where the image ends within it.
  std::vector<ByteRange> Pages() const;

  // ---- For the device --------------------------------------------------------------------------

  // Lays the changed pages over `buffer`, which holds the image's bytes from `offset` on.
  void Apply(std::uint64_t offset, std::span<std::byte> buffer) const;
  // A page that changes for the first time, and not as a whole, is read with `image`. False when
  // that fails; pages before it are changed then.
  [[nodiscard]] bool Write(std::uint64_t offset, std::span<const std::byte> data,
                           const ReadImage& image);
  [[nodiscard]] bool Zero(std::uint64_t offset, std::uint64_t length, const ReadImage& image);

 private:
  // Empty stands for zeros.
  using Page = std::vector<std::byte>;

  // The page with all its bytes. Null when the image cannot be read.
  Page* PageToChange(std::uint64_t number, bool as_a_whole, const ReadImage& image);

  std::unordered_map<std::uint64_t, Page> pages_;
};

}  // namespace simulator
