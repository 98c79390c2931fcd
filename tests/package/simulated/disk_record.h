// Fills the library's record from what the simulated machine shows of a disk, in place of the part
// of the application that asks Windows.
#pragma once

#include <cstdint>
#include <deque>

#include "frame/velkora_sdk.h"
#include "simulator/simulated_machine.h"

struct DiskRecord {
  DiskRecord(simulator::SimulatedMachine& machine, std::uint32_t number);
  DiskRecord(const DiskRecord&) = delete;
  DiskRecord& operator=(const DiskRecord&) = delete;

  DiskInfo disk = {};
  std::deque<VolumeInfo> volumes;
};
