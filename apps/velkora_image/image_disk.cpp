#include "apps/velkora_image/image_disk.h"

#include <algorithm>
#include <set>
#include <stdexcept>
#include <string>
#include <system_error>

#include "apps/velkora_image/input_error.h"
#include "simulator/disk.h"
#include "simulator/volume.h"
#include "simulator/volume_files.h"

namespace velkora_image {
namespace {

namespace fs = std::filesystem;

constexpr std::uint32_t kSectorBytes = 512;

void CheckImage(const fs::path& image) {
  std::error_code error;
  const fs::file_status status = fs::status(image, error);
  if (!fs::exists(status)) throw InputError(image.string() + ": no such file");
  if (!fs::is_regular_file(status)) throw InputError(image.string() + ": not an ordinary file");
  const std::uintmax_t size = fs::file_size(image, error);
  if (error) throw InputError(image.string() + ": " + error.message());
  if (size == 0) throw InputError(image.string() + ": size 0 is no disk");
  if (size % kSectorBytes != 0) {
    throw InputError(image.string() + ": size " + std::to_string(size) + " is not a multiple of " +
                     std::to_string(kSectorBytes));
  }
}

class LetterGiver {
 public:
  LetterGiver(simulator::SimulatedMachine& machine, simulator::Disk& disk)
      : machine_(machine), disk_(disk), view_(ReadDiskView(machine, disk)) {}

  void GiveChosen(const LetterChoices& choices) {
    for (const auto& [number, letter] : choices) {
      const std::string where =
          "--letter " + std::to_string(number) + "=" + std::string(1, letter) + ": ";
      const PartitionView* partition = Find(number);
      const std::string file = disk_.device().image().string();
      if (partition == nullptr) {
        throw InputError(where + file + " has no partition " + std::to_string(number));
      }
      if (machine_.FindVolumeAt(disk_.number(), partition->start) == nullptr) {
        throw InputError(where + file + " has no volume in partition " + std::to_string(number));
      }
      if (letter == kLogsLetter) throw InputError(where + "X is kept for the folder of the logs");
      if (!taken_.insert(letter).second) throw InputError(where + "the letter is given twice");
      Give(*partition, letter);
    }
  }

  void GiveOthers() {
    char next = 'C';
    for (const PartitionView& partition : view_.partitions) {
      const simulator::Volume* volume = machine_.FindVolumeAt(disk_.number(), partition.start);
      if (volume == nullptr || !volume->automatic_letter || !machine_.LettersOf(*volume).empty() ||
          !simulator::IsMountedByWindows(volume->file_system)) {
        continue;
      }
      while (next <= 'Z' && taken_.count(next) != 0) ++next;
      if (next > 'Z') return;
      Give(partition, next++);
    }
  }

 private:
  const PartitionView* Find(std::uint32_t number) const {
    const auto found = std::find_if(view_.partitions.begin(), view_.partitions.end(),
                                    [number](const auto& p) { return p.number == number; });
    return found == view_.partitions.end() ? nullptr : &*found;
  }

  void Give(const PartitionView& partition, char letter) {
    machine_.SetLetter(disk_.number(), partition.start, letter);
  }

  simulator::SimulatedMachine& machine_;
  simulator::Disk& disk_;
  DiskView view_;
  std::set<char> taken_ = {kLogsLetter};
};

}  // namespace

simulator::Disk& AttachImage(simulator::SimulatedMachine& machine, const fs::path& image,
                             simulator::Access access) {
  CheckImage(image);
  const bool automount = machine.switches().automount;
  machine.switches().automount = false;
  try {
    simulator::Disk& disk = machine.AttachDisk(kImageDiskNumber, image, kSectorBytes, access);
    machine.switches().automount = automount;
    return disk;
  } catch (const std::runtime_error& error) {
    throw InputError(error.what());
  }
}

void GiveLetters(simulator::SimulatedMachine& machine, simulator::Disk& disk,
                 const LetterChoices& choices) {
  LetterGiver giver(machine, disk);
  giver.GiveChosen(choices);
  giver.GiveOthers();
}

void CheckSystemVolume(simulator::SimulatedMachine& machine, simulator::Disk& disk, char letter) {
  const simulator::Volume* volume = machine.FindVolumeByLetter(letter);
  const std::string where = disk.device().image().string() + " has no volume ";
  const std::string drive = std::string(1, letter) + ":";
  if (volume == nullptr) throw InputError("--system: " + where + "at " + drive);
  if (!simulator::IsMountedByWindows(volume->file_system)) {
    throw InputError("--system: " + where + "that Windows reads at " + drive);
  }
}

void InstallWindows(simulator::SimulatedMachine& machine, simulator::Disk& disk, char letter) {
  machine.SetSystemDisk(disk.number());
  const std::string loader = std::string(1, letter) + ":\\Windows\\System32\\winload.exe";
  if (simulator::VolumeFiles(machine).Exists(loader)) return;
  const simulator::Volume* volume = machine.FindVolumeByLetter(letter);
  try {
    machine.AddFile(disk.number(), volume->extents.front().offset, loader.substr(2));
  } catch (const std::runtime_error& error) {
    throw InputError("--system: " + std::string(error.what()));
  }
}

}  // namespace velkora_image
