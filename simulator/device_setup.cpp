#include "simulator/device_setup.h"

#include <stdexcept>

#include "simulator/simulated_machine.h"

namespace simulator {

std::vector<std::string> DiskInterfacePaths(SimulatedMachine& machine) {
  std::vector<std::string> paths;
  for (const Disk& disk : machine.disks()) {
    if (!disk.identity.interface_path.empty()) paths.push_back(disk.identity.interface_path);
  }
  return paths;
}

void RenumberDisk(SimulatedMachine& machine, std::uint32_t number, std::uint32_t new_number) {
  Disk* disk = machine.FindDisk(number);
  if (disk == nullptr || machine.FindDisk(new_number) != nullptr) {
    throw std::invalid_argument("disk " + std::to_string(number) + " cannot become disk " +
                                std::to_string(new_number));
  }
  for (Volume& volume : machine.volumes()) {
    for (VolumeExtent& extent : volume.extents) {
      if (extent.disk_number != number) continue;
      machine.memory_files(new_number, extent.offset) =
          std::move(machine.memory_files(number, extent.offset));
      machine.ForgetFiles(number, extent.offset);
      extent.disk_number = new_number;
    }
  }
  if (machine.system_disk() == number) machine.SetSystemDisk(new_number);
  disk->set_number(new_number);
}

}  // namespace simulator
