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

// Since the process began; the time only since StartSeamClock: reading a clock twice for each of
// many short calls takes a time of its own.
SeamFigures Seam();
void StartSeamClock();

}  // namespace bench
