// The file allocation table of a FAT32 volume, kept in memory page by page as it is asked for.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "platform/win32_types.h"
#include "simulator/storage/block_device.h"
#include "simulator/storage/on_disk.h"

namespace simulator {

// Where the copies of the table lie. Bytes from the start of the disk.
struct Fat32TablePlace {
  std::uint64_t offset = 0;
  std::uint64_t copy_length = 0;
  std::uint32_t copies = 0;
  std::uint32_t cluster_count = 0;  // data clusters, numbered from 2
};

// All copies are kept alike; the first is the one that is read. The upper four bits of an entry are
// not part of its value and stay as they are. Functions return a Windows error: ERROR_READ_FAULT or
// ERROR_WRITE_FAULT. Preconditions: clusters are within the table.
class Fat32Table {
 public:
  explicit Fat32Table(BlockDevice& device) : device_(device) {}

  // Takes the table from another place and forgets what it knows.
  void Reset(const Fat32TablePlace& place);

  [[nodiscard]] DWORD Read(std::uint32_t cluster, std::uint32_t& value);
  // Writes the entries of neighbouring clusters.
  [[nodiscard]] DWORD Write(std::uint32_t first, std::span<const std::uint32_t> values);

  // One bit for each data cluster, set where it is in use: bit 0 of byte 0 is cluster 2. The first
  // call reads the whole table. Good until the next call of another function.
  [[nodiscard]] DWORD Usage(std::span<const std::uint8_t>& bits);

 private:
  using Page = std::vector<Little32>;

  DWORD FindPage(std::uint64_t index, Page*& page);
  DWORD LoadPage(std::uint64_t index, std::span<Little32> entries);
  DWORD WritePart(Page& page, std::uint64_t first_entry, std::span<const std::uint32_t> values);
  DWORD ReadUsage();
  void NoteUsage(std::uint64_t entry, bool in_use);

  BlockDevice& device_;
  Fat32TablePlace place_;
  std::vector<Page> pages_;          // empty until somebody asks
  std::vector<std::uint8_t> usage_;  // empty until somebody asks
};

}  // namespace simulator
