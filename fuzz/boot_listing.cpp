// What is made of a boot store's listing, over listings of any bytes.
#include <fstream>

#include "boot/boot_recovery.h"
#include "frame/global_context.h"
#include "fuzz/fuzz_disk.h"

namespace {

// Stands for the tool: its listing is the input, which the line's redirection appends to the file.
std::string listing;

fuzz::FuzzDisk& Ground() {
  static fuzz::FuzzDisk& ground = []() -> fuzz::FuzzDisk& {
    fuzz::FuzzDisk& disk = fuzz::FuzzDisk::Instance();
    velkora::GetGlobalContext().logs_folder = "X:";
    disk.machine().SetCommand("bcdedit",
                              [](simulator::SimulatedMachine&, const std::vector<std::string>&) {
                                return simulator::CommandResult{0, listing};
                              });
    return disk;
  }();
  return ground;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::FuzzDisk& ground = Ground();
  listing.assign(reinterpret_cast<const char*>(data), size);
  velkora::BcdEnableRecovery("S");
  ground.machine().calls().Clear();
  return 0;
}
