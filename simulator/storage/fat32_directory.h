// The bytes of a FAT32 directory: what it lists, and how entries come and go.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/storage/on_disk.h"

namespace simulator {

struct Fat32Entry {
  std::string name;  // the long one where there is one; UTF-8
  std::string short_name;
  bool is_folder = false;
  std::uint32_t first_cluster = 0;  // 0: no cluster; of a parent link, the root directory
  std::uint32_t size = 0;           // bytes; 0 for a folder
  std::uint8_t attributes = 0;      // as on the disk
  std::size_t first_slot = 0;
  std::size_t slot_count = 0;

  // The last one, which holds all but the long name.
  std::size_t own_slot() const { return first_slot + slot_count - 1; }
};

class Fat32Directory {
 public:
  Fat32Directory() = default;
  // Whole clusters, as they were read.
  explicit Fat32Directory(std::string bytes);

  // The bytes of a new folder, with its links to itself and to its parent (0 for the root).
  static std::string NewFolder(std::uint32_t own_cluster, std::uint32_t parent_cluster);

  const std::string& bytes() const { return bytes_; }

  // Files and folders, without "." and "..". Volume labels are left out. Entries stay in their
  // place until one is added or removed.
  const std::vector<Fat32Entry>& List() const { return entries_; }
  // By either name, in any case; null where there is none.
  const Fat32Entry* Find(std::string_view name) const;
  // By its own slot. Null where no file or folder has it (any more).
  const Fat32Entry* At(std::size_t slot) const;

  // Adds an entry whose name is not there yet. The bytes grow where no free slots are left. False
  // for a name that is too long, and when the directory would pass its 65536 slots.
  [[nodiscard]] bool Add(const Fat32Entry& entry);
  // Notes the first cluster, size and attributes of an entry that is there, in its own slot.
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

  void Parse();

  void IndexNames();
  // Where a name stands in the index, or the empty place where it would.
  std::size_t PlaceOf(std::string_view name) const;

  std::string bytes_;
  std::vector<Fat32Entry> entries_;
  // Where the entry stands that has the slot as its own; kNoEntry for any other slot.
  std::vector<std::uint32_t> by_slot_;
  // A hash table with open addressing over both names of each entry, in any case: where the first
  // entry of that name stands, with the lowest bit set for a short name; kNoEntry for an empty
  // place.
  std::vector<std::uint32_t> by_name_;
};

}  // namespace simulator
