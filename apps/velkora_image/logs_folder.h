// The folder of the host that the machine sees as drive X.
#pragma once

#include <filesystem>
#include <optional>

namespace velkora_image {

class LogsFolder {
 public:
  // Takes the folder named, made if missing, or makes a fresh temporary one. Throws InputError.
  explicit LogsFolder(const std::optional<std::filesystem::path>& wanted);
  // Removes a temporary folder that is not kept.
  ~LogsFolder();
  LogsFolder(const LogsFolder&) = delete;
  LogsFolder& operator=(const LogsFolder&) = delete;

  const std::filesystem::path& path() const { return path_; }
  void Keep() { temporary_ = false; }

 private:
  std::filesystem::path path_;
  bool temporary_ = false;
};

}  // namespace velkora_image
