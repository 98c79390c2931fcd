#include "disk/drive_letters.h"

#include "logging/log.h"
#include "platform/win32.h"

namespace velkora {
namespace {

constexpr unsigned kLetterCount = 26;
constexpr DWORD kLetterBits = (DWORD{1} << kLetterCount) - 1;

std::vector<char> LettersWithBit(DWORD mask, bool set) {
  std::vector<char> letters;
  for (unsigned bit = 0; bit < kLetterCount; ++bit) {
    if (((mask >> bit & 1) != 0) == set) letters.push_back(static_cast<char>('A' + bit));
  }
  return letters;
}

}  // namespace

std::vector<char> GetUnusedLetters() {
  const DWORD used = win32::GetLogicalDrives();
  // The trial mask is the used mask plus 3, an addition and not an OR. With A and B free it passes
  // over both; on a machine with A or B in use the carry can name a letter that is taken, and the
  // assignment of that letter then fails in its turn.
  const DWORD trial = (used + 3) & kLetterBits;
  const std::vector<char> letters = LettersWithBit(trial, false);
  return letters.empty() ? LettersWithBit(used, false) : letters;
}

std::string GetFirstUnUsedLetter() {
  const std::vector<char> letters = GetUnusedLetters();
  return letters.empty() ? std::string() : std::string(1, letters.front());
}

std::vector<char> GetUsedLetters() {
  return LettersWithBit(win32::GetLogicalDrives(), true);
}

bool GetSystemDriveLetter(std::string& letter) {
  char directory[MAX_PATH] = {};
  if (win32::GetSystemDirectoryA(directory, MAX_PATH) == 0) {
    LogEx(kLogModule, kLogError, "GetSystemDirectoryA error %lu",
          static_cast<unsigned long>(win32::GetLastError()));
    return false;
  }
  letter = std::string(directory).substr(0, 1);
  return true;
}

}  // namespace velkora
