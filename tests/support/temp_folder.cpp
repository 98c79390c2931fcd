#include "support/temp_folder.h"

#include <cstdint>
#include <fstream>
#include <random>
#include <sstream>
#include <system_error>

namespace testing_support {

TempFolder::TempFolder() {
  std::random_device random;
  do {
    const auto number = (std::uint64_t{random()} << 32) | random();
    path_ = std::filesystem::temp_directory_path() / ("velkora-test-" + std::to_string(number));
  } while (!std::filesystem::create_directory(path_));
}

TempFolder::~TempFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string TextOf(const std::filesystem::path& file) {
  std::ostringstream text;
  text << std::ifstream(file, std::ios::binary).rdbuf();
  return text.str();
}

}  // namespace testing_support
