#include "shrink/fat32_files.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "disk/device_handle.h"
#include "disk/disk_control.h"
#include "logging/log.h"
#include "platform/win32.h"
#include "shrink/checked_bytes.h"
#include "shrink/narrow_path.h"

namespace velkora {
namespace {

constexpr std::string_view kSkippedDirectory = "System Volume Information";
constexpr std::size_t kExtentsOffset = offsetof(RETRIEVAL_POINTERS_BUFFER, Extents);
constexpr std::size_t kExtentBytes = sizeof(RETRIEVAL_POINTERS_BUFFER) - kExtentsOffset;
// A run of one cluster is never used.
constexpr std::uint64_t kShortestRun = 2;

using RetrievalBuffer = std::array<std::byte, kRetrievalBytes>;

static_assert((kRetrievalBytes - kExtentsOffset) / kExtentBytes == 51);

enum class Clearing { kDone, kSkipped, kFailed };

Clearing ClearAttributes(const WideString& path) {
  if (win32::SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL)) return Clearing::kDone;
  const DWORD error = win32::GetLastError();
  if (error == ERROR_FILE_NOT_FOUND || error == ERROR_FILE_CORRUPT) return Clearing::kSkipped;
  LogEx(kLogModule, kLogError, "Set File Attributes Error! error_code: %d",
        static_cast<int>(error));
  return Clearing::kFailed;
}

DirectoryListing ListingOf(const std::string& directory_path) {
  return DirectoryListing(WidePath(directory_path + '\\'));
}

// Takes one entry into its list; a directory goes on top of `open`, to be listed next.
bool TakeEntry(DirectoryEntry entry, std::vector<DirectoryEntry>& files,
               std::vector<DirectoryEntry>& directories, std::vector<DirectoryListing>& open) {
  std::string directory_path;
  if (entry.is_directory) {
    directory_path = NarrowPath(entry.path);
    if (directory_path.find(kSkippedDirectory) != std::string::npos) return true;
  }
  const Clearing clearing = ClearAttributes(entry.path);
  if (clearing != Clearing::kDone) return clearing == Clearing::kSkipped;
  const bool is_directory = entry.is_directory;
  (is_directory ? directories : files).push_back(std::move(entry));
  if (is_directory) open.push_back(ListingOf(directory_path));
  return true;
}

BOOL GetRetrievalPointers(HANDLE file, RetrievalBuffer& answer) {
  STARTING_VCN_INPUT_BUFFER start{};
  DWORD returned = 0;
  answer.fill(std::byte{0});
  return win32::DeviceIoControl(file, FSCTL_GET_RETRIEVAL_POINTERS, &start, sizeof start,
                                answer.data(), static_cast<DWORD>(answer.size()), &returned,
                                nullptr);
}

bool RequestMove(HANDLE volume, const FileMove& move) {
  MOVE_FILE_DATA request{};
  request.FileHandle = move.file;
  request.StartingVcn.QuadPart = static_cast<LONGLONG>(move.vcn);
  request.StartingLcn.QuadPart = static_cast<LONGLONG>(move.lcn);
  request.ClusterCount = static_cast<DWORD>(move.count);
  if (ControlDisk(volume, FSCTL_MOVE_FILE, &request, sizeof request)) return true;
  LogEx(kLogModule, kLogError, "Move File Failed! error_code: %d",
        static_cast<int>(win32::GetLastError()));
  return false;
}

// Cuts the run down to the boundary; whether it can be used then. A run that cannot be used never
// will be: runs only become shorter and their first cluster only rises.
bool CutToBoundary(ClusterRun& run, std::uint64_t boundary) {
  if (run.first >= boundary) return false;
  if (run.first - 1 + run.length > boundary) run.length = boundary - run.first + 1;
  return run.length >= kShortestRun;
}

using RunIterator = std::vector<ClusterRun>::iterator;
using Mover = std::function<bool(const FileMove&)>;

// Places one extent. What lies in front of `run` is used up.
bool PlaceExtent(HANDLE file, FileExtent& extent, std::uint64_t boundary, RunIterator& run,
                 RunIterator end, const Mover& move) {
  for (; run != end; ++run) {
    if (!CutToBoundary(*run, boundary)) continue;
    const bool fits = run->length > extent.count;
    const std::uint64_t count = fits ? extent.count : run->length;
    if (!move({file, extent.vcn, run->first - kFirstFatCluster, count})) return false;
    if (fits) {
      run->first += count;
      run->length -= count;
      return true;
    }
    run->length = 0;
    extent.vcn += count;
    extent.count -= count;
  }
  return true;
}

}  // namespace

std::vector<ClusterExtent> ReadExtents(std::span<const std::byte> answer) {
  const auto count = LoadAt<DWORD>(answer, offsetof(RETRIEVAL_POINTERS_BUFFER, ExtentCount));
  auto vcn = LoadAt<std::uint64_t>(answer, offsetof(RETRIEVAL_POINTERS_BUFFER, StartingVcn));
  CheckRange(answer.size(), kExtentsOffset, std::uint64_t{count} * kExtentBytes);
  std::vector<ClusterExtent> extents(count);
  std::size_t offset = kExtentsOffset;
  for (ClusterExtent& extent : extents) {
    extent.start_vcn = vcn;
    extent.next_vcn = LoadAt<std::uint64_t>(answer, offset);
    extent.lcn = LoadAt<std::uint64_t>(answer, offset + sizeof(LARGE_INTEGER));
    vcn = extent.next_vcn;
    offset += kExtentBytes;
  }
  return extents;
}

bool ReachesBehind(const std::vector<ClusterExtent>& extents, std::uint64_t boundary) {
  return std::any_of(extents.begin(), extents.end(), [boundary](const ClusterExtent& extent) {
    return extent.lcn + (extent.next_vcn - extent.start_vcn) > boundary;
  });
}

std::vector<FileExtent> ExtentsBehind(const std::vector<ClusterExtent>& extents,
                                      std::uint64_t boundary) {
  std::vector<FileExtent> behind;
  for (const ClusterExtent& extent : extents) {
    const std::uint64_t length = extent.next_vcn - extent.start_vcn;
    if (length - 1 + extent.lcn <= boundary) continue;
    if (extent.lcn < boundary) {
      behind.push_back(
          {extent.start_vcn + boundary - extent.lcn - 1, length + 1 + extent.lcn - boundary});
    } else {
      behind.push_back({extent.start_vcn, length});
    }
  }
  return behind;
}

void AppendDirectoryDebris(const std::vector<ClusterExtent>& extents,
                           std::vector<DirectoryDebris>& debris) {
  for (std::size_t i = 0; i < extents.size(); ++i) {
    const ClusterExtent& extent = extents[i];
    DirectoryDebris row;
    row.first = extent.lcn + kFirstFatCluster;
    row.start_vcn = static_cast<std::uint32_t>(extent.start_vcn);
    row.count = static_cast<std::uint32_t>(extent.next_vcn) - row.start_vcn;
    if (i > 0) row.previous = extents[i - 1].lcn + debris.back().count + kFirstFatCluster - 1;
    if (i + 1 < extents.size()) row.next = extents[i + 1].lcn + kFirstFatCluster;
    debris.push_back(row);
  }
}

// The walk keeps its own list of open directories, so that a volume whose directories lead in a
// circle ends it by the length of a path and not by the end of the stack.
bool EnumFilePath(const std::string& directory_path, std::vector<DirectoryEntry>& files,
                  std::vector<DirectoryEntry>& directories) {
  std::vector<DirectoryListing> open = {ListingOf(directory_path)};
  while (!open.empty()) {
    DirectoryEntry entry;
    if (!open.back().Next(entry)) {
      open.pop_back();
    } else if (!TakeEntry(std::move(entry), files, directories, open)) {
      for (; !open.empty(); open.pop_back()) open.back().Close();
      return false;
    }
  }
  return true;
}

bool GetFileDebris(const std::vector<DirectoryEntry>& files, std::uint64_t boundary,
                   std::vector<FileDebris>& debris) {
  RetrievalBuffer answer;
  for (const DirectoryEntry& file : files) {
    // Never closed: a move needs the file open, and nobody closes it afterwards. The handles of
    // files that are not moved stay open just the same.
    const HANDLE handle = GetDeviceHandleByIdW(file.path.c_str());
    if (handle == INVALID_HANDLE_VALUE) return false;
    if (!GetRetrievalPointers(handle, answer)) {
      if (win32::GetLastError() == ERROR_HANDLE_EOF) continue;  // a file without clusters
      return false;
    }
    const std::vector<ClusterExtent> extents = ReadExtents(answer);
    // The end that is tested here lies one behind the last LCN that is tested there, so a file
    // whose last LCN is the boundary gets a row without extents.
    if (ReachesBehind(extents, boundary)) {
      debris.push_back({handle, ExtentsBehind(extents, boundary)});
    }
  }
  return true;
}

bool PlaceFileDebris(std::vector<ClusterRun>& runs, std::vector<FileDebris>& debris,
                     std::uint64_t boundary, const Mover& move) {
  auto run = runs.begin();
  for (FileDebris& file : debris) {
    for (FileExtent& extent : file.extents) {
      if (!PlaceExtent(file.handle, extent, boundary, run, runs.end(), move)) return false;
    }
  }
  return true;
}

bool MoveFileDebris(HANDLE volume, std::vector<ClusterRun>& runs, std::vector<FileDebris>& debris,
                    std::uint64_t boundary) {
  return PlaceFileDebris(runs, debris, boundary,
                         [volume](const FileMove& move) { return RequestMove(volume, move); });
}

bool GetDirectoryDebris(const std::vector<DirectoryEntry>& directories,
                        std::vector<DirectoryDebris>& debris) {
  RetrievalBuffer answer;
  for (const DirectoryEntry& directory : directories) {
    HANDLE handle = GetDeviceHandleUnbuffered(directory.path.c_str());
    if (handle == INVALID_HANDLE_VALUE) return false;
    const BOOL known = GetRetrievalPointers(handle, answer);
    if (known) AppendDirectoryDebris(ReadExtents(answer), debris);
    CloseDeviceHandle(handle);
    if (!known) return false;
  }
  return true;
}

}  // namespace velkora
