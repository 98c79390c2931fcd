#include "apps/velkora_image/show.h"

#include <iostream>
#include <nlohmann/json.hpp>

#include "apps/velkora_image/disk_picture.h"
#include "apps/velkora_image/image_disk.h"
#include "apps/velkora_image/partition_view.h"
#include "simulator/simulated_machine.h"

namespace velkora_image {
namespace {

nlohmann::ordered_json ToJson(const DiskView& view) {
  auto partitions = nlohmann::ordered_json::array();
  for (const PartitionView& partition : view.partitions) {
    nlohmann::ordered_json object;
    object["number"] = partition.number;
    object["start"] = partition.start;
    object["length"] = partition.length;
    object["type"] = partition.type;
    object["filesystem"] = partition.file_system;
    object["letter"] = partition.letter;
    object["logical"] = partition.logical;
    partitions.push_back(object);
  }
  nlohmann::ordered_json object;
  object["style"] = view.style;
  object["size"] = view.size;
  object["partitions"] = partitions;
  return object;
}

}  // namespace

int Show(const ShowOptions& options) {
  simulator::SimulatedMachine machine;
  simulator::Disk& disk = AttachImage(machine, options.image, simulator::Access::kReadOnly);
  GiveLetters(machine, disk, {});
  const DiskView view = ReadDiskView(machine, disk);
  if (options.json) {
    std::cout << ToJson(view).dump(2) << "\n";
  } else {
    std::cout << DrawDisk(options.image.string(), view);
  }
  return 0;
}

}  // namespace velkora_image
