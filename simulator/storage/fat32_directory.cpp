#include "simulator/storage/fat32_directory.h"

#include <algorithm>
#include <bit>
#include <limits>
#include <span>

#include "simulator/storage/fat32_names.h"
#include "simulator/text.h"

namespace simulator {
namespace {

constexpr std::size_t kMostSlots = 65536;
constexpr std::uint32_t kNoEntry = std::numeric_limits<std::uint32_t>::max();
// The machine's files have no times: 1 January 1980, the first day that the format knows.
constexpr std::uint16_t kFirstDay = 0x0021;

Fat32FileSlot MakeFileSlot(const Fat32ShortName& name, const Fat32Entry& entry) {
  Fat32FileSlot slot{};
  slot.name = name;
  slot.attributes = entry.is_folder ? kFat32AttributeFolder : kFat32AttributeArchive;
  slot.created_date = kFirstDay;
  slot.accessed_date = kFirstDay;
  slot.written_date = kFirstDay;
  slot.cluster_high = static_cast<std::uint16_t>(entry.first_cluster >> 16);
  slot.cluster_low = static_cast<std::uint16_t>(entry.first_cluster & 0xFFFF);
  slot.size = entry.size;
  return slot;
}

Fat32ShortName LinkName(std::string_view dots) {
  Fat32ShortName name;
  name.fill(' ');
  std::copy(dots.begin(), dots.end(), name.begin());
  return name;
}

bool IsLink(const Fat32FileSlot& slot) {
  return slot.name[0] == '.';
}

}  // namespace

Fat32Directory::Fat32Directory(std::string bytes) : bytes_(std::move(bytes)) {
  Parse();
}

template <typename T>
T Fat32Directory::Slot(std::size_t slot) const {
  return Load<T>(std::as_bytes(std::span(bytes_)).subspan(slot * kFat32SlotBytes));
}

template <typename T>
void Fat32Directory::SetSlot(std::size_t slot, const T& value) {
  Store(value, std::as_writable_bytes(std::span(bytes_)).subspan(slot * kFat32SlotBytes));
}

std::string Fat32Directory::NewFolder(std::uint32_t own_cluster, std::uint32_t parent_cluster) {
  Fat32Directory folder(std::string(2 * kFat32SlotBytes, '\0'));
  Fat32Entry link;
  link.is_folder = true;
  link.first_cluster = own_cluster;
  folder.SetSlot(0, MakeFileSlot(LinkName("."), link));
  link.first_cluster = parent_cluster;
  folder.SetSlot(1, MakeFileSlot(LinkName(".."), link));
  return folder.bytes_;
}

std::uint8_t Fat32Directory::FirstByte(std::size_t slot) const {
  return static_cast<std::uint8_t>(bytes_[slot * kFat32SlotBytes]);
}

Fat32Entry Fat32Directory::EntryAt(std::size_t slot,
                                   const std::vector<Fat32NameSlot>& name_slots) const {
  const auto file = Slot<Fat32FileSlot>(slot);
  Fat32Entry entry;
  entry.short_name = ShortNameText(file);
  entry.name = LongNameText(name_slots, file);
  const std::size_t belonging = entry.name.empty() ? 0 : name_slots.size();
  if (entry.name.empty()) entry.name = entry.short_name;
  entry.attributes = file.attributes;
  entry.is_folder = (file.attributes & kFat32AttributeFolder) != 0;
  entry.first_cluster = std::uint32_t{file.cluster_high} << 16 | std::uint32_t{file.cluster_low};
  entry.size = file.size;
  entry.first_slot = slot - belonging;
  entry.slot_count = belonging + 1;
  return entry;
}

void Fat32Directory::Parse() {
  entries_.clear();
  by_slot_.assign(slot_count(), kNoEntry);
  std::vector<Fat32NameSlot> name_slots;
  for (std::size_t slot = 0; slot < slot_count(); ++slot) {
    if (FirstByte(slot) == kFat32EndOfDirectory) break;
    const auto file = Slot<Fat32FileSlot>(slot);
    const bool is_used = FirstByte(slot) != kFat32FreeSlot;
    if (is_used && file.attributes == kFat32AttributesLongName) {
      // The last part of a name comes first.
      if ((FirstByte(slot) & kFat32LastNamePart) != 0) name_slots.clear();
      name_slots.push_back(Slot<Fat32NameSlot>(slot));
      continue;
    }
    const bool is_label = (file.attributes & kFat32AttributeVolumeLabel) != 0;
    if (is_used && !is_label && !IsLink(file)) {
      by_slot_[slot] = static_cast<std::uint32_t>(entries_.size());
      entries_.push_back(EntryAt(slot, name_slots));
    }
    name_slots.clear();
  }
  IndexNames();
}

void Fat32Directory::IndexNames() {
  // At most half full.
  by_name_.assign(std::bit_ceil(4 * entries_.size() + 1), kNoEntry);
  for (std::size_t i = 0; i < entries_.size(); ++i) {
    for (const bool is_short : {false, true}) {
      std::uint32_t& place =
          by_name_[PlaceOf(is_short ? entries_[i].short_name : entries_[i].name)];
      if (place == kNoEntry) place = static_cast<std::uint32_t>(2 * i + (is_short ? 1 : 0));
    }
  }
}

std::size_t Fat32Directory::PlaceOf(std::string_view name) const {
  const std::size_t mask = by_name_.size() - 1;
  for (std::size_t place = HashIgnoringCase(name) & mask;; place = (place + 1) & mask) {
    if (by_name_[place] == kNoEntry) return place;
    const Fat32Entry& entry = entries_[by_name_[place] / 2];
    const bool is_short = by_name_[place] % 2 != 0;
    if (EqualsIgnoringCase(is_short ? entry.short_name : entry.name, name)) return place;
  }
}

const Fat32Entry* Fat32Directory::Find(std::string_view name) const {
  const std::uint32_t found = by_name_.empty() ? kNoEntry : by_name_[PlaceOf(name)];
  return found == kNoEntry ? nullptr : &entries_[found / 2];
}

const Fat32Entry* Fat32Directory::At(std::size_t slot) const {
  const std::size_t index = slot < by_slot_.size() ? by_slot_[slot] : kNoEntry;
  return index == kNoEntry ? nullptr : &entries_[index];
}

// The first of `count` slots in a row that nothing uses; they may lie behind the bytes.
std::size_t Fat32Directory::FindFreeSlots(std::size_t count) const {
  std::size_t first = 0;
  for (std::size_t slot = 0; slot < slot_count(); ++slot) {
    if (FirstByte(slot) == kFat32EndOfDirectory) break;
    if (FirstByte(slot) != kFat32FreeSlot) first = slot + 1;
    if (slot + 1 - first == count) break;
  }
  return first;
}

bool Fat32Directory::Add(const Fat32Entry& entry) {
  std::vector<std::string> taken;
  for (const Fat32Entry& other : List()) taken.push_back(other.short_name);
  const Fat32ShortName short_name = MakeShortName(entry.name, taken);
  std::vector<Fat32NameSlot> name_slots;
  if (!IsShortName(entry.name)) {
    name_slots = MakeNameSlots(entry.name, short_name);
    if (name_slots.empty()) return false;
  }
  std::size_t slot = FindFreeSlots(name_slots.size() + 1);
  const std::size_t end = slot + name_slots.size() + 1;
  if (end > kMostSlots) return false;
  if (end > slot_count()) bytes_.resize(end * kFat32SlotBytes, '\0');
  for (const Fat32NameSlot& name_slot : name_slots) SetSlot(slot++, name_slot);
  SetSlot(slot, MakeFileSlot(short_name, entry));
  Parse();
  return true;
}

void Fat32Directory::Update(const Fat32Entry& entry) {
  auto file = Slot<Fat32FileSlot>(entry.own_slot());
  file.attributes = entry.attributes;
  file.cluster_high = static_cast<std::uint16_t>(entry.first_cluster >> 16);
  file.cluster_low = static_cast<std::uint16_t>(entry.first_cluster & 0xFFFF);
  file.size = entry.size;
  SetSlot(entry.own_slot(), file);
  Fat32Entry& known = entries_[by_slot_[entry.own_slot()]];
  known.attributes = entry.attributes;
  known.first_cluster = entry.first_cluster;
  known.size = entry.size;
}

void Fat32Directory::Remove(const Fat32Entry& entry) {
  for (std::size_t i = 0; i < entry.slot_count; ++i) {
    bytes_[(entry.first_slot + i) * kFat32SlotBytes] = static_cast<char>(kFat32FreeSlot);
  }
  Parse();
}

}  // namespace simulator
