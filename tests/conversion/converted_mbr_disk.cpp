#include "conversion/converted_mbr_disk.h"

namespace conversion {
namespace {

constexpr char kFirstLetter = 'D';

}  // namespace

std::vector<GptRow> ExpectedGptRows(const Partitions& rows) {
  std::vector<GptRow> expected;
  for (const Partition& row : rows) {
    GptRow entry = {static_cast<unsigned>(expected.size() + 1),
                    row.first,
                    row.count(),
                    kBasicData,
                    "Basic Data Partition",
                    ""};
    if (row.type == kMbrHidden) {
      entry.type = kHidden;
      entry.name = "Hidden Partition";
      entry.attributes = "GUID:62,63";
    } else if (row.type == kEfiSystem) {
      entry.type = kEfiSystem;
    }
    expected.push_back(entry);
  }
  return expected;
}

void ExpectConvertedGpt(const std::filesystem::path& image, ExpectedImage& expected,
                        const Partitions& rows) {
  expected.Clean();
  expected.TakeGpt();
  EXPECT_EQ(DifferingSectors(expected.path(), image), SectorRanges());
  ExpectGptRows(image, ExpectedGptRows(rows));
}

void ExpectGptConversion(const std::filesystem::path& image, const MbrTable& table,
                         const std::string& transcript) {
  const Partitions rows = table.Rows();
  ExpectedImage expected(image, image.string() + ".expected");
  const auto hashes = PartitionHashes(image, rows);
  ConversionRun run(image);
  run.SetLetters(kFirstLetter);
  const auto letters = run.Letters();
  const PartNumbers numbers = PartNumbersOf(run);

  EXPECT_EQ(run.Convert(), 0);

  ExpectTranscript(run.transcript(), transcript);
  EXPECT_EQ(run.Letters(), letters);
  EXPECT_EQ(letters.size(), rows.size());
  EXPECT_EQ(PartNumbersOf(run), NewPartNumbers(numbers, rows));
  EXPECT_EQ(run.OpenHandles(), std::vector<std::string>());
  ExpectConvertedGpt(image, expected, rows);
  EXPECT_EQ(PartitionHashes(image, rows), hashes);
}

}  // namespace conversion
