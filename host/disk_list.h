#pragma once

#include <cstdint>
#include <vector>

namespace velkora_host {

// The numbers of the disks that are present (the N of `\\.\PhysicalDriveN`), ascending. A disk that
// does not open or tells no number is left out. Throws HostError when the system lists none.
std::vector<std::uint32_t> ListDisks();

}  // namespace velkora_host
