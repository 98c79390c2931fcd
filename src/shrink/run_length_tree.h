// Finds the first of many free runs that is long enough.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "shrink/fat32_free_space.h"

namespace velkora {

// The lengths of a list of runs, with the largest of each half, quarter and so on above them, so
// that neither a search nor a change walks the list.
class RunLengthTree {
 public:
  explicit RunLengthTree(const std::vector<ClusterRun>& runs);

  // The index of the first run that is longer than `count`; the number of runs if there is none.
  std::size_t FirstLongerThan(std::uint64_t count) const;
  // `index` is below the number of runs.
  void SetLength(std::size_t index, std::uint64_t length);

 private:
  std::size_t run_count_;
  std::size_t leaf_count_;  // a power of two
  // Node n stands above nodes 2n and 2n + 1; the leaves begin at leaf_count_, those without a run
  // are 0.
  std::vector<std::uint64_t> longest_;
};

}  // namespace velkora
