// Whether a disk may be wiped.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace conformance {

// Why the disk must stay as it is, or "" when it may be wiped. It must not hold the volume of
// Windows nor any of `paths_in_use`, nor a partition that a machine starts from, and it must have
// 256 MiB in sectors of 512 bytes. What cannot be found out counts as a reason.
std::string ReasonToKeep(std::uint32_t disk, const std::vector<std::string>& paths_in_use);

}  // namespace conformance
