#include "conversion/system_disk.h"

#include <algorithm>
#include <cctype>
#include <gmock/gmock.h>
#include <sstream>
#include <stdexcept>

#include "conversion/tools.h"

namespace conversion {
namespace {

using ::testing::UnorderedElementsAre;

constexpr char kFirstLetter = 'C';

// What mtools list, in lower case.
std::vector<std::string> FilesOfFat(const std::filesystem::path& volume) {
  std::istringstream output(Tool({"mdir", "-/", "-b", "-i", volume, "::"}));
  std::vector<std::string> files;
  std::string line;
  while (std::getline(output, line)) {
    if (line.empty() || line.back() == '/') continue;
    std::transform(line.begin(), line.end(), line.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    files.push_back(line);
  }
  return files;
}

const Partition& EfiOf(const Partitions& rows) {
  const auto efi = std::find_if(rows.begin(), rows.end(),
                                [](const Partition& row) { return row.type == kEfiSystem; });
  if (efi == rows.end()) throw std::logic_error("no EFI system partition is expected");
  return *efi;
}

}  // namespace

Partition EfiAt(std::uint64_t first_sector) {
  return {first_sector, first_sector + kEfiSectors - 1, kEfiSystem};
}

void RunFrom(ConversionRun& run, const Partition& system) {
  run.machine().SetSystemDisk(1);
  run.machine().AddFile(1, system.offset(), "Windows\\System32\\winload.exe");
  run.record().disk().is_system = 1;
  for (VolumeInfo& volume : run.record().volumes()) {
    volume.is_system = volume.offset == system.offset() ? 1 : 0;
  }
}

void ExpectEfiVolume(const std::filesystem::path& image, const Partition& efi,
                     const std::filesystem::path& scratch) {
  const std::filesystem::path volume = scratch / "efi.img";
  ExtractVolume(image, efi.range(), volume);
  Tool({"fsck.fat", "-n", volume});
  EXPECT_THAT(
      FilesOfFat(volume),
      UnorderedElementsAre("::/efi/microsoft/boot/bootmgfw.efi",
                           "::/efi/microsoft/boot/bootmgr.efi", "::/efi/microsoft/boot/memtest.efi",
                           "::/efi/microsoft/boot/bcd", "::/efi/boot/bootx64.efi"));
}

void ExpectSystemConversion(const std::filesystem::path& image, const Partition& system,
                            ExpectedImage& expected, const Partitions& rows,
                            const std::string& transcript) {
  const Partition& efi = EfiOf(rows);
  ConversionRun run(image);
  run.SetLetters(kFirstLetter);
  RunFrom(run, system);
  auto letters = run.Letters();
  letters[efi.offset()] = std::string(1, static_cast<char>(kFirstLetter + letters.size()));
  const PartNumbers numbers = PartNumbersOf(run);

  EXPECT_EQ(run.Convert(), 0);

  ExpectTranscript(run.transcript(), transcript);
  EXPECT_EQ(run.Letters(), letters);
  EXPECT_EQ(PartNumbersOf(run), NewPartNumbers(numbers, rows));
  EXPECT_EQ(run.OpenHandles(), std::vector<std::string>());
  expected.TakeSectors(efi.range());
  ExpectConvertedGpt(image, expected, rows);
  ExpectEfiVolume(image, efi, image.parent_path());
}

}  // namespace conversion
