// The bytes of a FAT32 directory: what it lists, and how entries come and go.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "simulator/storage/on_disk.h"

namespace simulator {

struct Fat32Entry {
  std::string name;  // the long one where there is one; UTF-8
  std::string short_name;
  bool is_folder = false;
  std::uint32_t first_cluster = 0;  // 0: no cluster; of a parent link, the root directory
  std::uint32_t size = 0;           // bytes; 0 for a folder
  std::size_t first_slot = 0;
  std::size_t slot_count = 0;
};

class Fat32Directory {
 public:
  Fat32Directory() = default;
  // Whole clusters, as they were read.
  explicit Fat32Directory(std::string bytes) : bytes_(std::move(bytes)) {}

  // The bytes of a new folder, with its links to itself and to its parent (0 for the root).
  static std::string NewFolder(std::uint32_t own_cluster, std::uint32_t parent_cluster);

  const std::string& bytes() const { return bytes_; }

  // Files and folders, without "." and "..". Volume labels are left out.
  std::vector<Fat32Entry> List() const;
  // By either name, in any case.
  std::optional<Fat32Entry> Find(std::string_view name) const;

  // Adds an entry whose name is not there yet. The bytes grow where no free slots are left. False
  // for a name that is too long, and when the directory would pass its 65536 slots.
  [[nodiscard]] bool Add(const Fat32Entry& entry);
  // Notes the entry's first cluster and size in its slot.
  void Update(const Fat32Entry& entry);
  void Remove(const Fat32Entry& entry);

 private:
  std::size_t slot_count() const { return bytes_.size() / kFat32SlotBytes; }
  std::uint8_t FirstByte(std::size_t slot) const;
  template <typename T>
  T Slot(std::size_t slot) const;
  template <typename T>
  void SetSlot(std::size_t slot, const T& value);
  std::size_t FindFreeSlots(std::size_t count) const;
  Fat32Entry EntryAt(std::size_t slot, const std::vector<Fat32NameSlot>& name_slots) const;

  std::string bytes_;
};

}  // namespace simulator
