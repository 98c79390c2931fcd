// Windows paths of ordinary files, mapped into folders of the host.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string_view>

namespace simulator {

// Maps `X:\a\b` through the folder of letter X, and a path without a drive (`\a`, `a`) through the
// folder of `current_drive`. Both kinds of separator count, doubled ones as one; "." and ".." are
// resolved and never lead out of the folder. The text is UTF-8. Nothing for a drive that maps no
// folder, an empty path, a device path (`\\.\…`, `\\?\…`) and a name that Windows does not allow.
std::optional<std::filesystem::path> HostPath(const std::map<char, std::filesystem::path>& folders,
                                              char current_drive, std::string_view windows_path);

}  // namespace simulator
