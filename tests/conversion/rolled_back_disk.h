// The whole judgement of a conversion that failed and was rolled back.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "conversion/conversion_run.h"
#include "conversion/expected_image.h"

namespace conversion {

// These callbacks, and those of a rollback that went well behind them.
std::vector<std::string> RolledBack(std::vector<std::string> callbacks);

// Converts, and expects a failure with these callbacks in front of those of the rollback, these
// errors, the letters of before, and no open handle.
void ExpectFailure(ConversionRun& run, const std::vector<std::string>& callbacks,
                   const std::vector<std::string>& errors, const std::string& transcript);

class RolledBackDisk {
 public:
  // Looks at the disk as it is before the conversion. `wanted` are the partitions that the backup
  // covers: those that the conversion keeps.
  RolledBackDisk(const std::filesystem::path& image, const Partitions& wanted);

  // For what the conversion changes before it fails.
  ExpectedImage& expected() { return expected_; }

  // Every byte is as worked out, and sfdisk sees the table that it saw before. Of a GPT, sgdisk
  // says that the primary's bytes stand in the secondary place; one of a disk below 128 MiB has no
  // protective record, and only sgdisk finds it.
  void Expect();

 private:
  void ExpectGpt(const ImageFile& image) const;

  std::filesystem::path image_;
  std::string dump_;
  ExpectedImage expected_;
};

}  // namespace conversion
