// The time that a run spends behind the seam, and what it asks for there.
#pragma once

#include <chrono>
#include <cstdint>

namespace bench {

struct SeamFigures {
  std::chrono::nanoseconds time{};
  std::uint64_t calls = 0;
  std::uint64_t raw_writes = 0;      // calls of WriteFile
  std::uint64_t raw_bytes = 0;       // that they wrote
  std::uint64_t moved_clusters = 0;  // that FSCTL_MOVE_FILE was asked to move
};

// Since the process began.
SeamFigures Seam();

}  // namespace bench
