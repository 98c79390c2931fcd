// Which disk the disk tests wipe: told once, before any test runs.
#pragma once

#include <cstdint>

namespace conformance {

void SetSpareDisk(std::uint32_t number);

}  // namespace conformance
