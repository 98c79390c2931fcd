#include "conversion/mbr_disk.h"

#include <algorithm>
#include <string>

#include "conversion/tools.h"

namespace conversion {
namespace {

std::string ScriptLine(const Partition& partition) {
  return "start=" + std::to_string(partition.first) +
         ", size=" + std::to_string(partition.count()) + ", type=" + partition.type + "\n";
}

}  // namespace

Partitions MbrTable::Rows() const {
  Partitions rows = logicals;
  for (const Partition& primary : primaries) {
    if (primary.type != kMbrContainer) rows.push_back(primary);
  }
  std::sort(rows.begin(), rows.end(),
            [](const Partition& a, const Partition& b) { return a.first < b.first; });
  return rows;
}

Partitions EvenPrimaries(std::size_t count, std::uint64_t mib) {
  Partitions partitions = EvenPartitions(count, mib, 1);
  for (Partition& partition : partitions) partition.type = kMbrNtfs;
  return partitions;
}

MbrTable EvenLogicals(std::size_t count, std::uint64_t mib) {
  const Partitions rows = EvenPrimaries(count + 1, mib);
  MbrTable table = {{rows.front()}, {rows.begin() + 1, rows.end()}};
  table.primaries.push_back({rows.front().last + 1, rows.back().last, kMbrContainer});
  return table;
}

void MakeMbrDisk(const std::filesystem::path& image, std::uint64_t size, const MbrTable& table) {
  CreateImage(image, size);
  {
    // Before the table is made, whose boot records lie between the partitions.
    const ImageFile file(image);
    Partitions all = table.primaries;
    all.insert(all.end(), table.logicals.begin(), table.logicals.end());
    MarkDisk(file, all, {1, file.sector_count() - 1});
  }
  std::string script = "label: dos\nlabel-id: " + std::to_string(kOldSignature) + "\n";
  for (const Partition& partition : table.primaries) script += ScriptLine(partition);
  for (const Partition& partition : table.logicals) script += ScriptLine(partition);
  Tool({"sfdisk", "--quiet", "--wipe", "never", "--no-reread", "--no-tell-kernel", image}, script);
}

}  // namespace conversion
