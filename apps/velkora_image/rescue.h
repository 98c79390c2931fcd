// The rescue file of a conversion: the old bytes of all that it changes.
#pragma once

#include <filesystem>
#include <optional>

#include "apps/velkora_image/options.h"
#include "host/rescue_file.h"
#include "simulator/simulated_machine.h"

namespace velkora_image {

// Keeps the old bytes of an image: its first and last MiB at once, which are flushed to the rescue
// file before the constructor returns, and any others before they change. A change whose old bytes
// cannot be kept does not take place.
class Rescue {
 public:
  // `machine` has the image attached as disk 1 and is current. Throws InputError when the file
  // exists already or cannot be written; nothing has changed then.
  Rescue(simulator::SimulatedMachine& machine, const std::filesystem::path& image,
         const std::filesystem::path& file);
  ~Rescue();
  Rescue(const Rescue&) = delete;
  Rescue& operator=(const Rescue&) = delete;

  std::uint64_t file_size() const { return writer_->file_size(); }
  // Why a change was refused; empty while all was kept.
  const std::string& failure() const { return failure_; }

 private:
  bool KeepBefore(std::uint64_t offset, std::uint64_t length);

  simulator::SimulatedMachine& converting_;
  // The library must not see the rescue file's drive and calls: they are of a machine of their own.
  simulator::SimulatedMachine machine_;
  std::optional<velkora_host::RescueWriter> writer_;
  std::string failure_;
};

// Puts an image back to what its rescue file keeps. Returns the exit status: 0, or 3 when it failed
// after the first change; it can be run again then. Throws InputError for a file that is damaged or
// of another disk; nothing has changed then.
int Undo(const UndoOptions& options);

}  // namespace velkora_image
