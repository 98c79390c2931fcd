// The buffer in which a drive layout crosses to the platform and back.
//
// Public source: Microsoft's documentation of DRIVE_LAYOUT_INFORMATION_EX.
#pragma once

#include <cstddef>
#include <vector>

#include "platform/win32_types.h"

namespace velkora {

// The header and a fixed number of rows, of which header().PartitionCount are in use.
class LayoutBuffer {
 public:
  // All bytes zero, with room for `rows` rows.
  explicit LayoutBuffer(std::size_t rows);

  DRIVE_LAYOUT_INFORMATION_EX& header();
  const DRIVE_LAYOUT_INFORMATION_EX& header() const;
  std::size_t row_count() const { return rows_; }
  // Raises an access violation for a row behind the buffer.
  void SetRow(std::size_t index, const PARTITION_INFORMATION_EX& row);
  // As SetRow.
  PARTITION_INFORMATION_EX row(std::size_t index) const;

  void* data() { return bytes_.data(); }
  // Bytes of the header and the rows.
  DWORD size() const;

 private:
  std::size_t rows_;
  std::vector<std::byte> bytes_;  // allocated memory is aligned for the structures
};

}  // namespace velkora
