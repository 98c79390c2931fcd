#include "apps/velkora_image/progress.h"

#include <algorithm>
#include <cstdio>
#include <unistd.h>

#include "frame/velkora_sdk.h"

namespace velkora_image {
namespace {

constexpr std::int32_t kBarColumns = 30;

std::string PercentText(std::int32_t percent) {
  char text[20];
  std::snprintf(text, sizeof text, "%4d %%  ", percent);
  return text;
}

}  // namespace

std::string StageName(std::int32_t status) {
  switch (static_cast<VelkoraStatus>(status)) {
    case VelkoraStatus::kChecking:
      return "checking the table and making room";
    case VelkoraStatus::kClearing:
      return "emptying the disk";
    case VelkoraStatus::kCreating:
      return "creating the new partition style";
    case VelkoraStatus::kWriting:
      return "writing the partition table";
    case VelkoraStatus::kShrinking:
      return "shrinking a partition";
    case VelkoraStatus::kRepairingBoot:
      return "repairing boot";
    case VelkoraStatus::kFinished:
      return "finished";
    case VelkoraStatus::kBackupFailed:
      return "the backup failed";
    case VelkoraStatus::kRollbackBegins:
      return "undoing the changes";
    case VelkoraStatus::kRolledBack:
      return "the changes are undone";
    case VelkoraStatus::kRollbackFailed:
      return "the changes could not be undone";
  }
  return "status " + std::to_string(status);
}

bool OutputIsTerminal() {
  return ::isatty(STDOUT_FILENO) == 1;
}

void Progress::Percent(std::int32_t percent) {
  percent_ = percent;
  if (redraw_) Redraw();
}

void Progress::Stage(std::int32_t status) {
  status_ = status;
  if (redraw_) {
    Redraw();
  } else {
    out_ << PercentText(percent_) << StageName(status) << "\n" << std::flush;
  }
}

void Progress::End() {
  if (drawn_) out_ << "\n" << std::flush;
  drawn_ = false;
}

void Progress::Redraw() {
  constexpr char kClearToEnd[] = "\x1b[K";
  const std::int32_t filled = std::clamp(percent_, 0, 100) * kBarColumns / 100;
  out_ << "\r[" << std::string(static_cast<std::size_t>(filled), '#')
       << std::string(static_cast<std::size_t>(kBarColumns - filled), '.') << "]"
       << PercentText(percent_) << (status_ != 0 ? StageName(status_) : "") << kClearToEnd
       << std::flush;
  drawn_ = true;
}

}  // namespace velkora_image
