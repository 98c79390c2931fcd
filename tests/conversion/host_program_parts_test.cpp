// The host program's parts that need no disk.
#include <cstdint>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

#include "apps/velkora_image/disk_picture.h"
#include "apps/velkora_image/input_error.h"
#include "apps/velkora_image/options.h"

namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;
using velkora_image::DiskView;
using velkora_image::PartitionView;

constexpr std::uint64_t kMib = 1 << 20;

TEST(ParseFailRequest, ReadsNumbersFromTheRight) {
  const auto plain = velkora_image::ParseFailRequest("CreateFileA/X:\\a\\b");
  EXPECT_EQ(plain.call, "CreateFileA/X:\\a\\b");
  EXPECT_EQ(plain.occurrence, 1u);
  EXPECT_EQ(plain.error, DWORD{ERROR_GEN_FAILURE});
  const auto one = velkora_image::ParseFailRequest("CreateFileA/X:\\a:3");
  EXPECT_EQ(one.call, "CreateFileA/X:\\a");
  EXPECT_EQ(one.occurrence, 3u);
  EXPECT_EQ(one.error, DWORD{ERROR_GEN_FAILURE});
  const auto both = velkora_image::ParseFailRequest("command/diskpart:2:87");
  EXPECT_EQ(both.call, "command/diskpart");
  EXPECT_EQ(both.occurrence, 2u);
  EXPECT_EQ(both.error, 87u);
  EXPECT_THROW(velkora_image::ParseFailRequest("ReadFile:1:2:3"), velkora_image::InputError);
  EXPECT_THROW(velkora_image::ParseFailRequest("ReadFile:"), velkora_image::InputError);
  EXPECT_THROW(velkora_image::ParseFailRequest("ReadFile:1:0"), velkora_image::InputError);
}

DiskView ViewOf(std::uint64_t size,
                const std::vector<std::pair<std::uint64_t, std::uint64_t>>& mib) {
  DiskView view;
  view.style = "gpt";
  view.size = size;
  for (const auto& [start, length] : mib) {
    PartitionView partition;
    partition.number = static_cast<std::uint32_t>(view.partitions.size() + 1);
    partition.start = start * kMib;
    partition.length = length * kMib;
    partition.kind = "basic data";
    view.partitions.push_back(partition);
  }
  return view;
}

TEST(DrawBar, KeepsATinyPartitionVisible) {
  const std::string bar =
      velkora_image::DrawBar(ViewOf(4096 * kMib * 1024, {{1, 1}, {2, 1000000}, {4000000, 1}}));
  EXPECT_EQ(bar.size(), 70u);
  EXPECT_THAT(bar, StartsWith("[.|1|"));
  EXPECT_THAT(bar, HasSubstr(".|3|."));
}

TEST(DrawBar, IsProportional) {
  const std::string bar = velkora_image::DrawBar(ViewOf(400 * kMib, {{0, 100}, {100, 200}}));
  const std::size_t first = bar.find('|');
  const std::size_t second = bar.find('|', first + 1);
  EXPECT_NEAR(static_cast<double>(first - 1), 66 / 4.0, 1.0);
  EXPECT_NEAR(static_cast<double>(second - first - 1), 66 / 2.0, 1.0);
}

TEST(DrawBar, GrowsForMorePartitionsThanColumns) {
  std::vector<std::pair<std::uint64_t, std::uint64_t>> mib;
  for (std::uint64_t i = 0; i < 128; ++i) mib.emplace_back(1 + i, 1);
  const std::string bar = velkora_image::DrawBar(ViewOf(130 * kMib, mib));
  EXPECT_THAT(bar, HasSubstr("|127|128|"));
}

TEST(DrawBar, DrawsAnEmptyDiskAndPartitionsWithoutALength) {
  EXPECT_EQ(velkora_image::DrawBar(ViewOf(kMib, {})), "[" + std::string(68, '.') + "]");
  EXPECT_EQ(velkora_image::DrawBar(ViewOf(kMib / 2, {{0, 0}})).size(), 70u);
}

TEST(SizeText, ChoosesAReadableUnit) {
  EXPECT_EQ(velkora_image::SizeText(512), "512 bytes");
  EXPECT_EQ(velkora_image::SizeText(17408), "17 KiB");
  EXPECT_EQ(velkora_image::SizeText(64 * kMib), "64 MiB");
  EXPECT_EQ(velkora_image::SizeText(1536 * kMib), "1.50 GiB");
}

}  // namespace
