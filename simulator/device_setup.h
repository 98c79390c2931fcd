// The device setup services, as far as they list disks; and disks that come to have another number.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "simulator/handle_table.h"

namespace simulator {

class SimulatedMachine;

// An open device information set: the interface paths as they were when it was opened.
class DeviceInfoSet : public HandleObject {
 public:
  explicit DeviceInfoSet(std::vector<std::string> paths) : paths_(std::move(paths)) {}

  std::string Describe() const override { return "device information set"; }
  const std::vector<std::string>& paths() const { return paths_; }

 private:
  std::vector<std::string> paths_;
};

// The interface paths of the disks, in the order in which they were attached.
std::vector<std::string> DiskInterfacePaths(SimulatedMachine& machine);

// Lets the disk `number` be `\\.\PhysicalDrive<new_number>` from now on, with its open handles, its
// volumes and their files; its interface path and its serial number stay. Throws
// std::invalid_argument when there is no such disk or the new number is in use.
void RenumberDisk(SimulatedMachine& machine, std::uint32_t number, std::uint32_t new_number);

}  // namespace simulator
