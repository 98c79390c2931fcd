// Letters: who has one, and which identity a letter is remembered for.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/win32_types.h"

namespace simulator {

struct Volume;

// The database is keyed by letter, one identity each. Giving a letter to another identity forgets
// the former one. Letters are 'A' to 'Z' in either case. Functions that return a DWORD give a
// Windows error.
class MountManager {
 public:
  // Lets a letter stand for a folder of the host; a volume that held the letter loses it.
  void MapFolder(char letter, const std::filesystem::path& folder);
  const std::map<char, std::filesystem::path>& mapped_folders() const { return folders_; }

  // A volume has come: it gets the letter that is remembered for its identity if no other holds it;
  // else, with `automount` and unless the volume suppresses it, the first free letter from C on.
  void Arrive(const Volume& volume, bool automount);
  // A volume has gone: its letter is free, and stays remembered.
  void Leave(const Volume& volume);

  // 145 for a letter in use, 87 (believed) for a volume that has one already.
  DWORD Assign(char letter, const Volume& volume);
  // 2 (believed) for a letter that nobody holds. The letter is forgotten too.
  DWORD Remove(char letter);

  // The identity that `letter` is remembered for, or nothing.
  std::optional<std::string> Remembered(char letter) const;
  // All letters that the volume with this identity holds now, in ascending order.
  std::vector<char> LettersOf(const std::string& identity) const;
  // The identity that holds `letter` now, or nothing.
  std::optional<std::string> HolderOf(char letter) const;
  DWORD Mask() const;

 private:
  bool InUse(char letter) const;
  void Give(char letter, const std::string& identity);

  std::map<char, std::filesystem::path> folders_;
  std::map<char, std::string> held_;
  std::map<char, std::string> remembered_;
};

}  // namespace simulator
