// A drive layout as the platform takes it, put together byte by byte.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>
#include <vector>

#include "convert/layout_builder.h"
#include "support/machine_fixture.h"

namespace testing_support {

using HeaderBytes = std::array<std::uint8_t, 48>;
using RowBytes = std::array<std::uint8_t, 144>;

// What a test expects of a row of an MBR layout; RewritePartition is always 1.
struct MbrLayoutRow {
  std::uint64_t offset = 0;  // bytes
  std::uint64_t length = 0;  // bytes
  std::uint32_t number = 0;
  std::uint8_t type = 0;
  bool recognized = false;
};
RowBytes ExpectedMbrRow(const MbrLayoutRow& row);

struct GptLayoutRow {
  std::uint64_t offset = 0;
  std::uint64_t length = 0;
  std::uint32_t number = 0;
  GuidBytes type = {};
  std::uint64_t attributes = 0;
  std::string_view name;  // ASCII
};
RowBytes ExpectedGptRow(const GptLayoutRow& row);

HeaderBytes HeaderOf(velkora::LayoutBuffer& layout);

// The bytes of the buffer's row, with the partition's id (and, in an MBR row, the hidden sectors,
// which nobody sets) put to zero.
RowBytes RowOf(velkora::LayoutBuffer& layout, std::size_t index);
RowBytes RowBytesOf(const PARTITION_INFORMATION_EX& row);

// The partition's id as it lies in the row.
GuidBytes MbrPartitionId(const PARTITION_INFORMATION_EX& row);
GuidBytes GptPartitionId(const PARTITION_INFORMATION_EX& row);

// The next `count` GUIDs that the current machine would draw; it draws them anew afterwards.
std::vector<GuidBytes> NextGuids(simulator::SimulatedMachine& machine, std::size_t count);

}  // namespace testing_support
