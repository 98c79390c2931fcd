// Files and folders of a FAT32 volume in an image.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/win32_types.h"
#include "simulator/storage/block_device.h"
#include "simulator/storage/fat32_clusters.h"
#include "simulator/storage/fat32_directory.h"

namespace simulator {

// A file or folder that was found by its path, for as long as the volume stays mounted: the first
// cluster of the folder that holds it, and its own slot there.
struct Fat32FileId {
  std::uint32_t folder = 0;  // 0: the root directory itself
  std::size_t slot = 0;

  bool is_root() const { return folder == 0; }
};

// Paths lead from the root of the volume (`\EFI\Boot\bootx64.efi`) in UTF-8; case makes no
// difference. Functions return a Windows error: ERROR_FILE_NOT_FOUND for a missing file,
// ERROR_PATH_NOT_FOUND for a missing folder on the way, ERROR_ACCESS_DENIED for a folder where a
// file is meant, ERROR_INVALID_NAME, kErrorUnrecognizedVolume where there is no FAT32, and those of
// Fat32Clusters.
//
// Tables and folders are kept in memory, and read anew once somebody else has written to the
// device. What changes is written at once; with kLate, attributes and moves are written later: when
// Flush is called, when somebody else uses the device, when a lot has gathered, with the next other
// change, or with the object's end. They get to the disk in an order that leaves every file whole
// at each moment.
class Fat32Files : private LateWriter {
 public:
  enum class Writing { kAtOnce, kLate };

  // The device outlives the object.
  Fat32Files(BlockDevice& device, std::uint64_t volume_offset, Writing writing = Writing::kAtOnce);
  ~Fat32Files() override;
  Fat32Files(const Fat32Files&) = delete;
  Fat32Files& operator=(const Fat32Files&) = delete;

  // ---- By path ---------------------------------------------------------------------------------

  // ERROR_ALREADY_EXISTS when something of that name is there.
  [[nodiscard]] DWORD MakeFolder(std::string_view path);
  // Creates a file or replaces its content; an old content goes when the new one is complete.
  [[nodiscard]] DWORD Write(std::string_view path, std::string_view content);
  [[nodiscard]] DWORD Remove(std::string_view path);
  [[nodiscard]] DWORD Read(std::string_view path, std::string& content);
  // What a folder holds, in the order in which it lies there, without "." and "..".
  [[nodiscard]] DWORD List(std::string_view path, std::vector<Fat32Entry>& entries);
  // A file or a folder; the root is one.
  bool Exists(std::string_view path);
  // A file or a folder. ERROR_FILE_CORRUPT for one whose first cluster cannot be.
  [[nodiscard]] DWORD Find(std::string_view path, Fat32FileId& id);
  // Replaces read-only, hidden, system and archive; other bits of `attributes` have no effect.
  // ERROR_INVALID_PARAMETER (believed) for the root directory, which has none.
  [[nodiscard]] DWORD SetAttributes(std::string_view path, DWORD attributes);

  // ---- By id -----------------------------------------------------------------------------------

  // How the file stands in its folder; of the root directory only what makes it a folder.
  [[nodiscard]] DWORD Look(const Fat32FileId& id, Fat32Entry& entry);
  [[nodiscard]] DWORD Chain(const Fat32FileId& id, Fat32Chain& chain);
  // Fills the buffer from `offset` up to the end of the file; `done` may be less, and 0.
  [[nodiscard]] DWORD ReadPart(const Fat32FileId& id, std::uint64_t offset,
                               std::span<std::byte> buffer, std::size_t& done);
  // Moves up to `count` clusters of the file, from its `index`-th on, to the free ones from
  // `target` on, at most 64 KiB at once. ERROR_INVALID_PARAMETER when a target is not free, where
  // what was moved before stays moved, and for the first cluster of a folder, which is known by it.
  [[nodiscard]] DWORD Move(const Fat32FileId& id, std::size_t index, std::size_t count,
                           std::uint32_t target);

  // ---- The volume ------------------------------------------------------------------------------

  [[nodiscard]] DWORD Usage(std::span<const std::uint8_t>& bits, std::uint32_t& cluster_count);
  // Writes what waits. After a failure it is lost, and everything is as it is on the disk.
  [[nodiscard]] DWORD Flush();

 private:
  struct Folder {
    std::uint32_t cluster = 0;
    Fat32Directory directory;
  };
  // Stands around each operation: forgets before it what others may have changed since.
  class Session;

  DWORD OpenFolder(const std::vector<std::string_view>& names, Folder*& folder);
  DWORD OpenParent(std::string_view path, Folder*& folder, std::string_view& name);
  DWORD LoadFolder(std::uint32_t cluster, Folder*& folder);
  DWORD FindFile(std::string_view path, Fat32FileId& id);
  // The entry stays where it is until one is added to its folder or removed, the folder moves, or a
  // write fails.
  DWORD LookAt(const Fat32FileId& id, const Fat32Entry*& entry);
  DWORD ChainOf(const Fat32FileId& id, Fat32Chain& chain);
  DWORD Save(Folder& folder);
  DWORD MovePiece(const Fat32FileId& id, Fat32Chain& chain, std::size_t index, std::size_t count,
                  std::uint32_t target);
  DWORD ForgetFolder(std::uint32_t first_cluster);
  DWORD ChangeFirstCluster(const Fat32FileId& id, std::uint32_t cluster);
  void BeforeTransfer() override;
  DWORD ChangeEntry(const Fat32FileId& id, const Fat32Entry& entry);
  DWORD WriteInTime();
  DWORD WriteAll();
  DWORD WriteSlots();
  void Forget();

  // Neighbouring slots of a folder that are changed in memory only.
  struct ChangedSlots {
    std::uint32_t folder = 0;
    std::size_t first = 0;
    std::size_t end = 0;  // behind the last one
  };

  BlockDevice& device_;
  Fat32Clusters clusters_;
  DWORD open_error_;
  Writing writing_;
  bool is_working_ = false;  // an operation is under way
  std::vector<ChangedSlots> changed_slots_;
  DWORD late_error_ = ERROR_SUCCESS;  // what was lost, and nobody has been told
  std::uint64_t bytes_written_;       // to the device, when the last operation ended
  std::unordered_map<std::uint32_t, Folder> folders_;  // by first cluster
  // The path of the folder that a file was last looked for in, with a separator behind it, and the
  // folder's first cluster: the next file is mostly looked for there, too.
  std::string last_parent_;
  std::uint32_t last_parent_cluster_ = 0;
  Fat32Entry root_entry_;  // what LookAt gives for the root directory
};

}  // namespace simulator
