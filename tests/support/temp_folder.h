// A folder for the files of one test.
#pragma once

#include <filesystem>
#include <string>

namespace testing_support {

// Makes a folder of its own under the system's temporary path, and removes it with all that is in
// it at the end.
class TempFolder {
 public:
  TempFolder();
  ~TempFolder();
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

// All bytes of a file; "" where there is none.
std::string TextOf(const std::filesystem::path& file);

}  // namespace testing_support
