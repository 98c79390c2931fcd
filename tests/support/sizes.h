#pragma once

#include <cstdint>

namespace testing_support {

inline constexpr std::uint64_t kMiB = std::uint64_t{1} << 20;

}  // namespace testing_support
