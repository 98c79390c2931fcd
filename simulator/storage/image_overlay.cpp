#include "simulator/storage/image_overlay.h"

#include <algorithm>
#include <array>
#include <stdexcept>

#include "simulator/storage/block_device.h"

namespace simulator {
namespace {

constexpr std::size_t kPageSize = 4096;  // bytes
constexpr std::array<std::byte, kPageSize> kZeros{};

// A piece of a transfer that lies in one page.
struct Piece {
  std::uint64_t page = 0;
  std::size_t in_page = 0;      // where it begins there
  std::size_t in_transfer = 0;  // and in the transfer
  std::size_t length = 0;
};

// Calls `handle` with each piece of the range, in order, until one returns false.
template <typename Handle>
bool ForEachPiece(std::uint64_t offset, std::uint64_t length, const Handle& handle) {
  std::uint64_t done = 0;
  while (done < length) {
    Piece piece;
    piece.page = (offset + done) / kPageSize;
    piece.in_page = static_cast<std::size_t>((offset + done) % kPageSize);
    piece.in_transfer = static_cast<std::size_t>(done);
    piece.length =
        static_cast<std::size_t>(std::min<std::uint64_t>(length - done, kPageSize - piece.in_page));
    if (!handle(piece)) return false;
    done += piece.length;
  }
  return true;
}

// Adds the bytes from `offset` on in which the two differ.
void AddDifferences(std::uint64_t offset, std::span<const std::byte> left,
                    std::span<const std::byte> right, std::vector<ByteRange>& ranges) {
  for (std::size_t i = 0; i < left.size(); ++i) {
    if (left[i] == right[i]) continue;
    const std::uint64_t at = offset + i;
    if (!ranges.empty() && ranges.back().offset + ranges.back().length == at) {
      ++ranges.back().length;
    } else {
      ranges.push_back({at, 1});
    }
  }
}

}  // namespace

void ImageOverlay::Apply(std::uint64_t offset, std::span<std::byte> buffer) const {
  if (pages_.empty()) return;
  ForEachPiece(offset, buffer.size(), [&](const Piece& piece) {
    const auto found = pages_.find(piece.page);
    if (found == pages_.end()) return true;
    const std::byte* bytes = found->second.empty() ? kZeros.data() : found->second.data();
    std::copy_n(bytes + piece.in_page, piece.length, buffer.data() + piece.in_transfer);
    return true;
  });
}

ImageOverlay::Page* ImageOverlay::PageToChange(std::uint64_t number, bool as_a_whole,
                                               const ReadImage& image) {
  const auto found = pages_.find(number);
  if (found != pages_.end()) {
    found->second.resize(kPageSize);
    return &found->second;
  }
  Page page(kPageSize);
  if (!as_a_whole && !image(number * kPageSize, page)) return nullptr;
  return &pages_.emplace(number, std::move(page)).first->second;
}

bool ImageOverlay::Write(std::uint64_t offset, std::span<const std::byte> data,
                         const ReadImage& image) {
  return ForEachPiece(offset, data.size(), [&](const Piece& piece) {
    Page* page = PageToChange(piece.page, piece.length == kPageSize, image);
    if (page == nullptr) return false;
    std::copy_n(data.data() + piece.in_transfer, piece.length, page->data() + piece.in_page);
    return true;
  });
}

bool ImageOverlay::Zero(std::uint64_t offset, std::uint64_t length, const ReadImage& image) {
  return ForEachPiece(offset, length, [&](const Piece& piece) {
    if (piece.length == kPageSize) {
      pages_[piece.page] = Page();
      return true;
    }
    const auto zeros = std::span(kZeros).first(piece.length);
    return Write(piece.page * kPageSize + piece.in_page, zeros, image);
  });
}

std::vector<ByteRange> ImageOverlay::Pages() const {
  std::vector<ByteRange> ranges;
  for (const auto& [number, page] : pages_) ranges.push_back({number * kPageSize, kPageSize});
  std::sort(ranges.begin(), ranges.end(),
            [](const ByteRange& a, const ByteRange& b) { return a.offset < b.offset; });
  return ranges;
}

std::vector<ByteRange> ImageOverlay::Changes(BlockDevice& image) const {
  std::vector<ByteRange> ranges;
  std::array<std::byte, kPageSize> before;
  std::array<std::byte, kPageSize> after;
  for (const ByteRange& page : Pages()) {
    const std::uint64_t offset = page.offset;
    const auto length =
        static_cast<std::size_t>(std::min<std::uint64_t>(kPageSize, image.size() - offset));
    if (!image.Read(offset, std::span(before).first(length))) {
      throw std::runtime_error("the image under the overlay cannot be read");
    }
    after = before;
    Apply(offset, std::span(after).first(length));
    AddDifferences(offset, std::span(before).first(length), std::span(after).first(length), ranges);
  }
  return ranges;
}

}  // namespace simulator
