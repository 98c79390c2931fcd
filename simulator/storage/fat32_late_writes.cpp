// When changes of a FAT32 volume get to the disk.
#include <algorithm>
#include <span>
#include <utility>

#include "simulator/storage/fat32_files.h"
#include "simulator/storage/fat32_session.h"

namespace simulator {
namespace {

// So many writes may wait.
constexpr std::size_t kMostWaiting = 256;
// Slots between two changed ones are written with them: so many may hold the second one's long
// name.
constexpr std::size_t kMostNameSlots = 20;

}  // namespace

Fat32Files::Fat32Files(BlockDevice& device, std::uint64_t volume_offset, Writing writing)
    : device_(device),
      clusters_(device, volume_offset),
      open_error_(clusters_.Open()),
      writing_(writing),
      bytes_written_(device.bytes_written()) {
  if (writing == Writing::kLate) device.Add(*this);
}

Fat32Files::~Fat32Files() {
  static_cast<void>(Flush());  // who wants to know of a failure has called it before
  device_.Remove(*this);
}

// The transfer goes on in any case; a failure is told to the next who changes something.
void Fat32Files::BeforeTransfer() {
  if (!is_working_) late_error_ = Flush();
}

DWORD Fat32Files::Flush() {
  const Session session(*this);
  return WriteAll();
}

// In an order that leaves each file whole at each moment: its new clusters are linked before its
// entry names the first of them, and the old ones become free when nothing leads to them any more.
DWORD Fat32Files::WriteAll() {
  if (late_error_ != ERROR_SUCCESS) {
    Forget();
    return std::exchange(late_error_, ERROR_SUCCESS);
  }
  if (changed_slots_.empty() && clusters_.waiting() == 0) return ERROR_SUCCESS;
  DWORD error = clusters_.SaveNewLinks();
  if (error == ERROR_SUCCESS) error = WriteSlots();
  if (error == ERROR_SUCCESS) error = clusters_.SaveOldLinks();
  if (error != ERROR_SUCCESS) Forget();
  return error;
}

DWORD Fat32Files::WriteInTime() {
  const bool may_wait = writing_ == Writing::kLate && late_error_ == ERROR_SUCCESS &&
                        changed_slots_.size() + clusters_.waiting() < kMostWaiting;
  return may_wait ? ERROR_SUCCESS : WriteAll();
}

DWORD Fat32Files::WriteSlots() {
  for (const ChangedSlots& slots : changed_slots_) {
    Folder* folder = nullptr;
    Fat32Chain chain;
    DWORD error = LoadFolder(slots.folder, folder);
    if (error == ERROR_SUCCESS) error = clusters_.Walk(slots.folder, chain);
    if (error != ERROR_SUCCESS) return error;
    const std::size_t offset = slots.first * kFat32SlotBytes;
    const std::size_t end = slots.end * kFat32SlotBytes;
    // Another chain that led here may have taken the clusters away.
    if (end > chain.size() * clusters_.cluster_bytes()) return ERROR_FILE_CORRUPT;
    const auto bytes = std::as_bytes(std::span(folder->directory.bytes()));
    error = clusters_.WritePart(chain, offset, bytes.subspan(offset, end - offset));
    if (error != ERROR_SUCCESS) return error;
  }
  changed_slots_.clear();
  return ERROR_SUCCESS;
}

void Fat32Files::Forget() {
  changed_slots_.clear();
  folders_.clear();
  last_parent_.clear();
  open_error_ = clusters_.Open();
}

// Of a folder with thousands of slots only those are written that changed.
DWORD Fat32Files::ChangeEntry(const Fat32FileId& id, const Fat32Entry& entry) {
  Folder* folder = nullptr;
  const DWORD error = LoadFolder(id.folder, folder);
  if (error != ERROR_SUCCESS) return error;
  folder->directory.Update(entry);
  if (changed_slots_.empty() || changed_slots_.back().folder != id.folder ||
      id.slot < changed_slots_.back().first ||
      id.slot > changed_slots_.back().end + kMostNameSlots) {
    changed_slots_.push_back({id.folder, id.slot, id.slot});
  }
  changed_slots_.back().end = std::max(changed_slots_.back().end, id.slot + 1);
  return ERROR_SUCCESS;
}

}  // namespace simulator
