#include "apps/velkora_image/conversion_run.h"

#include <cstdio>
#include <ctime>
#include <exception>
#include <iostream>
#include <random>
#include <string_view>

#include "apps/velkora_image/image_disk.h"
#include "apps/velkora_image/input_error.h"
#include "logging/log.h"
#include "platform/guard.h"

namespace velkora_image {
namespace {

constexpr std::size_t kErrorLines = 5;
constexpr char kUnwrittenBlock[] = "[BackupRestore] Restore offset";
constexpr char kUnreadMetadata[] = "[BackupRestore] ParseNtfsMftRecord: read ntfs meta error";
constexpr char kLogsFolder[] = "X:";
constexpr std::int32_t kFailed = 1;

std::uint64_t RandomSeed() {
  std::random_device random;
  return (std::uint64_t{random()} << 32) | random();
}

std::string FaultText(DWORD code) {
  char text[40];
  std::snprintf(text, sizeof text, "fault 0x%08X", static_cast<unsigned>(code));
  return text;
}

}  // namespace

ConversionRun* ConversionRun::current_ = nullptr;

ConversionRun::ConversionRun(simulator::SimulatedMachine& machine, const ConvertOptions& options,
                             const std::filesystem::path& logs)
    : machine_(machine),
      options_(options),
      logs_(logs),
      record_(kImageDiskNumber),
      events_(options.events),
      log_(logs / "velkora-image.log", std::ios::binary | std::ios::app),
      progress_(std::cout, OutputIsTerminal()) {
  if (!log_) throw InputError("--logs: " + logs.string() + ": cannot write to it");
  if (options.system_letter) record_.MarkSystem(*options.system_letter);
  const DiskInfo& disk = record_.disk();
  stop_held_ = disk.disk_type == DiskType::kMbr && disk.is_system == 0;
  current_ = this;
}

ConversionRun::~ConversionRun() {
  machine_.on_script = nullptr;
  machine_.on_shell_line = nullptr;
  velkora::InitLogEx(nullptr, velkora::kLogModule, /*observer=*/nullptr, nullptr);
  current_ = nullptr;
}

void ConversionRun::Run() {
  machine_.SetTime(std::time(nullptr));
  machine_.SetGuidSeed(RandomSeed());
  machine_.on_script = [this](std::string_view text) { events_.Script(text); };
  machine_.on_shell_line = [this](simulator::ShellRoute route, std::string_view line) {
    events_.Shell(route, line);
  };
  machine_.calls().Clear();
  machine_.calls().keeps_calls = !options_.failures.empty();
  for (const FailRequest& failure : options_.failures) {
    machine_.calls().FailOn(failure.call, failure.occurrence, failure.error);
  }
  result_ = CallLibrary();
  progress_.End();
  events_.Result(result_);
  if (options_.events && !events_.good()) {
    std::cerr << "velkora-image: warning: " << options_.events->string() << ": cannot be written\n";
  }
}

// A fault that reaches the application ends the conversion as failed.
std::int32_t ConversionRun::CallLibrary() {
  const velkora::LogObserver observer{&HearLog, this};
  std::int32_t result = kFailed;
  try {
    sdk_ = InitVelkoraSDK(nullptr, kLogsFolder, &observer, nullptr);
    if (sdk_ != nullptr) {
      result = sdk_->Convert(&record_.disk(), &HearCallback);
    } else {
      last_errors_.push_back("the library does not start");
    }
  } catch (const win32::Fault& fault) {
    last_errors_.push_back(FaultText(fault.code));
  }
  DestroyVelkoraSDK(sdk_);
  return result;
}

std::int32_t ConversionRun::HearCallback(std::int32_t kind, std::int32_t value) {
  ConversionRun& run = *current_;
  run.begun_ = true;
  run.events_.Callback(kind, value);
  if (kind == kVelkoraKindPercent) run.progress_.Percent(value);
  if (kind == kVelkoraKindStatus) run.HearStatus(value);
  return 0;
}

void ConversionRun::HearStatus(std::int32_t status) {
  progress_.Stage(status);
  const auto kind = static_cast<VelkoraStatus>(status);
  if (kind < VelkoraStatus::kBackupFailed) last_stage_ = status;
  if (kind == VelkoraStatus::kRollbackBegins) rolling_back_ = true;
  if (kind == VelkoraStatus::kRolledBack) rolled_back_ = true;
  // While room is made on an MBR data disk, a stop empties or cuts the library's list of
  // partitions, and the run ends in success with the others missing. The request waits until the
  // list is settled.
  if (kind != VelkoraStatus::kChecking && kind != VelkoraStatus::kShrinking) stop_held_ = false;
  if (options_.stop_at == status) stop_wanted_ = true;
  if (stop_wanted_ && !stop_held_ && !stopped_) {
    stopped_ = true;
    sdk_->Stop();
  }
}

void ConversionRun::EndUntouched(const char* error) {
  events_.Result(kFailed);
  std::cerr << "velkora-image: " << options_.image.string()
            << ": a part of a file system could not be read for the backup, so the conversion was "
               "ended before anything was touched\n  "
            << error << "\n  logs: " << logs_.string() << "\n";
  std::_Exit(kFailed);
}

void ConversionRun::HearLog(void* context, const char* module, int level, const char* text) {
  ConversionRun& run = *static_cast<ConversionRun*>(context);
  run.events_.Log(level, text);
  run.log_ << "[" << level << "] [" << module << "] " << text << "\n" << std::flush;
  if (level != velkora::kLogError) return;
  if (!run.begun_ && std::string_view(text).starts_with(kUnreadMetadata)) run.EndUntouched(text);
  if (std::string_view(text).starts_with(kUnwrittenBlock)) ++run.unwritten_blocks_;
  // The reason of a failure is not to be pushed out by what follows from it.
  if (run.rolling_back_ && !run.last_errors_.empty()) return;
  run.last_errors_.emplace_back(text);
  if (run.last_errors_.size() > kErrorLines) run.last_errors_.pop_front();
}

}  // namespace velkora_image
