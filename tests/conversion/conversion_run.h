// One run of the library on one image, on a simulated machine of its own.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "conversion/transcript.h"
#include "frame/velkora_sdk.h"
#include "host/disk_record.h"
#include "simulator/simulated_machine.h"

namespace conversion {

class ConversionRun {
 public:
  // Attaches the image as disk 1 of a new machine, which becomes the current one. The logs folder
  // is X:\logs, "logs" next to the image. One run lives at a time.
  explicit ConversionRun(const std::filesystem::path& image);
  // The same, but the image stays as it is: what is written is kept in `overlay`.
  ConversionRun(const std::filesystem::path& image, simulator::ImageOverlay& overlay);
  ~ConversionRun();
  ConversionRun(const ConversionRun&) = delete;
  ConversionRun& operator=(const ConversionRun&) = delete;

  // Gives the volumes of the disk letters from `first` on in disk order, as far as there are any.
  void SetLetters(char first);
  // Letters of the volume at each byte offset of the disk.
  std::map<std::uint64_t, std::string> Letters();

  // Converts the disk, described by record(), and notes "result N".
  std::int32_t Convert();
  // Asks the library for a stop, at once or when the transcript gets this line.
  void Stop() { sdk_->Stop(); }
  void StopAt(std::string_view line) { stop_line_ = line; }

  VelkoraSDK* sdk() { return sdk_; }

  // The record as an application fills it, made when it is first asked for.
  velkora_host::DiskRecord& record();
  simulator::SimulatedMachine& machine() { return machine_; }
  const Transcript& transcript() const { return transcript_; }

  // Transcript lines that begin so, without that beginning.
  std::vector<std::string> Lines(std::string_view beginning) const;
  std::vector<std::string> Errors() const { return Lines("log 3: "); }
  // "percent N" and "status N" lines.
  std::vector<std::string> Callbacks() const;

  // What is still open, without the process handles.
  std::vector<std::string> OpenHandles();
  std::size_t OpenProcesses();

  // Runs after each line.
  std::function<void(const std::string& line)> on_line;

 private:
  using Attach = std::function<void(simulator::SimulatedMachine& machine)>;

  ConversionRun(const std::filesystem::path& folder, const Attach& attach);
  void Note(std::string line);
  static void HearLog(void* context, const char* module, int level, const char* text);

  simulator::SimulatedMachine machine_;
  std::optional<velkora_host::DiskRecord> record_;
  VelkoraSDK* sdk_ = nullptr;
  Transcript transcript_;
  std::string stop_line_;
};

}  // namespace conversion
