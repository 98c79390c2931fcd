// Finding the files and directories of a mounted FAT32 volume, and having the file system move the
// data of files that lies behind the boundary. Directories are only listed here.
//
// Extents come from the file system in LCNs, boundary and free runs are FAT cluster numbers (see
// fat32_free_space.h). The two are compared as they are: the comparisons err by two clusters, so
// that an extent whose last LCN is `boundary` - 1 or `boundary` stays, although it lies behind the
// boundary.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "platform/win32_types.h"
#include "shrink/directory_listing.h"
#include "shrink/fat32_free_space.h"

namespace velkora {

// The answer to FSCTL_GET_RETRIEVAL_POINTERS has this size and does not grow: a file or directory
// of more than 51 extents cannot be processed.
inline constexpr std::size_t kRetrievalBytes = 832;

// A run of clusters of a file or directory, as the file system tells it.
struct ClusterExtent {
  std::uint64_t start_vcn = 0;
  std::uint64_t next_vcn = 0;
  std::uint64_t lcn = 0;
};

// A piece of a file to move.
struct FileExtent {
  std::uint64_t vcn = 0;    // first virtual cluster within the file
  std::uint64_t count = 0;  // clusters
};

// A file to move; `extents` are in file order and may be none.
struct FileDebris {
  HANDLE handle = INVALID_HANDLE_VALUE;
  std::vector<FileExtent> extents;
};

// One request to the file system: so many clusters of a file, from a virtual cluster on, to an LCN.
struct FileMove {
  HANDLE file = INVALID_HANDLE_VALUE;
  std::uint64_t vcn = 0;
  std::uint64_t lcn = 0;
  std::uint64_t count = 0;
};

// A fragment of a directory. All but `start_vcn` and `count` are FAT cluster numbers.
struct DirectoryDebris {
  std::uint64_t previous = 0;   // last cluster of the fragment before; 0 for the first fragment
  std::uint64_t first = 0;      // first cluster
  std::uint32_t start_vcn = 0;  // first virtual cluster in the directory; 0 for the first fragment
  std::uint32_t count = 0;      // clusters
  std::uint64_t next = 0;       // first cluster of the fragment behind; 0 for the last fragment
};

// The extents in an answer to FSCTL_GET_RETRIEVAL_POINTERS. A count that leaves the answer raises
// an access violation.
std::vector<ClusterExtent> ReadExtents(std::span<const std::byte> answer);

// Whether some extent ends above the boundary, so that the file is one to move. The end is the LCN
// behind the last one.
bool ReachesBehind(const std::vector<ClusterExtent>& extents, std::uint64_t boundary);

// What of the extents is to move: whole ones, and the tail of one that straddles the boundary. Such
// a tail begins at LCN `boundary` - 1, the first cluster behind the boundary.
std::vector<FileExtent> ExtentsBehind(const std::vector<ClusterExtent>& extents,
                                      std::uint64_t boundary);

// Appends a row for each extent, whether it reaches past the boundary or not.
void AppendDirectoryDebris(const std::vector<ClusterExtent>& extents,
                           std::vector<DirectoryDebris>& debris);

// Walks everything below `directory_path` (no trailing backslash), a parent before its children,
// and appends files and directories to their lists; the directory itself is in neither. Each entry
// gets FILE_ATTRIBUTE_NORMAL on the way, and nobody remembers what it had: read-only, hidden,
// system and archive marks are gone for good, also if the shrink fails later. An entry that has
// vanished or is corrupt is left out, and so is, with everything under it, a directory whose path
// has "System Volume Information" anywhere. Another error is logged "Set File Attributes Error!
// error_code: %d" (level 3) and gives false. A listing that fails, or a directory whose path the
// narrow code page cannot express, throws, and the find handles of the directories above stay open.
bool EnumFilePath(const std::string& directory_path, std::vector<DirectoryEntry>& files,
                  std::vector<DirectoryEntry>& directories);

// Opens each file and appends those that reach behind the boundary. False when a file cannot be
// opened or its extents cannot be asked for, wherever on the volume it lies. No handle is closed,
// neither those in `debris` nor those of files that stay where they are or have no clusters: all
// remain open until the process ends.
bool GetFileDebris(const std::vector<DirectoryEntry>& files, std::uint64_t boundary,
                   std::vector<FileDebris>& debris);

// Finds a place for each extent, in order, in the lowest run that is left below the boundary, split
// where a run is not longer than it, and asks `move` for each piece. Runs of one cluster are never
// used. Takes what it uses off `runs`, and cuts those that it looks at down to the boundary. An
// extent that has just filled a run exactly gets one more request, of no clusters, for the next
// usable run. What finds no room stays where it was; that is no failure. False as soon as `move`
// gives false; what has moved stays moved.
bool PlaceFileDebris(std::vector<ClusterRun>& runs, std::vector<FileDebris>& debris,
                     std::uint64_t boundary, const std::function<bool(const FileMove&)>& move);

// The same with FSCTL_MOVE_FILE. A request that fails is logged "Move File Failed! error_code: %d"
// (level 3).
bool MoveFileDebris(HANDLE volume, std::vector<ClusterRun>& runs, std::vector<FileDebris>& debris,
                    std::uint64_t boundary);

// Appends the fragments of each directory. False when one cannot be opened or asked.
bool GetDirectoryDebris(const std::vector<DirectoryEntry>& directories,
                        std::vector<DirectoryDebris>& debris);

}  // namespace velkora
