#include "support/machine_fixture.h"

#include <ostream>

#include "frame/crash_reporting.h"
#include "frame/global_context.h"
#include "logging/log.h"
#include "platform/win32.h"
#include "simulator/storage/block_device.h"

namespace testing_support {
namespace {

using velkora::InitLogEx;
using velkora::LogObserver;

void OpenLogWithoutFile(const LogObserver* observer) {
  InitLogEx(nullptr, velkora::kLogModule, observer, nullptr);
}

void NoteLine(void* context, const char*, int level, const char* text) {
  static_cast<std::vector<LogLine>*>(context)->push_back({level, text});
}

std::string RouteText(simulator::ShellRoute route) {
  return route == simulator::ShellRoute::kSystem ? "system: " : "elevated: ";
}

}  // namespace

void PrintTo(const LogLine& line, std::ostream* out) {
  *out << line.level << " " << line.text;
}

void ResetProcessState() {
  velkora::GlobalContext& context = velkora::GetGlobalContext();
  context.stop_requested = 0;
  context.is_system = 0;
  context.logs_folder.clear();
  velkora::dump_written = 0;
  OpenLogWithoutFile(nullptr);
  win32::SetLastError(ERROR_SUCCESS);
}

MachineTest::MachineTest() : logs_folder_(folder_.path() / "logs") {
  ResetProcessState();
  std::filesystem::create_directory(logs_folder_);
  machine_.MapFolder('X', folder_.path());
  machine_.on_script = [this](std::string_view script) { scripts_.emplace_back(script); };
  machine_.on_shell_line = [this](simulator::ShellRoute route, std::string_view line) {
    shell_lines_.push_back(RouteText(route).append(line));
  };
  machine_.MakeCurrent();
  velkora::GetGlobalContext().logs_folder = "X:\\logs";
  const LogObserver observer{&NoteLine, &log_};
  OpenLogWithoutFile(&observer);
  Events().clear();
  EventHook() = nullptr;
}

MachineTest::~MachineTest() {
  EventHook() = nullptr;
  ResetProcessState();
}

std::filesystem::path MachineTest::NewImage(std::string_view name, std::uint64_t size) {
  const std::filesystem::path image = folder_.path() / name;
  simulator::CreateSparseImage(image, size);
  return image;
}

simulator::Disk& MachineTest::NewDisk(std::uint32_t number, std::uint64_t size) {
  return machine_.AttachDisk(number, NewImage("disk" + std::to_string(number) + ".img", size));
}

std::filesystem::path MachineTest::LogsFile(std::string_view name) const {
  return logs_folder_ / name;
}

std::string MachineTest::LogsFileText(std::string_view name) const {
  return TextOf(LogsFile(name));
}

std::vector<std::string> MachineTest::Lines(int level) const {
  std::vector<std::string> lines;
  for (const LogLine& line : log_) {
    if (line.level == level) lines.push_back(line.text);
  }
  return lines;
}

std::vector<std::string> MachineTest::AllLines() const {
  std::vector<std::string> lines;
  for (const LogLine& line : log_) lines.push_back(std::to_string(line.level) + " " + line.text);
  return lines;
}

std::int32_t RecordEvent(std::int32_t kind, std::int32_t value) {
  Events().emplace_back(kind, value);
  if (EventHook()) EventHook()({kind, value});
  return 0;
}

std::vector<Event>& Events() {
  static std::vector<Event> events;
  return events;
}

std::function<void(Event)>& EventHook() {
  static std::function<void(Event)> hook;
  return hook;
}

}  // namespace testing_support
