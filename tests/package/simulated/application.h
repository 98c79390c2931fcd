// The application under test: converts a disk and decides which screen a person sees in the end.
// It includes what it would include on Windows, too.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "frame/velkora_sdk.h"

enum class Screen {
  kConverted,
  kNothingTouched,
  kUndone,
  kTableLost,
};

std::string ScreenText(Screen screen);

// One run at a time: the library's callback has no context.
class Application {
 public:
  // The folder for the tools' scripts and output, as Windows names it.
  explicit Application(std::string logs_folder) : logs_folder_(std::move(logs_folder)) {}

  // As if a person asked for a stop when this status arrives.
  std::optional<VelkoraStatus> stop_at;

  Screen Convert(DiskInfo& disk);

  // What a person should read on a screen that tells of a failure: the last line of level 3 in
  // front of the rollback.
  const std::string& reason() const { return reason_; }
  const std::vector<VelkoraStatus>& statuses() const { return statuses_; }

 private:
  static std::int32_t HearProgress(std::int32_t kind, std::int32_t value);
  static void HearLog(void* context, const char* module, int level, const char* text);
  Screen ScreenFor(std::int32_t result) const;

  static Application* running_;

  std::string logs_folder_;
  VelkoraSDK* sdk_ = nullptr;
  std::vector<VelkoraStatus> statuses_;
  bool rolling_back_ = false;
  std::string reason_;
};
