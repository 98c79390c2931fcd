#include "apps/velkora_image/disk_picture.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <vector>

namespace velkora_image {
namespace {

constexpr std::uint64_t kKiB = 1024;
constexpr std::uint64_t kMiB = 1024 * kKiB;
constexpr std::uint64_t kGiB = 1024 * kMiB;
constexpr std::size_t kBarColumns = 70;

struct Segment {
  const PartitionView* partition = nullptr;  // null: free space
  double share = 0;                          // of the columns
  std::size_t least = 1;
  std::size_t width = 1;
};

std::vector<Segment> MakeSegments(const DiskView& view) {
  std::vector<Segment> segments;
  std::uint64_t end = 0;
  const auto add_gap = [&](std::uint64_t start) {
    if (start < end || start - end < kMiB) return;
    segments.push_back({nullptr, static_cast<double>(start - end)});
  };
  for (const PartitionView& partition : view.partitions) {
    add_gap(partition.start);
    const std::size_t least = std::to_string(partition.number).size();
    segments.push_back({&partition, static_cast<double>(partition.length), least});
    end = std::max(end, partition.start + partition.length);
  }
  add_gap(view.size);
  return segments;
}

// Starts from the rounded share of each and settles the difference column by column.
void SetWidths(std::vector<Segment>& segments, std::size_t columns) {
  double total = 1;  // never nothing, for the sake of partitions without a length
  for (const Segment& segment : segments) total += segment.share;
  std::size_t used = 0;
  for (Segment& segment : segments) {
    segment.share *= static_cast<double>(columns) / total;
    segment.width = std::max(segment.least, static_cast<std::size_t>(segment.share));
    used += segment.width;
  }
  const auto excess = [](const Segment& segment) {
    return static_cast<double>(segment.width) - segment.share;
  };
  const auto less = [&](const Segment& a, const Segment& b) { return excess(a) < excess(b); };
  for (; used < columns; ++used) ++std::min_element(segments.begin(), segments.end(), less)->width;
  for (; used > columns; --used) {
    Segment* widest = nullptr;
    for (Segment& segment : segments) {
      if (segment.width == segment.least) continue;
      if (widest == nullptr || segment.width > widest->width) widest = &segment;
    }
    if (widest == nullptr) return;  // too many partitions for the usual width
    --widest->width;
  }
}

std::string Label(const PartitionView& partition, std::size_t width) {
  const std::string number = std::to_string(partition.number);
  const std::string drive = partition.letter.empty() ? "" : " " + partition.letter + ":";
  const std::string what = partition.file_system.empty() ? partition.kind : partition.file_system;
  for (const std::string& label : {number + drive + " " + what, number + drive, number}) {
    if (label.size() > width) continue;
    const std::size_t before = (width - label.size()) / 2;
    return std::string(before, ' ') + label + std::string(width - label.size() - before, ' ');
  }
  return number;
}

using Cells = std::array<std::string, 7>;

std::string TableRow(const Cells& cells) {
  constexpr std::array<int, 7> kWidths = {3, 12, 12, -9, -22, -13, -6};  // negative: to the left
  std::string row;
  for (std::size_t i = 0; i < cells.size(); ++i) {
    if (i == 3) row += "   ";  // between figures and words
    const std::size_t width = static_cast<std::size_t>(std::abs(kWidths[i]));
    const std::string pad(width - std::min(width, cells[i].size()), ' ');
    row += kWidths[i] > 0 ? pad + cells[i] : cells[i] + pad;
  }
  row.erase(row.find_last_not_of(' ') + 1);
  return row + "\n";
}

std::string PlaceOf(const PartitionView& partition, const DiskView& view) {
  if (view.style != "mbr") return "-";
  return partition.logical ? "logical" : "primary";
}

std::string OrDash(const std::string& text) {
  return text.empty() ? "-" : text;
}

std::string Table(const DiskView& view) {
  std::string text = TableRow({"#", "start", "size", "place", "type", "file system", "letter"});
  for (const PartitionView& partition : view.partitions) {
    text += TableRow({std::to_string(partition.number), SizeText(partition.start),
                      SizeText(partition.length), PlaceOf(partition, view),
                      partition.kind.substr(0, 20), OrDash(partition.file_system),
                      partition.letter.empty() ? "-" : partition.letter + ":"});
  }
  return text;
}

std::string CountText(std::size_t count) {
  return std::to_string(count) + (count == 1 ? " partition" : " partitions");
}

}  // namespace

std::string SizeText(std::uint64_t bytes) {
  if (bytes < kKiB) return std::to_string(bytes) + " bytes";
  const bool gib = bytes >= kGiB;
  const bool mib = bytes >= kMiB;
  const std::uint64_t unit = gib ? kGiB : (mib ? kMiB : kKiB);
  char text[40];
  std::snprintf(text, sizeof text, bytes % unit == 0 ? "%.0f %s" : "%.2f %s",
                static_cast<double>(bytes) / static_cast<double>(unit),
                gib ? "GiB" : (mib ? "MiB" : "KiB"));
  return text;
}

std::string DrawBar(const DiskView& view) {
  std::vector<Segment> segments = MakeSegments(view);
  if (segments.empty()) return "[" + std::string(kBarColumns - 2, '.') + "]";
  const std::size_t frame = segments.size() + 1;
  SetWidths(segments, kBarColumns - std::min(frame, kBarColumns));
  std::string bar = "[";
  for (const Segment& segment : segments) {
    if (bar.size() > 1) bar += '|';
    bar += segment.partition != nullptr ? Label(*segment.partition, segment.width)
                                        : std::string(segment.width, '.');
  }
  return bar + "]";
}

std::string DrawDisk(const std::string& title, const DiskView& view) {
  std::string text = title + ": " + StyleName(view) + ", " + SizeText(view.size);
  if (view.style == "raw") return text + ", no partition table\n" + DrawBar(view) + "\n";
  text += ", " + CountText(view.partitions.size()) + "\n" + DrawBar(view) + "\n";
  return view.partitions.empty() ? text : text + Table(view);
}

}  // namespace velkora_image
