#include "disk/drive_layout.h"

#include <cstring>

#include "platform/guard.h"

namespace velkora {
namespace {

constexpr std::size_t kHeaderBytes = offsetof(DRIVE_LAYOUT_INFORMATION_EX, PartitionEntry);
constexpr std::size_t kRowBytes = sizeof(PARTITION_INFORMATION_EX);
constexpr std::size_t kWordBytes = sizeof(std::uint64_t);
static_assert(kHeaderBytes % kWordBytes == 0 && kRowBytes % kWordBytes == 0);

// The structure declares one row, so that even a buffer without rows must have room for it.
std::size_t WordCount(std::size_t rows) {
  return (kHeaderBytes + kRowBytes * (rows == 0 ? 1 : rows)) / kWordBytes;
}

}  // namespace

LayoutBuffer::LayoutBuffer(std::size_t rows) : rows_(rows), words_(WordCount(rows)) {}

DRIVE_LAYOUT_INFORMATION_EX& LayoutBuffer::header() {
  return *reinterpret_cast<DRIVE_LAYOUT_INFORMATION_EX*>(words_.data());
}

const DRIVE_LAYOUT_INFORMATION_EX& LayoutBuffer::header() const {
  return *reinterpret_cast<const DRIVE_LAYOUT_INFORMATION_EX*>(words_.data());
}

void LayoutBuffer::SetRow(std::size_t index, const PARTITION_INFORMATION_EX& row) {
  if (index >= rows_) win32::RaiseFault(EXCEPTION_ACCESS_VIOLATION);
  std::memcpy(words_.data() + (kHeaderBytes + kRowBytes * index) / kWordBytes, &row, kRowBytes);
}

PARTITION_INFORMATION_EX LayoutBuffer::row(std::size_t index) const {
  if (index >= rows_) win32::RaiseFault(EXCEPTION_ACCESS_VIOLATION);
  PARTITION_INFORMATION_EX row;
  std::memcpy(&row, words_.data() + (kHeaderBytes + kRowBytes * index) / kWordBytes, kRowBytes);
  return row;
}

DWORD LayoutBuffer::size() const {
  return static_cast<DWORD>(kHeaderBytes + kRowBytes * rows_);
}

}  // namespace velkora
