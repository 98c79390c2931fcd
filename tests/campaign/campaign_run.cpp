#include "campaign/campaign_run.h"

#include <map>

#include "backup/restore.h"
#include "conversion/system_disk.h"
#include "frame/velkora.h"

namespace campaign {
namespace {

// The logs of one run are no concern of the next: the listing of a boot store is read back.
const std::filesystem::path& WithoutLogs(const BaseDisk& disk) {
  std::filesystem::remove_all(disk.image().parent_path() / "logs");
  return disk.image();
}

}  // namespace

std::string Describe(const PlacedCall& call) {
  return call.name + " " + std::to_string(call.occurrence) + " in " + StepName(call.step) + " (" +
         call.arguments + ")";
}

CampaignRun::CampaignRun(const BaseDisk& disk) : run_(WithoutLogs(disk), overlay_) {
  char letter = disk.scenario().first_letter;
  for (const conversion::Partition& row : disk.scenario().kept) {
    run_.machine().SetLetter(1, row.offset(), letter++);
  }
  run_.machine().mount_delay_runs = disk.scenario().mount_delay_runs;
  if (disk.scenario().system) conversion::RunFrom(run_, *disk.scenario().system);
  run_.record();
  simulator::CallLog& log = run_.machine().calls();
  calls_before_ = log.calls().size();
  run_.on_line = [this](const std::string& line) {
    step_ = NextStep(step_, line);
    if (line.starts_with("percent ") || line.starts_with("status ")) ++callbacks_;
  };
  log.on_call = [this](std::size_t) {
    places_.push_back({step_, callbacks_});
    if (stop_at_ == places_.size() - 1) run_.Stop();
  };
}

CampaignRun::~CampaignRun() {
  constexpr char kNeverOpened[] = "log 3: RestoreDiskPartitionFromStorage fail 3 times, error: -2";
  if (run_.Lines(kNeverOpened).empty()) return;
  velkora::ReleaseBackupData(static_cast<velkora::Velkora*>(run_.sdk())->backup_data);
}

void CampaignRun::Fail(std::size_t place, simulator::Repeat repeat) {
  run_.machine().calls().FailNumber(calls_before_ + place + 1, ERROR_GEN_FAILURE, repeat);
}

std::vector<PlacedCall> CampaignRun::Calls() {
  const std::vector<simulator::Call>& log = run_.machine().calls().calls();
  std::map<std::pair<Step, std::string>, std::size_t> occurrences;
  std::vector<PlacedCall> calls;
  for (std::size_t i = 0; i < places_.size(); ++i) {
    const simulator::Call& call = log.at(calls_before_ + i);
    const auto [step, callbacks] = places_[i];
    std::string name = call.name;
    if (name == "DeviceIoControl" || name == "command") name += "/" + call.detail;
    const std::size_t occurrence = ++occurrences[{step, name}];
    calls.push_back({std::move(name), call.arguments, step, occurrence, callbacks});
  }
  return calls;
}

bool CampaignRun::HasFailed(std::size_t place) {
  const std::vector<simulator::Call>& log = run_.machine().calls().calls();
  return calls_before_ + place < log.size() && log[calls_before_ + place].failed_on_demand;
}

}  // namespace campaign
