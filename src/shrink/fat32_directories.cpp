#include "shrink/fat32_directories.h"

#include <array>
#include <cstddef>
#include <limits>
#include <new>
#include <span>

#include "disk/raw_transfer.h"
#include "platform/guard.h"
#include "platform/win32.h"
#include "shrink/checked_bytes.h"
#include "shrink/run_length_tree.h"

namespace velkora {
namespace {

using Sector = std::array<std::byte, 512>;

constexpr std::size_t kParentClusterLimit = 128;
constexpr std::uint32_t kRootCluster = 2;
constexpr std::size_t kFirstSubdirectoryOffset = 2 * kEntryBytes;  // behind "." and ".."

LARGE_INTEGER At(std::uint64_t position) {
  LARGE_INTEGER value{};
  value.QuadPart = static_cast<LONGLONG>(position);
  return value;
}

// All positions are whole sectors, so the lower half of a good one is never the failure value.
bool SeekTo(HANDLE volume, std::uint64_t position) {
  LARGE_INTEGER distance = At(position);
  return win32::SetFilePointer(volume, static_cast<LONG>(distance.u.LowPart), &distance.u.HighPart,
                               FILE_BEGIN) != INVALID_SET_FILE_POINTER;
}

// One attempt; how much has been moved is not looked at.
bool ReadOnce(HANDLE volume, std::uint64_t position, void* buffer, std::size_t length) {
  DWORD done = 0;
  return SeekTo(volume, position) &&
         win32::ReadFile(volume, buffer, static_cast<DWORD>(length), &done, nullptr);
}

bool WriteOnce(HANDLE volume, std::uint64_t position, std::span<const std::byte> bytes) {
  DWORD done = 0;
  return SeekTo(volume, position) &&
         win32::WriteFile(volume, bytes.data(), static_cast<DWORD>(bytes.size()), &done, nullptr);
}

// Three attempts.
bool Read(HANDLE volume, std::uint64_t position, std::span<std::byte> bytes) {
  LARGE_INTEGER at = At(position);
  return ReadData(&volume, &at, bytes.data(), static_cast<std::uint32_t>(bytes.size()), nullptr);
}

bool Write(HANDLE volume, std::uint64_t position, std::span<const std::byte> bytes) {
  LARGE_INTEGER at = At(position);
  return WriteData(&volume, &at, bytes.data(), static_cast<std::uint32_t>(bytes.size()), nullptr);
}

// Zero bytes for a whole fragment. One that cannot be read in one piece fails like one for which
// there is no memory.
std::vector<std::byte> FragmentBuffer(std::uint32_t count, std::uint32_t cluster_bytes) {
  const std::uint64_t size = std::uint64_t{count} * cluster_bytes;
  if (size > std::numeric_limits<DWORD>::max()) throw std::bad_alloc();
  return std::vector<std::byte>(size);
}

// Lets ".." of each subdirectory that the fragment lists name the fragment's new place. Deleted
// entries are not told apart: one with the mark of a directory is followed like a live one.
bool UpdateSubdirectories(HANDLE volume, const Fat32Geometry& geometry,
                          std::span<const std::byte> fragment, std::uint64_t new_first) {
  for (std::size_t offset = kFirstSubdirectoryOffset; offset < fragment.size();
       offset += kEntryBytes) {
    const auto entry = LoadAt<Fat32DirectoryEntry>(fragment, offset);
    if (entry.name == decltype(entry.name){}) return true;
    if ((entry.attributes & kAttributeDirectory) == 0) continue;
    const std::uint64_t position = geometry.PositionOf(FirstCluster(entry));
    Sector sector{};
    if (!Read(volume, position, sector)) return false;
    SetFirstCluster(sector, kParentEntryOffset, new_first);
    if (!Write(volume, position, sector)) return false;
  }
  return true;
}

// Writes the first fragment of a directory to its new place and repairs the three places that name
// the directory's first cluster: its own ".", the ".." of its subdirectories, its parent's entry.
bool MoveFirstFragment(HANDLE volume, const Fat32Geometry& geometry, const FatTable& fat,
                       std::span<std::byte> fragment, std::uint64_t old_first,
                       std::uint64_t new_first) {
  SetFirstCluster(fragment, kOwnEntryOffset, new_first);
  if (!WriteOnce(volume, geometry.PositionOf(new_first), fragment)) return false;
  if (!UpdateSubdirectories(volume, geometry, fragment, new_first)) return false;
  // 0 stands for the root directory, which is taken to begin at cluster 2 whatever the boot sector
  // says.
  std::uint32_t parent = FirstCluster(LoadAt<Fat32DirectoryEntry>(fragment, kParentEntryOffset));
  if (parent == 0) parent = kRootCluster;
  return UpdateParentEntry(volume, parent, fat, geometry, old_first, new_first);
}

// Moves the chain of the fragment, in memory. `previous` and `next` are what they were when the
// fragments were listed: a neighbour that has moved since is not looked for.
void MoveChain(FatTable& fat, const DirectoryDebris& row, std::uint64_t new_first) {
  fat.Free(row.first, row.count);
  fat.Chain(new_first, row.count, row.next);
  if (row.start_vcn != 0) fat.SetEntry(row.previous, new_first);
}

// Stores `new_first` in each entry of the cluster at `cursor` that names `old_first`; writes the
// start of `buffer` to `position` for each of them.
bool UpdateEntries(HANDLE volume, std::span<std::byte> buffer, std::size_t cursor,
                   std::uint32_t cluster_bytes, std::uint64_t position, std::uint64_t old_first,
                   std::uint64_t new_first) {
  for (std::uint32_t offset = 0; offset < cluster_bytes; offset += kEntryBytes) {
    const auto entry = LoadAt<Fat32DirectoryEntry>(buffer, cursor + offset);
    if (entry.attributes == kAttributesLongName || FirstCluster(entry) != old_first) continue;
    SetFirstCluster(buffer, cursor + offset, new_first);
    if (!Write(volume, position, buffer.first(cluster_bytes))) return false;
  }
  // The offset has 16 bits: it never comes to the end of a cluster of 64 KiB, and the scan runs on
  // behind the buffer.
  if (cluster_bytes > std::numeric_limits<std::uint16_t>::max()) {
    win32::RaiseFault(EXCEPTION_ACCESS_VIOLATION);
  }
  return true;
}

}  // namespace

bool MoveDirectoryDebris(HANDLE volume, std::vector<ClusterRun>& runs,
                         const std::vector<DirectoryDebris>& debris, std::uint64_t boundary) {
  Sector sector{};
  if (!ReadOnce(volume, 0, sector.data(), sector.size())) return false;
  const Fat32Geometry geometry(LoadAt<Fat32BootSector>(sector, 0));
  FatTable fat(geometry.fat_bytes);
  if (!ReadOnce(volume, geometry.first_fat, fat.data(), fat.size())) return false;

  RunLengthTree lengths(runs);
  for (const DirectoryDebris& row : debris) {
    // A fragment that begins at or below the boundary stays, even if it runs past it.
    if (row.first <= boundary) continue;
    std::vector<std::byte> fragment = FragmentBuffer(row.count, geometry.cluster_bytes);
    if (!ReadOnce(volume, geometry.PositionOf(row.first), fragment.data(), fragment.size())) {
      return false;
    }
    // Longer than the fragment: a run of its very length does not do. The overlong last run of the
    // list may be chosen, behind the boundary as it lies.
    const std::size_t index = lengths.FirstLongerThan(row.count);
    if (index == runs.size()) continue;
    ClusterRun& run = runs[index];
    // The data of a later fragment has been read and is written nowhere: its chain moves to
    // clusters that do not hold it.
    if (row.start_vcn == 0 &&
        !MoveFirstFragment(volume, geometry, fat, fragment, row.first, run.first)) {
      return false;
    }
    MoveChain(fat, row, run.first);
    run.first += row.count;
    run.length -= row.count;
    lengths.SetLength(index, run.length);
  }

  const std::span<const std::byte> bytes(fat.data(), fat.size());
  return Write(volume, geometry.first_fat, bytes) && Write(volume, geometry.second_fat, bytes);
}

bool UpdateParentEntry(HANDLE volume, std::uint32_t parent_cluster, const FatTable& fat,
                       const Fat32Geometry& geometry, std::uint64_t old_first,
                       std::uint64_t new_first) {
  const std::uint32_t cluster_bytes = geometry.cluster_bytes;
  // A longer directory is cut: entries behind its 128th cluster keep the old number.
  const std::vector<std::uint32_t> clusters = fat.Follow(parent_cluster, kParentClusterLimit);
  // The cursor is not rewound between clusters, while every write begins at the start of the
  // buffer: the buffer is as long as all clusters, each is read and scanned behind the one before,
  // and what a match in a later one writes there is the first one.
  std::vector<std::byte> buffer(clusters.size() * cluster_bytes);
  std::size_t cursor = 0;
  for (const std::uint32_t cluster : clusters) {
    const std::uint64_t position = geometry.PositionOf(cluster);
    if (!Read(volume, position, std::span(buffer).subspan(cursor, cluster_bytes))) return false;
    if (!UpdateEntries(volume, buffer, cursor, cluster_bytes, position, old_first, new_first)) {
      return false;
    }
    cursor += cluster_bytes;
  }
  return true;
}

}  // namespace velkora
