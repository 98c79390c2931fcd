// A partition table as sfdisk sees it, to be compared with what the store reads or wrote.
#pragma once

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include "simulator/storage/partition_store.h"
#include "support/tools/sfdisk_table.h"

namespace simulator::storage_testing {

struct ListedPartition {
  std::uint64_t start = 0;  // sectors
  std::uint64_t count = 0;  // sectors
  std::string type;         // hexadecimal without leading zeros, or a GUID in capitals
  bool active = false;
  std::string name;
  std::string id;
  bool operator==(const ListedPartition&) const = default;
};

inline void PrintTo(const ListedPartition& partition, std::ostream* out) {
  *out << partition.start << "+" << partition.count << " type " << partition.type
       << (partition.active ? " active " : " ") << partition.name << " " << partition.id;
}

// What sfdisk lists, without the ids of MBR partitions, which are of sfdisk's own making.
inline std::vector<ListedPartition> SfdiskList(const std::filesystem::path& image) {
  std::vector<ListedPartition> list;
  const testing_support::SfdiskTable table = testing_support::ReadSfdiskTable(image);
  for (const testing_support::SfdiskRow& row : table.rows) {
    list.push_back(
        {row.start, row.count, row.type, row.active, row.name, table.label == "gpt" ? row.id : ""});
  }
  return list;
}

inline std::string GuidText(const GUID& guid) {
  char text[37];
  std::snprintf(text, sizeof text, "%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X",
                static_cast<unsigned>(guid.Data1), unsigned{guid.Data2}, unsigned{guid.Data3},
                unsigned{guid.Data4[0]}, unsigned{guid.Data4[1]}, unsigned{guid.Data4[2]},
                unsigned{guid.Data4[3]}, unsigned{guid.Data4[4]}, unsigned{guid.Data4[5]},
                unsigned{guid.Data4[6]}, unsigned{guid.Data4[7]});
  return text;
}

inline ListedPartition Listed(const PARTITION_INFORMATION_EX& row) {
  ListedPartition listed;
  listed.start = static_cast<std::uint64_t>(row.StartingOffset.QuadPart) / 512;
  listed.count = static_cast<std::uint64_t>(row.PartitionLength.QuadPart) / 512;
  if (row.PartitionStyle == PARTITION_STYLE_GPT) {
    listed.type = GuidText(row.Gpt.PartitionType);
    listed.id = GuidText(row.Gpt.PartitionId);
    for (const WCHAR unit : row.Gpt.Name) {
      if (unit == 0) break;
      listed.name.push_back(static_cast<char>(unit));
    }
    return listed;
  }
  char type[3];
  std::snprintf(type, sizeof type, "%x", unsigned{row.Mbr.PartitionType});
  listed.type = type;
  listed.active = row.Mbr.BootIndicator != 0;
  return listed;
}

// The rows in the form of SfdiskList.
inline std::vector<ListedPartition> ListRows(const DiskLayout& layout) {
  std::vector<ListedPartition> list;
  for (std::size_t i = 0; i < layout.rows.size(); ++i) {
    const PARTITION_INFORMATION_EX& row = layout.rows[i];
    const bool is_gpt = row.PartitionStyle == PARTITION_STYLE_GPT;
    const bool is_master_row = !is_gpt && i < 4 && row.Mbr.PartitionType != 0;
    if (is_gpt || is_master_row || row.PartitionNumber != 0) list.push_back(Listed(row));
  }
  return list;
}

}  // namespace simulator::storage_testing
