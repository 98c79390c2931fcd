// Paths of the files in the logs folder.
#pragma once

#include <string>
#include <string_view>

namespace velkora {

// The logs folder followed directly by `name`, which begins with a backslash. No separator is
// tested or corrected: a folder that ends in one gives a doubled one, and an empty folder gives a
// path in the root of the current drive.
std::string LogsPath(std::string_view name);

// `path` between double quotes. A quote inside is not escaped.
std::string Quoted(std::string_view path);

}  // namespace velkora
