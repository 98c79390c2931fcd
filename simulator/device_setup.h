// Disks that come to have another number.
#pragma once

#include <cstdint>

namespace simulator {

class SimulatedMachine;

// Lets the disk `number` be `\\.\PhysicalDrive<new_number>` from now on, with its open handles, its
// volumes and their files; its interface path and its serial number stay. Throws
// std::invalid_argument when there is no such disk or the new number is in use.
void RenumberDisk(SimulatedMachine& machine, std::uint32_t number, std::uint32_t new_number);

}  // namespace simulator
