#include "application.h"

#include "logging/log.h"

Application* Application::running_ = nullptr;

std::string ScreenText(Screen screen) {
  switch (screen) {
    case Screen::kConverted:
      return "The disk has been converted.";
    case Screen::kNothingTouched:
      return "The disk could not be converted. Nothing was changed.";
    case Screen::kUndone:
      return "The disk could not be converted. The changes were undone.";
    case Screen::kTableLost:
      break;
  }
  return "The disk could not be converted, and the changes could not be undone.";
}

Screen Application::Convert(DiskInfo& disk) {
  running_ = this;
  const velkora::LogObserver observer{&HearLog, this};
  sdk_ = InitVelkoraSDK(nullptr, logs_folder_.c_str(), &observer, nullptr);
  if (sdk_ == nullptr) return Screen::kNothingTouched;
  const std::int32_t result = sdk_->Convert(&disk, &HearProgress);
  DestroyVelkoraSDK(sdk_);
  return ScreenFor(result);
}

std::int32_t Application::HearProgress(std::int32_t kind, std::int32_t value) {
  if (kind != kVelkoraKindStatus) return 0;
  Application& application = *running_;
  const auto status = static_cast<VelkoraStatus>(value);
  application.statuses_.push_back(status);
  if (status == VelkoraStatus::kRollbackBegins) application.rolling_back_ = true;
  if (application.stop_at == status) application.sdk_->Stop();
  return 0;
}

void Application::HearLog(void* context, const char*, int level, const char* text) {
  Application& application = *static_cast<Application*>(context);
  if (level == velkora::kLogError && !application.rolling_back_) application.reason_ = text;
}

Screen Application::ScreenFor(std::int32_t result) const {
  if (result == 0) return Screen::kConverted;
  if (statuses_.empty() || statuses_.back() == VelkoraStatus::kBackupFailed) {
    return Screen::kNothingTouched;
  }
  return statuses_.back() == VelkoraStatus::kRolledBack ? Screen::kUndone : Screen::kTableLost;
}
