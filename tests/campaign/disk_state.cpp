#include "campaign/disk_state.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <stdexcept>

namespace campaign {
namespace {

constexpr std::uint64_t kMib = std::uint64_t{1} << 20;

void Require(bool done) {
  if (!done) throw std::runtime_error("a state of the disk cannot be made or read");
}

// Ranges that cover those of both lists, joined where they touch.
ByteRanges Joined(ByteRanges ranges, const ByteRanges& others) {
  ranges.insert(ranges.end(), others.begin(), others.end());
  std::sort(ranges.begin(), ranges.end(),
            [](const ByteRange& a, const ByteRange& b) { return a.offset < b.offset; });
  ByteRanges joined;
  for (const ByteRange& range : ranges) {
    if (!joined.empty() && joined.back().offset + joined.back().length >= range.offset) {
      joined.back().length = range.offset + range.length - joined.back().offset;
    } else {
      joined.push_back(range);
    }
  }
  return joined;
}

void AddByte(std::uint64_t offset, ByteRanges& ranges) {
  if (!ranges.empty() && ranges.back().offset + ranges.back().length == offset) {
    ++ranges.back().length;
  } else {
    ranges.push_back({offset, 1});
  }
}

void AddDifferences(simulator::BlockDevice& left, simulator::BlockDevice& right, ByteRange range,
                    ByteRanges& ranges) {
  constexpr std::size_t kPiece = 512;
  range.length = std::min(range.length, left.size() - range.offset);
  const Bytes in_left = ReadBytes(left, range.offset, range.length);
  const Bytes in_right = ReadBytes(right, range.offset, range.length);
  for (std::size_t at = 0; at < in_left.size(); at += kPiece) {
    if (std::memcmp(&in_left[at], &in_right[at], kPiece) == 0) continue;
    for (std::size_t i = at; i < at + kPiece; ++i) {
      if (in_left[i] != in_right[i]) AddByte(range.offset + i, ranges);
    }
  }
}

// The record that keeps other systems from taking a GPT disk for an empty one.
std::array<std::byte, 512> ProtectiveRecord() {
  std::array<std::byte, 512> record{};
  constexpr std::array<unsigned char, 16> kEntry = {0x00, 0x00, 0x02, 0x00, 0xEE, 0xFF, 0xFF, 0xFF,
                                                    0x01, 0x00, 0x00, 0x00, 0xFF, 0xFF, 0xFF, 0xFF};
  std::memcpy(record.data() + 446, kEntry.data(), kEntry.size());
  record[510] = std::byte{0x55};
  record[511] = std::byte{0xAA};
  return record;
}

}  // namespace

ByteRanges Differences(const BaseDisk& disk, ImageOverlay& left, ImageOverlay& right) {
  simulator::BlockDevice left_disk(disk.image(), 512, left);
  simulator::BlockDevice right_disk(disk.image(), 512, right);
  ByteRanges ranges;
  for (const ByteRange& range : Joined(left.Pages(), right.Pages())) {
    AddDifferences(left_disk, right_disk, range, ranges);
  }
  return ranges;
}

ByteRanges Changes(const BaseDisk& disk, const ImageOverlay& state) {
  simulator::BlockDevice image(disk.image(), 512, simulator::Access::kReadOnly);
  return state.Changes(image);
}

ByteRanges Outside(ByteRanges ranges, const ByteRanges& others) {
  for (const ByteRange& other : others) {
    ByteRanges rest;
    const std::uint64_t other_end = other.offset + other.length;
    for (const ByteRange& range : ranges) {
      const std::uint64_t end = range.offset + range.length;
      const std::uint64_t before = std::min(end, other.offset);
      const std::uint64_t behind = std::max(range.offset, other_end);
      if (before > range.offset) rest.push_back({range.offset, before - range.offset});
      if (end > behind) rest.push_back({behind, end - behind});
    }
    ranges = std::move(rest);
  }
  return ranges;
}

ByteRanges BlockRanges(const BaseDisk& disk) {
  ByteRanges ranges;
  for (const auto& [offset, bytes] : disk.blocks()) ranges.push_back({offset, bytes.size()});
  return ranges;
}

ByteRanges DiskEnds(const BaseDisk& disk) {
  return {{0, kMib}, {disk.size() - kMib, kMib}};
}

ImageOverlay RolledBack(const BaseDisk& disk) {
  ImageOverlay state;
  simulator::BlockDevice device(disk.image(), 512, state);
  for (const ByteRange& end : DiskEnds(disk)) Require(device.Zero(end.offset, end.length));
  if (disk.scenario().direction == Direction::kGptToMbr) {
    Require(device.Write(0, ProtectiveRecord()));
  }
  for (const auto& [offset, bytes] : disk.blocks()) Require(device.Write(offset, bytes));
  return state;
}

}  // namespace campaign
