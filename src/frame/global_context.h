// What one process has in common: the logs folder, the route of tool lines, the stop flag.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

namespace velkora {

class GlobalContext {
 public:
  virtual ~GlobalContext() = default;

  // Folder of every tool's files, as the caller gave it. Written by InitVelkoraSDK.
  std::string logs_folder;
  // Copied from DiskInfo::is_system by Convert before anything else runs; selects how shell lines
  // run.
  std::uint8_t is_system = 0;
  // Set by Stop, and never cleared.
  std::atomic<std::uint8_t> stop_requested{0};
};

// The one context of the process, made at first use and never destroyed. Safe from any thread.
GlobalContext& GetGlobalContext();

// Whether a stop has been asked for.
bool StopRequested();

}  // namespace velkora
