// How the clusters of a FAT32 chain are moved while the volume is in use.
#include <algorithm>
#include <numeric>

#include "simulator/storage/fat32_clusters.h"

namespace simulator {
namespace {

constexpr std::size_t kMostBytesAtOnce = 65536;
constexpr std::uint32_t kEndOfChain = 0x0FFFFFFF;

}  // namespace

DWORD Fat32Clusters::Move(Fat32Chain chain, std::size_t index, std::size_t count,
                          std::uint32_t target, const std::function<DWORD(std::uint32_t)>& head) {
  if (index >= chain.size()) return ERROR_SUCCESS;
  std::size_t left = std::min(count, chain.size() - index);
  while (left > 0) {
    const std::size_t piece =
        std::min(left, std::max<std::size_t>(kMostBytesAtOnce / cluster_bytes_, 1));
    DWORD error = ExpectFree(target, piece);
    if (error == ERROR_SUCCESS) error = CopyPiece(chain, index, piece, target);
    if (error == ERROR_SUCCESS) {
      error = index == 0 ? head(target) : table_.Write(chain[index - 1], {&target, 1});
    }
    if (error == ERROR_SUCCESS) error = FreePiece(chain, index, piece);
    if (error != ERROR_SUCCESS) return error;
    std::iota(chain.begin() + static_cast<std::ptrdiff_t>(index),
              chain.begin() + static_cast<std::ptrdiff_t>(index + piece), target);
    target += static_cast<std::uint32_t>(piece);
    index += piece;
    left -= piece;
  }
  return ERROR_SUCCESS;
}

// Neighbours go with one write.
DWORD Fat32Clusters::FreePiece(const Fat32Chain& chain, std::size_t index, std::size_t count) {
  const Fat32Chain free(count, 0);
  for (const std::size_t end = index + count; index < end;) {
    std::size_t length = 1;
    while (index + length < end && chain[index + length] == chain[index] + length) ++length;
    const DWORD error = table_.Write(chain[index], std::span(free).first(length));
    if (error != ERROR_SUCCESS) return error;
    index += length;
  }
  return ERROR_SUCCESS;
}

DWORD Fat32Clusters::ExpectFree(std::uint32_t first, std::size_t count) {
  for (std::uint32_t cluster = first; cluster < first + count; ++cluster) {
    std::uint32_t value = 0;
    if (!IsCluster(cluster)) return ERROR_INVALID_PARAMETER;
    const DWORD error = table_.Read(cluster, value);
    if (error != ERROR_SUCCESS) return error;
    if (value != 0) return ERROR_INVALID_PARAMETER;
  }
  return ERROR_SUCCESS;
}

// Puts the data into the new clusters and links them to each other and to what follows; nothing
// leads to them yet.
DWORD Fat32Clusters::CopyPiece(const Fat32Chain& chain, std::size_t index, std::size_t count,
                               std::uint32_t target) {
  if (moved_.size() < count * cluster_bytes_) moved_.resize(count * cluster_bytes_);
  const auto data = std::span(moved_).first(count * cluster_bytes_);
  DWORD error = ReadPart(chain, std::uint64_t{index} * cluster_bytes_, data);
  if (error != ERROR_SUCCESS) return error;
  Fat32Chain clusters(count);
  std::iota(clusters.begin(), clusters.end(), target);
  error = WritePart(clusters, 0, data);
  if (error != ERROR_SUCCESS) return error;
  Fat32Chain links(count);
  std::iota(links.begin(), links.end(), target + 1);
  links.back() = index + count < chain.size() ? chain[index + count] : kEndOfChain;
  return table_.Write(target, links);
}

}  // namespace simulator
