// Free and used drive letters, by the system's mask. Letters are single upper-case characters.
#pragma once

#include <string>
#include <vector>

namespace velkora {

// A letter that may be given to a volume, or an empty text if all are in use. A and B come last.
// On a machine with A or B in use the result need not be free.
std::string GetFirstUnUsedLetter();

// All letters that the same rule takes for free, ascending.
std::vector<char> GetUnusedLetters();

// All letters in use, ascending.
std::vector<char> GetUsedLetters();

// Replaces `letter` by the first character of the system directory. On failure logs
// "GetSystemDirectoryA error %lu" (level 3) and returns false.
bool GetSystemDriveLetter(std::string& letter);

}  // namespace velkora
