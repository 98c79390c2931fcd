#include "support/caller_record.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <string>

namespace testing_support {

void SetText(char* field, std::size_t capacity, std::string_view text) {
  if (text.size() >= capacity) throw std::length_error("a text of the record is too long");
  std::fill_n(field, capacity, '\0');
  std::copy(text.begin(), text.end(), field);
}

CallerRecord::CallerRecord(DiskType type, std::uint32_t index, std::uint64_t size) {
  disk_.disk_type = type;
  disk_.index = index;
  disk_.size = size;
  SetText(disk_.id, "\\\\.\\PhysicalDrive" + std::to_string(index));
  SetText(disk_.serial_num, "SERIAL");
}

VolumeInfo& CallerRecord::Add(std::uint64_t offset, VolumeFileSystem filesystem,
                              std::string_view letter) {
  if (volumes_.size() == std::size(disk_.volumes)) {
    throw std::length_error("a record holds 255 volumes");
  }
  VolumeInfo& volume = volumes_.emplace_back();
  volume.offset = offset;
  volume.filesystem = filesystem;
  SetText(volume.letter, letter);
  disk_.volumes[volumes_.size() - 1] = &volume;
  disk_.volume_count = static_cast<std::int32_t>(volumes_.size());
  return volume;
}

}  // namespace testing_support
