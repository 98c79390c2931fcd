#include "conversion/converted_disk_fixture.h"

#include <algorithm>
#include <set>

namespace conversion {
namespace {

const SectorRanges kNone;
constexpr char kFirstLetter = 'M';

}  // namespace

Partitions Kept(const Partitions& partitions) {
  Partitions kept;
  for (const Partition& partition : partitions) {
    const std::string& type = partition.type;
    if (type != kEfiSystem && type != kReserved && type != kHidden) kept.push_back(partition);
  }
  return kept;
}

std::map<std::uint64_t, std::uint64_t> PartitionHashes(const std::filesystem::path& image,
                                                       const Partitions& partitions) {
  std::map<std::uint64_t, std::uint64_t> hashes;
  for (const Partition& partition : partitions) {
    hashes[partition.first] = HashSectors(image, partition.range());
  }
  return hashes;
}

PartNumbers PartNumbersOf(ConversionRun& run) {
  PartNumbers numbers;
  for (const VolumeInfo& volume : run.record().volumes()) {
    numbers[volume.offset] = volume.part_number;
  }
  return numbers;
}

PartNumbers NewPartNumbers(const PartNumbers& before, const Partitions& kept) {
  std::set<std::uint64_t> offsets;
  for (const Partition& partition : kept) offsets.insert(partition.offset());
  PartNumbers numbers = before;
  unsigned number = 1;
  for (const std::uint64_t offset : offsets) {
    const auto known = numbers.find(offset);
    if (known != numbers.end()) known->second = number;
    ++number;
  }
  return numbers;
}

SectorRanges LostSectors(const std::filesystem::path& before, const std::filesystem::path& after) {
  const std::uint64_t end = ImageFile(after).sector_count() - kSectorsPerMib;
  SectorRanges lost;
  for (SectorRange range : DifferingSectors(before, after)) {
    range.first = std::max(range.first, kSectorsPerMib);
    range.last = std::min(range.last, end - 1);
    if (range.first <= range.last) lost.push_back(range);
  }
  return lost;
}

void ExpectConversion(const std::filesystem::path& image, const Partitions& partitions,
                      const std::string& transcript) {
  const Partitions kept = Kept(partitions);
  ExpectedImage expected(image, image.string() + ".expected");
  const auto hashes = PartitionHashes(image, partitions);
  ConversionRun run(image);
  run.SetLetters(kFirstLetter);
  std::map<std::uint64_t, std::string> letters;
  for (const auto& [offset, letter] : run.Letters()) {
    const auto keeps = [offset = offset](const Partition& p) { return p.offset() == offset; };
    if (std::any_of(kept.begin(), kept.end(), keeps)) letters[offset] = letter;
  }

  const PartNumbers numbers = PartNumbersOf(run);

  EXPECT_EQ(run.Convert(), 0);

  ExpectTranscript(run.transcript(), transcript);
  EXPECT_EQ(run.Letters(), letters);
  EXPECT_EQ(PartNumbersOf(run), NewPartNumbers(numbers, kept));
  EXPECT_EQ(run.OpenHandles(), std::vector<std::string>());
  expected.Convert(kept);
  EXPECT_EQ(DifferingSectors(expected.path(), image), kNone);
  EXPECT_EQ(PartitionHashes(image, partitions), hashes);
  ExpectMbr(image, kept, kSignature);
}

}  // namespace conversion
