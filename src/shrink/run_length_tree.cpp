#include "shrink/run_length_tree.h"

#include <algorithm>
#include <bit>

namespace velkora {

RunLengthTree::RunLengthTree(const std::vector<ClusterRun>& runs)
    : run_count_(runs.size()), leaf_count_(std::bit_ceil(runs.size())), longest_(2 * leaf_count_) {
  for (std::size_t i = 0; i < run_count_; ++i) longest_[leaf_count_ + i] = runs[i].length;
  for (std::size_t node = leaf_count_ - 1; node > 0; --node) {
    longest_[node] = std::max(longest_[2 * node], longest_[2 * node + 1]);
  }
}

std::size_t RunLengthTree::FirstLongerThan(std::uint64_t count) const {
  std::size_t node = 1;
  if (longest_[node] <= count) return run_count_;
  while (node < leaf_count_) {
    node *= 2;
    if (longest_[node] <= count) ++node;
  }
  return node - leaf_count_;
}

void RunLengthTree::SetLength(std::size_t index, std::uint64_t length) {
  std::size_t node = leaf_count_ + index;
  longest_[node] = length;
  for (node /= 2; node > 0; node /= 2) {
    longest_[node] = std::max(longest_[2 * node], longest_[2 * node + 1]);
  }
}

}  // namespace velkora
