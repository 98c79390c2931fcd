#include "convert/partition_types.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace velkora {
namespace {

using GuidBytes = std::array<std::uint8_t, 16>;

struct NamedType {
  const char* name;
  GuidBytes guid;  // in the order of its text
};

constexpr NamedType kNamedTypes[] = {
    {"ESP",
     {0xC1, 0x2A, 0x73, 0x28, 0xF8, 0x1F, 0x11, 0xD2, 0xBA, 0x4B, 0x00, 0xA0, 0xC9, 0x3E, 0xC9,
      0x3B}},
    {"MSR",
     {0xE3, 0xC9, 0xE3, 0x16, 0x0B, 0x5C, 0x4D, 0xB8, 0x81, 0x7D, 0xF9, 0x2D, 0xF0, 0x02, 0x15,
      0xAE}},
    {"BASIC_DATA",
     {0xEB, 0xD0, 0xA0, 0xA2, 0xB9, 0xE5, 0x44, 0x33, 0x87, 0xC0, 0x68, 0xB6, 0xB7, 0x26, 0x99,
      0xC7}},
    {"HIDDEN",
     {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
      0xFF}},
};

// On the disk the first three fields of a GUID are little-endian.
GuidBytes ToTextOrder(GuidBytes guid) {
  std::reverse(guid.begin(), guid.begin() + 4);
  std::swap(guid[4], guid[5]);
  std::swap(guid[6], guid[7]);
  return guid;
}

template <typename Row>
std::vector<std::uint64_t> Offsets(const std::vector<Row>& rows) {
  std::vector<std::uint64_t> offsets;
  offsets.reserve(rows.size());
  for (const Row& row : rows) {
    offsets.push_back(std::uint64_t{row.first_sector} << kSectorShift);
  }
  return offsets;
}

template <typename Row>
void Sort(std::vector<Row>& rows) {
  std::sort(rows.begin(), rows.end(),
            [](const Row& a, const Row& b) { return a.first_sector < b.first_sector; });
}

}  // namespace

const char* GetPartitionTypeName(const GptPartitionRow& row) {
  const GuidBytes guid = ToTextOrder(row.type_guid);
  for (const NamedType& type : kNamedTypes) {
    if (type.guid == guid) return type.name;
  }
  return "UNKNOW";  // spelled so: the name is relied on
}

bool IsDroppedOnTheWayToMbr(const GptPartitionRow& row) {
  const std::string_view name = GetPartitionTypeName(row);
  return name == "MSR" || name == "HIDDEN" || name == "ESP";
}

void FilterGptPartitions(GptPartitionList& rows) {
  rows.erase(std::remove_if(rows.begin(), rows.end(), IsDroppedOnTheWayToMbr), rows.end());
}

std::vector<std::uint64_t> GptPartitionOffsets(const GptPartitionList& rows) {
  return Offsets(rows);
}

std::vector<std::uint64_t> MbrPartitionOffsets(const MbrPartitionList& rows) {
  return Offsets(rows);
}

void SortByFirstSector(GptPartitionList& rows) {
  Sort(rows);
}
void SortByFirstSector(MbrPartitionList& rows) {
  Sort(rows);
}

}  // namespace velkora
