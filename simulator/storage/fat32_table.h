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
  // Changes the entries of neighbouring clusters, in memory only. Precondition: they were read.
  void Set(std::uint32_t first, std::span<const std::uint32_t> values);
  // Writes the entries of neighbouring clusters as they are in memory. After a failure everything
  // is read anew. Precondition: they were read.
  [[nodiscard]] DWORD Save(std::uint32_t first, std::uint32_t count);

  // One bit for each data cluster, set where it is in use: bit 0 of byte 0 is cluster 2. The first
  // call reads the whole table. Good until the next call of another function.
  [[nodiscard]] DWORD Usage(std::span<const std::uint8_t>& bits);

 private:
  using Page = std::vector<Little32>;

  void Forget();
  DWORD FindPage(std::uint64_t index, Page*& page);
  DWORD LoadPage(std::uint64_t index, std::span<Little32> entries);
  bool WriteToCopies(std::uint64_t first_entry, std::span<const Little32> entries);
  DWORD ReadUsage();
  void NoteUsage(std::uint64_t entry, bool in_use);

  BlockDevice& device_;
  Fat32TablePlace place_;
  std::vector<Page> pages_;          // empty until somebody asks
  std::vector<std::uint8_t> usage_;  // empty until somebody asks
};

}  // namespace simulator
