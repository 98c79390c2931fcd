#include "simulator/device_setup.h"

#include <stdexcept>
#include <string>
#include <utility>

#include "simulator/disk.h"
#include "simulator/simulated_machine.h"
#include "simulator/system.h"
#include "simulator/volume.h"

namespace simulator {

void RenumberDisk(SimulatedMachine& machine, std::uint32_t number, std::uint32_t new_number) {
  System& system = machine.system();
  Disk* disk = system.FindDisk(number);
  if (disk == nullptr || system.FindDisk(new_number) != nullptr) {
    throw std::invalid_argument("disk " + std::to_string(number) + " cannot become disk " +
                                std::to_string(new_number));
  }
  for (Volume& volume : system.volumes()) {
    for (VolumeExtent& extent : volume.extents) {
      if (extent.disk_number != number) continue;
      system.memory_files(new_number, extent.offset) =
          std::move(system.memory_files(number, extent.offset));
      system.ForgetFiles(number, extent.offset);
      extent.disk_number = new_number;
    }
  }
  if (system.system_disk() == number) system.SetSystemDisk(new_number);
  disk->set_number(new_number);
}

}  // namespace simulator
