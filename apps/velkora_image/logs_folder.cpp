#include "apps/velkora_image/logs_folder.h"

#include <cerrno>
#include <stdlib.h>
#include <string>
#include <system_error>

#include "apps/velkora_image/input_error.h"

namespace velkora_image {
namespace fs = std::filesystem;

LogsFolder::LogsFolder(const std::optional<fs::path>& wanted) {
  std::error_code error;
  if (wanted) {
    path_ = *wanted;
    fs::create_directories(path_, error);
    if (!error && !fs::is_directory(path_, error)) {
      error = std::make_error_code(std::errc::not_a_directory);
    }
    if (error) throw InputError("--logs: " + path_.string() + ": " + error.message());
    return;
  }
  std::string name = (fs::temp_directory_path(error) / "velkora-image-XXXXXX").string();
  if (error || ::mkdtemp(name.data()) == nullptr) {
    throw InputError("no temporary folder for the logs: " + name + ": " +
                     std::generic_category().message(errno));
  }
  path_ = name;
  temporary_ = true;
}

LogsFolder::~LogsFolder() {
  std::error_code ignored;
  if (temporary_) fs::remove_all(path_, ignored);
}

}  // namespace velkora_image
