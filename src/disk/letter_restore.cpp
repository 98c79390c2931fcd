#include "disk/letter_restore.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "disk/drive_letters.h"
#include "disk/system_volume_wait.h"
#include "disk/volumes.h"
#include "frame/disk_records.h"
#include "logging/log.h"
#include "platform/win32.h"

namespace velkora {
namespace {

struct LetterPlan {
  // Must be free before anything is assigned: letters that volumes hold now and letters that they
  // must get. Those that come from the machine carry its terminators inside the text, so one letter
  // can stand here twice, the shorter text first.
  std::set<std::string> letters_to_remove;
  // Letter path to volume root. The first volume in the order of the walk keeps a letter.
  std::map<std::string, std::string> letters_to_restore;
};

bool BeginsWithLetter(const std::string& text) {
  return !text.empty() && std::isalpha(static_cast<unsigned char>(text.front())) != 0;
}

void PlanVolume(const DiskInfo& disk, const std::string& path, LetterPlan& plan) {
  std::uint32_t disk_index = 0;
  std::uint64_t offset = 0;
  if (!GetPartitionDiskindexAndOffset(path, disk_index, offset)) {
    LogEx(kLogModule, kLogError, "GetPartitionDiskindexAndOffset error: %d, volume_id: %s",
          static_cast<int>(win32::GetLastError()), path.c_str());
    return;
  }
  const std::string root = path + "\\";
  std::string current;
  if (!GetVolumeLetter(root, current)) {
    LogEx(kLogModule, kLogError, "GetVolumeLetter Error: %d, volume_id: %s",
          static_cast<int>(win32::GetLastError()), path.c_str());
    return;
  }
  LogEx(kLogModule, kLogProgress, "volume_path: %s, letter: %s, disk index: %d, part offset: %llu",
        path.c_str(), current.c_str(), static_cast<int>(disk_index),
        static_cast<unsigned long long>(offset));
  if (disk_index != disk.index) return;
  const VolumeInfo* volume = FindVolumeByOffset(disk, offset);
  if (volume == nullptr) return;
  const std::string wanted = FieldText(volume->letter) + "\\";
  if (std::strcmp(wanted.c_str(), current.c_str()) == 0) return;
  if (BeginsWithLetter(current)) plan.letters_to_remove.insert(current);
  if (BeginsWithLetter(wanted)) {
    plan.letters_to_remove.insert(wanted);
    plan.letters_to_restore.emplace(wanted, root);
  }
}

// A letter that cannot be removed counts as free all the same; assigning it then fails in its turn.
void RemoveLetters(const std::set<std::string>& letters) {
  std::vector<char> free_letters = GetUnusedLetters();
  for (const std::string& letter : letters) {
    const char character = letter.front();
    const bool is_free =
        std::find(free_letters.begin(), free_letters.end(), character) != free_letters.end();
    if (!is_free && !win32::DeleteVolumeMountPointA(letter.c_str())) {
      LogEx(kLogModule, kLogError, "DeleteVolumeMountPointA Error: %d, Letter: %s",
            static_cast<int>(win32::GetLastError()), letter.c_str());
    }
    LogEx(kLogModule, kLogProgress, "Remove Letter %s", letter.c_str());
    free_letters.push_back(character);
  }
}

void AssignLetters(const std::map<std::string, std::string>& letters) {
  for (const auto& [letter, root] : letters) {
    if (!win32::SetVolumeMountPointA(letter.c_str(), root.c_str())) {
      LogEx(kLogModule, kLogError, "SetVolumeMountPointA Error: %d, Letter: %s, Volume id: %s",
            static_cast<int>(win32::GetLastError()), letter.c_str(), root.c_str());
    }
    LogEx(kLogModule, kLogProgress, "Restore Letter guid :%s, letter: %s", root.c_str(),
          letter.c_str());
  }
}

}  // namespace

bool RestoreVolumeInfosAfterConvert(const Velkora& converter) {
  LogEx(kLogModule, kLogProgress, "RestoreVolumeInfosAfterConvert Begin...");
  // Whatever comes of the wait: the letters are handled with what is mounted by then.
  if (converter.disk_info->is_system != 0) WaitForSystemVolumeMount(converter);
  std::vector<std::string> paths;
  if (!GetVolumeDevicePaths(paths)) return false;
  LetterPlan plan;
  for (const std::string& path : paths) PlanVolume(*converter.disk_info, path, plan);
  RemoveLetters(plan.letters_to_remove);
  AssignLetters(plan.letters_to_restore);
  LogEx(kLogModule, kLogProgress, "RestoreVolumeInfosAfterConvert End!");
  return true;
}

}  // namespace velkora
