#include "apps/velkora_image/convert.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <string>
#include <system_error>
#include <vector>

#include "apps/velkora_image/conversion_run.h"
#include "apps/velkora_image/disk_picture.h"
#include "apps/velkora_image/image_disk.h"
#include "apps/velkora_image/input_error.h"
#include "apps/velkora_image/logs_folder.h"
#include "apps/velkora_image/partition_view.h"
#include "apps/velkora_image/rescue.h"
#include "apps/velkora_image/table_checks.h"
#include "simulator/disk.h"

namespace velkora_image {
namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t kClearedBytes = std::uint64_t{1} << 20;
constexpr std::uint64_t kSmallestGptDisk = std::uint64_t{128} << 20;  // that diskpart makes
constexpr std::size_t kMaxVolumes = std::size(DiskInfo{}.volumes);

enum ExitStatus : int { kConverted = 0, kFailed = 1, kRollbackFailed = 3 };

void CheckOptions(const ConvertOptions& options) {
  std::error_code ignored;
  if (options.events && fs::equivalent(*options.events, options.image, ignored)) {
    throw InputError("--events: " + options.events->string() + " is the image itself");
  }
}

void CheckDisk(const ConvertOptions& options, simulator::Disk& disk, const DiskView& view) {
  const std::string image = options.image.string();
  CheckTable(disk.device(), view, options.system_letter.has_value());
  if (view.style == "raw") throw InputError(image + ": no partition table");
  if (view.style == options.target) {
    throw InputError("--to: " + image + " is " + StyleName(view) + " already");
  }
  if (view.partitions.size() > kMaxVolumes) {
    throw InputError(image + ": " + std::to_string(view.partitions.size()) +
                     " partitions are too many, " + std::to_string(kMaxVolumes) + " is the limit");
  }
}

void WarnOfClearedEnds(const DiskView& view) {
  const std::uint64_t last_mib = view.size - std::min(view.size, kClearedBytes);
  const auto warn = [](const PartitionView& partition, const char* end) {
    std::cerr << "velkora-image: warning: " << PartitionName(partition) << " reaches into the "
              << end << " MiB of the disk, which is zeroed when the disk is cleared\n";
  };
  for (const PartitionView& partition : view.partitions) {
    if (partition.start < kClearedBytes) warn(partition, "first");
    if (partition.start > last_mib || partition.length > last_mib - partition.start) {
      warn(partition, "last");
    }
  }
}

void WarnOfIdleFailures(const ConvertOptions& options, simulator::SimulatedMachine& machine) {
  for (const FailRequest& failure : options.failures) {
    const std::size_t count = machine.calls().Count(failure.call);
    if (count >= failure.occurrence) continue;
    std::cerr << "velkora-image: warning: --fail " << failure.call
              << ": failed nothing, there were " << count << " such calls\n";
  }
}

void TellRescue(const fs::path& file, const Rescue& rescue) {
  std::cout << "Rescue file: " << file.string() << ", " << rescue.file_size() << " bytes\n";
  if (!rescue.failure().empty()) {
    std::cerr << "velkora-image: warning: a change was refused, since its old bytes could not be "
                 "kept\n  "
              << rescue.failure() << "\n";
  }
}

// A failure may leave a table that cannot be read; it counts as none.
DiskView ReadDiskViewAfter(simulator::SimulatedMachine& machine, simulator::Disk& disk) {
  try {
    return ReadDiskView(machine, disk);
  } catch (const InputError&) {
    DiskView view;
    view.style = "raw";
    view.size = disk.device().size();
    return view;
  }
}

ExitStatus StatusOf(const ConversionRun& run) {
  if (run.converted()) return kConverted;
  return run.rollback_failed() ? kRollbackFailed : kFailed;
}

// Partitions of a GPT that a conversion to MBR leaves out: EFI system, Microsoft reserved, hidden.
bool IsLeftOutOfMbr(const PartitionView& partition) {
  constexpr const char* kTypes[] = {"C12A7328-F81F-11D2-BA4B-00A0C93EC93B",
                                    "E3C9E316-0B5C-4DB8-817D-F92DF00215AE",
                                    "FFFFFFFF-FFFF-FFFF-FFFF-FFFFFFFFFFFF"};
  return std::find(std::begin(kTypes), std::end(kTypes), partition.type) != std::end(kTypes);
}

// Partitions that should be in the new table and are not. The library reports success with them
// missing when it could not read the list again, or not to its end, behind a shrink. An entry of no
// length is no partition.
std::vector<PartitionView> LostPartitions(const DiskView& before, const DiskView& after) {
  std::vector<PartitionView> lost;
  for (const PartitionView& partition : before.partitions) {
    if (partition.length == 0 || IsLeftOutOfMbr(partition)) continue;
    const auto is_it = [&](const PartitionView& other) { return other.start == partition.start; };
    if (std::none_of(after.partitions.begin(), after.partitions.end(), is_it)) {
      lost.push_back(partition);
    }
  }
  return lost;
}

void TellLoss(const ConvertOptions& options, const DiskView& after,
              const std::vector<PartitionView>& lost, const fs::path& logs) {
  std::cerr << "velkora-image: " << options.image.string() << ": the disk is " << StyleName(after)
            << " now, but these partitions are not in the new table:\n";
  for (const PartitionView& partition : lost) {
    std::cerr << "  " << PartitionName(partition) << "\n";
  }
  std::cerr << "  logs: " << logs.string() << "\n";
}

// What became of the disk.
void TellRollback(const ConversionRun& run, const DiskView& before, const DiskView& after) {
  if (!run.rolled_back()) {
    std::cerr << "  the changes could not be undone; the picture shows what the disk holds now\n";
    return;
  }
  if (run.unwritten_blocks() == 0) {
    std::cerr << "  the changes were undone: the disk has its old table back\n";
  } else {
    std::cerr << "  the changes were undone but for " << run.unwritten_blocks()
              << " of the backup's blocks, which could not be written; the log names them\n";
  }
  if (before.style == "gpt" && before.size < kSmallestGptDisk && after.style == "raw") {
    std::cerr << "  sector 0 lacks its protective record, which a disk below 128 MiB does not get "
                 "back: systems see no table until one is made\n";
  }
}

void TellFailure(const ConvertOptions& options, const ConversionRun& run, const DiskView& before,
                 const DiskView& after, const fs::path& logs) {
  std::cerr << "velkora-image: " << options.image.string() << ": the conversion failed ";
  if (run.last_stage() == 0) {
    std::cerr << "before anything was touched\n";
  } else {
    std::cerr << "while " << StageName(run.last_stage())
              << (run.stopped() ? ", after a stop was asked for\n" : "\n");
  }
  for (const std::string& line : run.last_errors()) std::cerr << "  " << line << "\n";
  if (run.last_stage() != 0) TellRollback(run, before, after);
  std::cerr << "  logs: " << logs.string() << "\n";
}

}  // namespace

int Convert(const ConvertOptions& options) {
  CheckOptions(options);
  simulator::SimulatedMachine machine;
  machine.switches().fat32_writes_late = true;  // no one reads the image before the machine ends
  simulator::Disk& disk = AttachImage(machine, options.image, simulator::Access::kReadWrite);
  CheckDisk(options, disk, ReadDiskView(machine, disk));
  GiveLetters(machine, disk, options.letters);
  if (options.system_letter) CheckSystemVolume(machine, disk, *options.system_letter);
  LogsFolder logs(options.logs);
  machine.MapFolder(kLogsLetter, logs.path());
  machine.MakeCurrent();
  ConversionRun run(machine, options, logs.path());
  std::optional<Rescue> rescue;
  if (options.rescue) rescue.emplace(machine, options.image, *options.rescue);
  if (options.system_letter) InstallWindows(machine, disk, *options.system_letter);

  const DiskView before = ReadDiskView(machine, disk);
  std::cout << DrawDisk("before", before) << "\n" << std::flush;
  WarnOfClearedEnds(before);
  run.Run();
  if (rescue) TellRescue(*options.rescue, *rescue);
  WarnOfIdleFailures(options, machine);
  const DiskView after = ReadDiskViewAfter(machine, disk);
  std::cout << "\n" << DrawDisk("after", after) << "\n" << std::flush;

  const std::vector<PartitionView> lost = LostPartitions(before, after);
  if (run.converted() && !lost.empty()) {
    logs.Keep();
    TellLoss(options, after, lost, logs.path());
    return kFailed;
  }
  const ExitStatus status = StatusOf(run);
  if (status == kConverted) {
    std::cout << "Converted: " << options.image.string() << " is " << StyleName(after) << " now.\n";
  } else {
    logs.Keep();
    TellFailure(options, run, before, after, logs.path());
  }
  return status;
}

}  // namespace velkora_image
