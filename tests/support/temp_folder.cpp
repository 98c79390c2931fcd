#include "support/temp_folder.h"

#include <cstdint>
#include <random>
#include <string>
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

}  // namespace testing_support
