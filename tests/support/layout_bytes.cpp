#include "support/layout_bytes.h"

#include <algorithm>
#include <cstring>

#include "platform/win32.h"

namespace testing_support {
namespace {

constexpr std::size_t kHiddenSectors = 36;
constexpr std::size_t kMbrId = 40;
constexpr std::size_t kGptId = 48;

void Put(RowBytes& bytes, std::size_t offset, std::uint64_t value, std::size_t width) {
  for (std::size_t i = 0; i < width; ++i) {
    bytes.at(offset + i) = static_cast<std::uint8_t>(value >> (8 * i));
  }
}

RowBytes ExpectedRow(std::uint32_t style, std::uint64_t offset, std::uint64_t length,
                     std::uint32_t number) {
  RowBytes bytes{};
  Put(bytes, 0, style, 4);
  Put(bytes, 8, offset, 8);
  Put(bytes, 16, length, 8);
  Put(bytes, 24, number, 4);
  Put(bytes, 28, 1, 1);  // RewritePartition
  return bytes;
}

GuidBytes BytesOf(const GUID& guid) {
  GuidBytes bytes{};
  std::memcpy(bytes.data(), &guid, bytes.size());
  return bytes;
}

RowBytes WithoutId(RowBytes bytes) {
  if (bytes[0] == PARTITION_STYLE_GPT) {
    std::fill_n(bytes.begin() + kGptId, 16, std::uint8_t{0});
  } else {
    Put(bytes, kHiddenSectors, 0, 4);
    std::fill_n(bytes.begin() + kMbrId, 16, std::uint8_t{0});
  }
  return bytes;
}

}  // namespace

RowBytes ExpectedMbrRow(const MbrLayoutRow& row) {
  RowBytes bytes = ExpectedRow(0, row.offset, row.length, row.number);
  Put(bytes, 32, row.type, 1);
  Put(bytes, 34, row.recognized ? 1 : 0, 1);
  return bytes;
}

RowBytes ExpectedGptRow(const GptLayoutRow& row) {
  RowBytes bytes = ExpectedRow(1, row.offset, row.length, row.number);
  std::copy(row.type.begin(), row.type.end(), bytes.begin() + 32);
  Put(bytes, 64, row.attributes, 8);
  for (std::size_t i = 0; i < row.name.size(); ++i) {
    Put(bytes, 72 + 2 * i, static_cast<std::uint8_t>(row.name[i]), 2);
  }
  return bytes;
}

HeaderBytes HeaderOf(velkora::LayoutBuffer& layout) {
  HeaderBytes bytes{};
  std::memcpy(bytes.data(), layout.data(), bytes.size());
  return bytes;
}

RowBytes RowOf(velkora::LayoutBuffer& layout, std::size_t index) {
  RowBytes bytes{};
  const auto* rows = static_cast<const std::uint8_t*>(layout.data()) + sizeof(HeaderBytes);
  std::memcpy(bytes.data(), rows + index * bytes.size(), bytes.size());
  return WithoutId(bytes);
}

RowBytes RowBytesOf(const PARTITION_INFORMATION_EX& row) {
  RowBytes bytes{};
  std::memcpy(bytes.data(), &row, bytes.size());
  return WithoutId(bytes);
}

GuidBytes MbrPartitionId(const PARTITION_INFORMATION_EX& row) {
  return BytesOf(row.Mbr.PartitionId);
}

GuidBytes GptPartitionId(const PARTITION_INFORMATION_EX& row) {
  return BytesOf(row.Gpt.PartitionId);
}

std::vector<GuidBytes> NextGuids(simulator::SimulatedMachine& machine, std::size_t count) {
  constexpr std::uint64_t kSeed = 0x5EED;
  machine.SetGuidSeed(kSeed);
  std::vector<GuidBytes> guids;
  for (std::size_t i = 0; i < count; ++i) {
    GUID guid{};
    win32::CoCreateGuid(&guid);
    guids.push_back(BytesOf(guid));
  }
  machine.SetGuidSeed(kSeed);
  machine.calls().Clear();
  return guids;
}

}  // namespace testing_support
