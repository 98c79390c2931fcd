#include "simulator/mount_manager.h"

#include "simulator/text.h"
#include "simulator/volume.h"

namespace simulator {
namespace {

// A and B are left to floppy drives.
constexpr char kFirstAutomaticLetter = 'C';
constexpr char kLastLetter = 'Z';

std::optional<std::string> Lookup(const std::map<char, std::string>& letters, char letter) {
  const auto found = letters.find(ToUpperAscii(letter));
  if (found == letters.end()) return std::nullopt;
  return found->second;
}

}  // namespace

bool MountManager::InUse(char letter) const {
  return held_.count(letter) != 0 || folders_.count(letter) != 0;
}

void MountManager::Give(char letter, const std::string& identity) {
  held_[letter] = identity;
  remembered_[letter] = identity;
}

void MountManager::MapFolder(char letter, const std::filesystem::path& folder) {
  const char upper = ToUpperAscii(letter);
  held_.erase(upper);
  remembered_.erase(upper);
  folders_[upper] = folder;
}

void MountManager::Arrive(const Volume& volume, bool automount) {
  for (const auto& [letter, identity] : remembered_) {
    if (identity == volume.identity && !InUse(letter)) {
      held_[letter] = identity;
      return;
    }
  }
  if (!automount || !volume.automatic_letter) return;
  for (char letter = kFirstAutomaticLetter; letter <= kLastLetter; ++letter) {
    if (InUse(letter)) continue;
    Give(letter, volume.identity);
    return;
  }
}

void MountManager::Leave(const Volume& volume) {
  std::erase_if(held_, [&volume](const auto& entry) { return entry.second == volume.identity; });
}

DWORD MountManager::Assign(char letter, const Volume& volume) {
  const char upper = ToUpperAscii(letter);
  if (InUse(upper)) return ERROR_DIR_NOT_EMPTY;
  if (!LettersOf(volume.identity).empty()) return ERROR_INVALID_PARAMETER;
  Give(upper, volume.identity);
  return ERROR_SUCCESS;
}

DWORD MountManager::Remove(char letter) {
  const char upper = ToUpperAscii(letter);
  if (held_.erase(upper) == 0) return ERROR_FILE_NOT_FOUND;
  remembered_.erase(upper);
  return ERROR_SUCCESS;
}

std::optional<std::string> MountManager::Remembered(char letter) const {
  return Lookup(remembered_, letter);
}

std::vector<char> MountManager::LettersOf(const std::string& identity) const {
  std::vector<char> letters;
  for (const auto& [letter, holder] : held_) {
    if (holder == identity) letters.push_back(letter);
  }
  return letters;
}

std::optional<std::string> MountManager::HolderOf(char letter) const {
  return Lookup(held_, letter);
}

DWORD MountManager::Mask() const {
  DWORD mask = 0;
  for (char letter = 'A'; letter <= kLastLetter; ++letter) {
    if (InUse(letter)) mask |= DWORD{1} << (letter - 'A');
  }
  return mask;
}

}  // namespace simulator
