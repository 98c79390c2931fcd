// A partition table as sfdisk lists it.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace testing_support {

// An extended partition is listed, the links of its chain are not.
struct SfdiskRow {
  unsigned number = 0;      // from 5 on for logical partitions
  std::uint64_t start = 0;  // sectors
  std::uint64_t count = 0;  // sectors
  std::string type;         // hexadecimal without leading zeros, or a GUID in capitals
  bool active = false;
  std::string name;
  std::string id;          // of an MBR partition sfdisk makes it up
  std::string attributes;  // "GUID:62,63", "" for none
};

struct SfdiskTable {
  std::string label;  // "dos" or "gpt"
  std::string id;     // "0x1a2b3c4d", or a GUID in capitals
  std::vector<SfdiskRow> rows;
};

// Throws when sfdisk fails or does not answer with a table.
SfdiskTable ReadSfdiskTable(const std::filesystem::path& image);

}  // namespace testing_support
