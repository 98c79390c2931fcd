// One conversion of a campaign's disk, on an overlay of its own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "campaign/base_disk.h"
#include "campaign/step.h"
#include "conversion/conversion_run.h"
#include "simulator/storage/image_overlay.h"

namespace campaign {

// A call of a conversion, with the step it came in and its place among the calls of that name in
// the step, from 1.
struct PlacedCall {
  std::string name;  // "DeviceIoControl/IOCTL_DISK_CREATE_DISK" and "command/diskpart", else bare
  std::string arguments;
  Step step = Step::kOpening;
  std::size_t occurrence = 1;
  std::size_t callbacks = 0;  // that came before it in the run
};
std::string Describe(const PlacedCall& call);

class CampaignRun {
 public:
  explicit CampaignRun(const BaseDisk& disk);
  // Frees the backup that a restore leaves to its caller when it cannot open the disk, which
  // nobody does otherwise: a campaign would gather gigabytes of them.
  ~CampaignRun();
  CampaignRun(const CampaignRun&) = delete;
  CampaignRun& operator=(const CampaignRun&) = delete;

  // The call at `place` among those of the conversion, from 0, fails.
  void Fail(std::size_t place, simulator::Repeat repeat);
  // A stop is asked for when the call at `place` comes.
  void StopAt(std::size_t place) { stop_at_ = place; }

  std::int32_t Convert() { return run_.Convert(); }

  std::vector<PlacedCall> Calls();
  // Whether the call at `place` was made and failed on demand.
  bool HasFailed(std::size_t place);
  conversion::ConversionRun& run() { return run_; }
  simulator::ImageOverlay& overlay() { return overlay_; }

 private:
  simulator::ImageOverlay overlay_;
  conversion::ConversionRun run_;
  std::size_t calls_before_ = 0;
  Step step_ = Step::kOpening;
  std::size_t callbacks_ = 0;
  std::vector<std::pair<Step, std::size_t>> places_;  // step and callbacks before each call
  std::optional<std::size_t> stop_at_;
};

}  // namespace campaign
