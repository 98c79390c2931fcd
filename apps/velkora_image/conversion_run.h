// One run of the library's Convert, and what it reports.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <fstream>
#include <string>

#include "apps/velkora_image/events.h"
#include "apps/velkora_image/options.h"
#include "apps/velkora_image/progress.h"
#include "frame/velkora_sdk.h"
#include "host/disk_record.h"
#include "simulator/simulated_machine.h"

namespace velkora_image {

// The machine is current, and has the disk, its letters and the logs drive. One run at a time in a
// process.
class ConversionRun {
 public:
  // Opens the files for events and log, the latter in the folder `logs`. Throws InputError.
  ConversionRun(simulator::SimulatedMachine& machine, const ConvertOptions& options,
                const std::filesystem::path& logs);
  ~ConversionRun();
  ConversionRun(const ConversionRun&) = delete;
  ConversionRun& operator=(const ConversionRun&) = delete;

  // Ends the process with status 1 when the backup holds zeros in place of what could not be read:
  // nothing has been touched then, but any failure from there on would write them to the disk.
  void Run();

  bool converted() const { return result_ == 0; }
  bool rolled_back() const { return rolled_back_; }
  // Also when a fault ended the rollback.
  bool rollback_failed() const { return rolling_back_ && !rolled_back_; }
  // Parts of the disk that a rollback has not put back. The library counts it as done all the same.
  std::size_t unwritten_blocks() const { return unwritten_blocks_; }
  bool stopped() const { return stopped_; }
  // The stage that the conversion had come to before a rollback, if any; 0: none was begun.
  std::int32_t last_stage() const { return last_stage_; }
  // The last error lines of the log in front of a rollback, oldest first.
  const std::deque<std::string>& last_errors() const { return last_errors_; }

 private:
  static std::int32_t HearCallback(std::int32_t kind, std::int32_t value);
  static void HearLog(void* context, const char* module, int level, const char* text);
  void HearStatus(std::int32_t status);
  [[noreturn]] void EndUntouched(const char* error);
  std::int32_t CallLibrary();

  static ConversionRun* current_;  // the callback has no context

  simulator::SimulatedMachine& machine_;
  const ConvertOptions& options_;
  std::filesystem::path logs_;
  velkora_host::DiskRecord record_;
  EventFile events_;
  std::ofstream log_;
  Progress progress_;
  VelkoraSDK* sdk_ = nullptr;
  std::int32_t result_ = 1;
  bool begun_ = false;  // the callback was called
  std::int32_t last_stage_ = 0;
  bool rolling_back_ = false;
  bool rolled_back_ = false;
  std::size_t unwritten_blocks_ = 0;
  bool stop_wanted_ = false;
  bool stop_held_ = false;  // a stop would do harm now
  bool stopped_ = false;
  std::deque<std::string> last_errors_;
};

}  // namespace velkora_image
