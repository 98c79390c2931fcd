#include "conversion/judges.h"

#include <algorithm>
#include <cstdio>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ostream>
#include <set>
#include <sstream>

#include "conversion/tools.h"
#include "support/tools/sfdisk_table.h"

namespace conversion {
namespace {

using ::testing::HasSubstr;
using testing_support::ReadSfdiskTable;
using testing_support::SfdiskRow;
using testing_support::SfdiskTable;

constexpr std::size_t kPrimaries = 3;
constexpr std::size_t kMostSfdiskRows = 60;  // sfdisk passes over the rest of a longer chain
constexpr std::uint64_t kMostSectors = std::uint64_t{1} << 32;  // 2 TiB

std::string HexText(std::uint32_t value) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08x", value);
  return text;
}

std::vector<MbrRow> RowsOf(const SfdiskTable& table) {
  std::vector<MbrRow> rows;
  for (const SfdiskRow& row : table.rows) {
    rows.push_back({row.number, row.start, row.count, row.type});
  }
  return rows;
}

// Lines "number:startS:endS:sizeS:…".
std::vector<std::string> PartedRows(const std::filesystem::path& image) {
  std::istringstream output(Tool({"parted", "-s", "-m", image, "unit", "s", "print"}));
  std::vector<std::string> rows;
  std::string line;
  while (std::getline(output, line)) {
    std::size_t colons = 0;
    std::size_t end = 0;
    while (end < line.size() && colons < 4) colons += line[end++] == ':' ? 1u : 0u;
    const bool is_row = colons == 4 && line.find_first_not_of("0123456789") == line.find(':');
    if (is_row) rows.push_back(line.substr(0, end));
  }
  return rows;
}

std::vector<std::string> PartedText(const std::vector<MbrRow>& rows) {
  std::vector<std::string> lines;
  for (const MbrRow& row : rows) {
    lines.push_back(std::to_string(row.number) + ":" + std::to_string(row.start) +
                    "s:" + std::to_string(row.start + row.size - 1) +
                    "s:" + std::to_string(row.size) + "s:");
  }
  return lines;
}

}  // namespace

void PrintTo(const MbrRow& row, std::ostream* out) {
  *out << row.number << ": start " << row.start << " size " << row.size << " type " << row.type;
}

std::vector<MbrRow> ExpectedRows(Partitions partitions, std::uint64_t sector_count) {
  std::sort(partitions.begin(), partitions.end(),
            [](const Partition& a, const Partition& b) { return a.first < b.first; });
  std::vector<MbrRow> rows;
  unsigned number = 1;
  for (std::size_t i = 0; i < partitions.size(); ++i) {
    if (i == kPrimaries) {
      const std::uint64_t start = partitions[i - 1].last + 1;
      rows.push_back({number++, start, std::min(sector_count, kMostSectors) - start, "f"});
    }
    rows.push_back({number++, partitions[i].first, partitions[i].count(), "7"});
  }
  return rows;
}

void ExpectMbrBySfdisk(const std::filesystem::path& image, const Partitions& partitions,
                       std::uint32_t signature) {
  std::vector<MbrRow> expected = ExpectedRows(partitions, ImageFile(image).sector_count());
  if (expected.size() > kMostSfdiskRows) expected.resize(kMostSfdiskRows);
  const SfdiskTable table = ReadSfdiskTable(image);
  EXPECT_EQ(table.label, "dos");
  EXPECT_EQ(table.id, HexText(signature));
  EXPECT_EQ(RowsOf(table), expected);
  EXPECT_THAT(Tool({"sfdisk", "--verify", image}), HasSubstr("No errors detected."));
}

void ExpectMbr(const std::filesystem::path& image, const Partitions& partitions,
               std::uint32_t signature) {
  ExpectMbrBySfdisk(image, partitions, signature);
  EXPECT_EQ(PartedRows(image),
            PartedText(ExpectedRows(partitions, ImageFile(image).sector_count())));
}

std::vector<unsigned> BootableRows(const std::filesystem::path& image) {
  std::vector<unsigned> numbers;
  for (const SfdiskRow& row : ReadSfdiskTable(image).rows) {
    if (row.active) numbers.push_back(row.number);
  }
  return numbers;
}

void PrintTo(const GptRow& row, std::ostream* out) {
  *out << row.number << ": start " << row.start << " size " << row.size << " type " << row.type
       << " name " << row.name << " attributes " << row.attributes;
}

void ExpectGptRows(const std::filesystem::path& image, const std::vector<GptRow>& expected) {
  EXPECT_THAT(Tool({"sgdisk", "--verify", image}), HasSubstr("No problems found."));
  const SfdiskTable table = ReadSfdiskTable(image);
  EXPECT_EQ(table.label, "gpt");
  std::vector<GptRow> rows;
  std::set<std::string> ids = {table.id};
  for (const SfdiskRow& row : table.rows) {
    rows.push_back({row.number, row.start, row.count, row.type, row.name, row.attributes});
    ids.insert(row.id);
  }
  EXPECT_EQ(rows, expected);
  EXPECT_EQ(ids.size(), expected.size() + 1);
}

void ExpectGpt(const std::filesystem::path& image, const Partitions& partitions) {
  EXPECT_THAT(Tool({"sgdisk", "--verify", image}), HasSubstr("No problems found."));
  const SfdiskTable table = ReadSfdiskTable(image);
  EXPECT_EQ(table.label, "gpt");
  std::vector<MbrRow> expected;
  for (const Partition& partition : partitions) {
    expected.push_back(
        {static_cast<unsigned>(expected.size() + 1), partition.first, partition.count(), ""});
  }
  std::vector<MbrRow> rows = RowsOf(table);
  for (MbrRow& row : rows) row.type.clear();
  EXPECT_EQ(rows, expected);
}

}  // namespace conversion
