#include "simulator/storage/fat32_table.h"

#include <algorithm>

namespace simulator {
namespace {

constexpr std::uint32_t kPageEntries = 16384;
constexpr std::uint32_t kFirstCluster = 2;
constexpr std::uint32_t kValueBits = 0x0FFFFFFF;

std::uint32_t ValueOf(Little32 entry) {
  return entry & kValueBits;
}

}  // namespace

void Fat32Table::Reset(const Fat32TablePlace& place) {
  place_ = place;
  Forget();
}

void Fat32Table::Forget() {
  const std::uint64_t end = std::uint64_t{place_.cluster_count} + kFirstCluster;
  pages_.clear();
  pages_.resize(static_cast<std::size_t>((end + kPageEntries - 1) / kPageEntries));
  usage_.clear();
}

DWORD Fat32Table::Read(std::uint32_t cluster, std::uint32_t& value) {
  Page* page = nullptr;
  const DWORD error = FindPage(cluster / kPageEntries, page);
  if (error == ERROR_SUCCESS) value = ValueOf((*page)[cluster % kPageEntries]);
  return error;
}

void Fat32Table::Set(std::uint32_t first, std::span<const std::uint32_t> values) {
  for (const std::uint32_t value : values) {
    Little32& entry = pages_[first / kPageEntries][first % kPageEntries];
    entry = (entry & ~kValueBits) | (value & kValueBits);
    NoteUsage(first++, value != 0);
  }
}

DWORD Fat32Table::Save(std::uint32_t first, std::uint32_t count) {
  while (count > 0) {
    const std::uint32_t at = first % kPageEntries;
    const auto length = std::min<std::uint32_t>(kPageEntries - at, count);
    if (!WriteToCopies(first, std::span(pages_[first / kPageEntries]).subspan(at, length))) {
      Forget();
      return ERROR_WRITE_FAULT;
    }
    first += length;
    count -= length;
  }
  return ERROR_SUCCESS;
}

DWORD Fat32Table::Usage(std::span<const std::uint8_t>& bits) {
  const DWORD error = usage_.empty() ? ReadUsage() : ERROR_SUCCESS;
  bits = usage_;
  return error;
}

DWORD Fat32Table::FindPage(std::uint64_t index, Page*& page) {
  page = &pages_[index];
  if (!page->empty()) return ERROR_SUCCESS;
  const std::uint64_t end = std::uint64_t{place_.cluster_count} + kFirstCluster;
  page->resize(
      static_cast<std::size_t>(std::min<std::uint64_t>(kPageEntries, end - index * kPageEntries)));
  const DWORD error = LoadPage(index, *page);
  if (error != ERROR_SUCCESS) page->clear();
  return error;
}

DWORD Fat32Table::LoadPage(std::uint64_t index, std::span<Little32> entries) {
  const std::uint64_t offset = place_.offset + index * kPageEntries * sizeof(Little32);
  return device_.Read(offset, std::as_writable_bytes(entries)) ? ERROR_SUCCESS : ERROR_READ_FAULT;
}

bool Fat32Table::WriteToCopies(std::uint64_t first_entry, std::span<const Little32> entries) {
  std::uint64_t offset = place_.offset + first_entry * sizeof(Little32);
  for (std::uint32_t copy = 0; copy < place_.copies; ++copy, offset += place_.copy_length) {
    if (!device_.Write(offset, std::as_bytes(entries))) return false;
  }
  return true;
}

DWORD Fat32Table::ReadUsage() {
  const std::uint64_t end = std::uint64_t{place_.cluster_count} + kFirstCluster;
  std::vector<std::uint8_t> usage(place_.cluster_count / 8 + (place_.cluster_count % 8 != 0));
  usage_.swap(usage);
  Page entries(kPageEntries);
  const Page nothing(kPageEntries);
  for (std::uint64_t first = 0; first < end; first += kPageEntries) {
    auto part = std::span(entries).first(std::min<std::uint64_t>(kPageEntries, end - first));
    Page& known = pages_[first / kPageEntries];
    const DWORD error = known.empty() ? LoadPage(first / kPageEntries, part) : ERROR_SUCCESS;
    if (error != ERROR_SUCCESS) {
      usage_.clear();
      return error;
    }
    if (!known.empty()) part = known;
    // Most of a large volume is free.
    if (std::memcmp(part.data(), nothing.data(), part.size_bytes()) == 0) continue;
    for (std::size_t i = 0; i < part.size(); ++i) {
      if (ValueOf(part[i]) != 0) NoteUsage(first + i, true);
    }
  }
  return ERROR_SUCCESS;
}

void Fat32Table::NoteUsage(std::uint64_t entry, bool in_use) {
  if (usage_.empty() || entry < kFirstCluster) return;
  const std::uint64_t bit = entry - kFirstCluster;
  const auto mask = static_cast<std::uint8_t>(1u << (bit % 8));
  std::uint8_t& byte = usage_[bit / 8];
  byte = static_cast<std::uint8_t>(in_use ? byte | mask : byte & ~mask);
}

}  // namespace simulator
