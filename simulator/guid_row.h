// The GUIDs that a simulated machine makes up.
#pragma once

#include <cstdint>

#include "platform/win32_types.h"

namespace simulator {

// The same row of GUIDs for the same seed, on every host.
class GuidRow {
 public:
  explicit GuidRow(std::uint64_t seed) : state_(seed) {}

  GUID Next();

 private:
  std::uint64_t NextNumber();

  std::uint64_t state_;
};

}  // namespace simulator
