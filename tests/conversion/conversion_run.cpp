#include "conversion/conversion_run.h"

#include <algorithm>
#include <utility>

#include "logging/log.h"
#include "platform/win32.h"
#include "simulator/call_log.h"
#include "simulator/volume.h"
#include "support/machine_fixture.h"

// The offsets of the partitions, and a backup that was not used up, stay allocated when the object
// ends: the interface through which it is freed has no destructor.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
  return "leak:velkora::GptPartitionOffsets\nleak:velkora::MbrPartitionOffsets\n"
         "leak:velkora::FillBackupStorage\n";
}

namespace conversion {
namespace {

constexpr char kProcess[] = "process";
constexpr char kLogsDrive = 'X';

}  // namespace

ConversionRun::ConversionRun(const std::filesystem::path& image)
    : ConversionRun(image.parent_path(), [&](auto& machine) { machine.AttachDisk(1, image); }) {}

ConversionRun::ConversionRun(const std::filesystem::path& image, simulator::ImageOverlay& overlay)
    : ConversionRun(image.parent_path(),
                    [&](auto& machine) { machine.AttachDisk(1, image, overlay); }) {}

ConversionRun::ConversionRun(const std::filesystem::path& folder, const Attach& attach) {
  testing_support::ResetProcessState();
  win32::SetLastError(ERROR_SUCCESS);  // some lines tell an error that is older than their cause
  std::filesystem::create_directories(folder / "logs");
  machine_.MapFolder(kLogsDrive, folder);
  machine_.MakeCurrent();
  attach(machine_);
  machine_.on_script = [this](std::string_view script) { Note("script: " + Escaped(script)); };
  machine_.on_shell_line = [this](simulator::ShellRoute route, std::string_view line) {
    const bool direct = route == simulator::ShellRoute::kSystem;
    Note((direct ? "shell system: " : "shell elevated: ") + Escaped(line));
  };
  testing_support::EventHook() = [this](testing_support::Event event) {
    Note((event.first == kVelkoraKindStatus ? "status " : "percent ") +
         std::to_string(event.second));
  };
  const velkora::LogObserver observer{&HearLog, this};
  sdk_ = InitVelkoraSDK(nullptr, "X:\\logs", &observer, nullptr);
}

ConversionRun::~ConversionRun() {
  DestroyVelkoraSDK(sdk_);
  testing_support::EventHook() = nullptr;
  testing_support::ResetProcessState();
}

void ConversionRun::SetLetters(char first) {
  std::vector<std::uint64_t> offsets;
  for (const auto& [offset, letters] : Letters()) offsets.push_back(offset);
  char letter = first;
  for (const std::uint64_t offset : offsets) {
    if (letter == kLogsDrive) ++letter;
    if (letter > 'Z') return;
    machine_.SetLetter(1, offset, letter++);
  }
}

std::map<std::uint64_t, std::string> ConversionRun::Letters() {
  std::map<std::uint64_t, std::string> letters;
  for (const simulator::Volume& volume : machine_.volumes()) {
    letters[volume.extents.front().offset] = machine_.LettersOf(volume);
  }
  return letters;
}

// The application's own calls: no test counts them or lets them fail.
velkora_host::DiskRecord& ConversionRun::record() {
  if (record_) return *record_;
  simulator::CallLog calls = std::exchange(machine_.calls(), {});
  const DWORD error = win32::GetLastError();
  record_.emplace(1);
  win32::SetLastError(error);
  machine_.calls() = std::move(calls);
  return *record_;
}

std::int32_t ConversionRun::Convert() {
  const std::int32_t result = sdk_->Convert(&record().disk(), &testing_support::RecordEvent);
  Note("result " + std::to_string(result));
  return result;
}

std::vector<std::string> ConversionRun::Lines(std::string_view beginning) const {
  std::vector<std::string> lines;
  for (const std::string& line : transcript_) {
    if (std::string_view(line).starts_with(beginning)) {
      lines.push_back(line.substr(beginning.size()));
    }
  }
  return lines;
}

std::vector<std::string> ConversionRun::Callbacks() const {
  std::vector<std::string> lines;
  for (const std::string& line : transcript_) {
    const std::string_view text = line;
    if (text.starts_with("percent ") || text.starts_with("status ")) lines.push_back(line);
  }
  return lines;
}

std::vector<std::string> ConversionRun::OpenHandles() {
  std::vector<std::string> handles = machine_.handles().Open();
  std::erase(handles, kProcess);
  return handles;
}

std::size_t ConversionRun::OpenProcesses() {
  const std::vector<std::string> handles = machine_.handles().Open();
  return static_cast<std::size_t>(std::count(handles.begin(), handles.end(), kProcess));
}

void ConversionRun::Note(std::string line) {
  transcript_.push_back(line);
  if (on_line) on_line(line);
  if (line == stop_line_) {
    stop_line_.clear();
    Stop();
  }
}

void ConversionRun::HearLog(void* context, const char*, int level, const char* text) {
  static_cast<ConversionRun*>(context)->Note("log " + std::to_string(level) + ": " + Escaped(text));
}

}  // namespace conversion
