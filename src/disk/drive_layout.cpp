#include "disk/drive_layout.h"

#include <cstring>

#include "platform/guard.h"

namespace velkora {
namespace {

constexpr std::size_t kHeaderBytes = offsetof(DRIVE_LAYOUT_INFORMATION_EX, PartitionEntry);
constexpr std::size_t kRowBytes = sizeof(PARTITION_INFORMATION_EX);

}  // namespace

// The structure declares one row, so that even a buffer without rows has room for it.
LayoutBuffer::LayoutBuffer(std::size_t rows)
    : rows_(rows), bytes_(kHeaderBytes + kRowBytes * (rows == 0 ? 1 : rows)) {}

DRIVE_LAYOUT_INFORMATION_EX& LayoutBuffer::header() {
  return *reinterpret_cast<DRIVE_LAYOUT_INFORMATION_EX*>(bytes_.data());
}

const DRIVE_LAYOUT_INFORMATION_EX& LayoutBuffer::header() const {
  return *reinterpret_cast<const DRIVE_LAYOUT_INFORMATION_EX*>(bytes_.data());
}

void LayoutBuffer::SetRow(std::size_t index, const PARTITION_INFORMATION_EX& row) {
  if (index >= rows_) win32::RaiseFault(EXCEPTION_ACCESS_VIOLATION);
  std::memcpy(bytes_.data() + kHeaderBytes + kRowBytes * index, &row, kRowBytes);
}

PARTITION_INFORMATION_EX LayoutBuffer::row(std::size_t index) const {
  if (index >= rows_) win32::RaiseFault(EXCEPTION_ACCESS_VIOLATION);
  PARTITION_INFORMATION_EX row;
  std::memcpy(&row, bytes_.data() + kHeaderBytes + kRowBytes * index, kRowBytes);
  return row;
}

DWORD LayoutBuffer::size() const {
  return static_cast<DWORD>(kHeaderBytes + kRowBytes * rows_);
}

}  // namespace velkora
