#include "simulator/folder_listing.h"

#include <algorithm>
#include <filesystem>
#include <optional>
#include <system_error>

#include "simulator/system.h"
#include "simulator/text.h"
#include "simulator/volume_path.h"

namespace simulator {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kVerbatimPrefix = "\\\\?\\";
// Believed: the answer for a file where a folder should be.
constexpr DWORD kErrorNotAFolder = 267;

std::string ToUpperAscii(std::string_view text) {
  std::string upper;
  for (const char character : text) upper += simulator::ToUpperAscii(character);
  return upper;
}

// Both texts in upper case. Goes back to the last "*" where the rest does not fit.
bool MatchesUpper(std::string_view pattern, std::string_view name) {
  std::size_t at = 0;
  std::size_t star = std::string_view::npos;
  std::size_t star_name = 0;
  std::size_t i = 0;
  while (i < name.size()) {
    if (at < pattern.size() && pattern[at] == '*') {
      star = at++;
      star_name = i;
    } else if (at < pattern.size() && (pattern[at] == '?' || pattern[at] == name[i])) {
      ++at;
      ++i;
    } else if (star != std::string_view::npos) {
      at = star + 1;
      i = ++star_name;
    } else {
      return false;
    }
  }
  return pattern.find_first_not_of('*', at) == std::string_view::npos;
}

bool MatchesWildcards(std::string_view pattern, std::string_view name) {
  return pattern == "*" || pattern == "*.*" ||
         MatchesUpper(ToUpperAscii(pattern), ToUpperAscii(name));
}

// Whether nothing but a drive stands in front of the pattern.
bool IsRoot(std::string_view folder) {
  if (folder.size() >= 2 && folder[1] == ':') folder.remove_prefix(2);
  const auto names = SplitPath(folder);
  return names && names->empty();
}

ListedFile EntryOf(const fs::directory_entry& found) {
  std::error_code error;
  ListedFile file;
  const std::u8string name = found.path().filename().u8string();
  file.name.assign(name.begin(), name.end());
  const bool is_folder = found.is_directory(error);
  file.attributes = is_folder ? FILE_ATTRIBUTE_DIRECTORY : FILE_ATTRIBUTE_ARCHIVE;
  const std::uintmax_t size = is_folder ? 0 : found.file_size(error);
  file.size = error ? 0 : size;
  return file;
}

bool ComesBefore(const ListedFile& left, const ListedFile& right) {
  const std::string left_key = ToUpperAscii(left.name);
  const std::string right_key = ToUpperAscii(right.name);
  return left_key != right_key ? left_key < right_key : left.name < right.name;
}

void AddDots(std::vector<ListedFile>& files) {
  ListedFile dots;
  dots.attributes = FILE_ATTRIBUTE_DIRECTORY;
  for (const char* dot_name : {"..", "."}) {
    dots.name = dot_name;
    files.insert(files.begin(), dots);
  }
}

DWORD ListHostFolder(const fs::path& folder, std::vector<ListedFile>& files) {
  std::error_code error;
  if (!fs::exists(folder, error)) return ERROR_PATH_NOT_FOUND;
  if (!fs::is_directory(folder, error)) return kErrorNotAFolder;
  fs::directory_iterator found(folder, error);
  if (error) return ERROR_ACCESS_DENIED;
  while (found != fs::directory_iterator()) {
    files.push_back(EntryOf(*found));
    found.increment(error);
    if (error) return ERROR_ACCESS_DENIED;
  }
  return ERROR_SUCCESS;
}

// All that is in a folder, with "." and ".." in front in any but a root.
DWORD ListAll(System& system, std::string_view folder, std::vector<ListedFile>& files) {
  const bool names_volume = folder.starts_with(kVerbatimPrefix);
  const auto host_path = names_volume ? std::nullopt : system.HostPath(folder);
  if (!host_path) return VolumeFiles(system).List(folder, files);
  const DWORD error = ListHostFolder(*host_path, files);
  std::sort(files.begin(), files.end(), ComesBefore);
  if (!IsRoot(folder)) AddDots(files);
  return error;
}

}  // namespace

DWORD ListFolder(System& system, std::string_view pattern, std::vector<ListedFile>& files) {
  pattern = WithoutVerbatimPrefix(pattern);
  if (pattern.empty()) return ERROR_PATH_NOT_FOUND;
  const std::string_view name = FileNameOf(pattern);
  std::string folder(pattern.substr(0, pattern.size() - name.size()));
  if (folder.empty()) folder = "\\";

  std::vector<ListedFile> found;
  const DWORD error = ListAll(system, folder, found);
  if (error != ERROR_SUCCESS) return error;
  std::erase_if(found, [name](const ListedFile& file) {
    const bool by_short_name = !file.short_name.empty() && MatchesWildcards(name, file.short_name);
    return !by_short_name && !MatchesWildcards(name, file.name);
  });
  if (found.empty()) return ERROR_FILE_NOT_FOUND;
  files = std::move(found);
  return ERROR_SUCCESS;
}

}  // namespace simulator
