// A disk as text: a table, and a bar that pictures it.
#pragma once

#include <cstdint>
#include <string>

#include "apps/velkora_image/partition_view.h"

namespace velkora_image {

// "512 bytes", "17 KiB", "64 MiB", "1.50 GiB".
std::string SizeText(std::uint64_t bytes);

// One line without an end of line, about 70 columns: "[..|1 FAT32|2 C: NTFS    |....]". A dot is
// free space, from 1 MiB on. Widths are proportional, but every partition keeps room for its
// number.
std::string DrawBar(const DiskView& view);

// A head line with `title`, the bar and the table. Each line ends with an end of line.
std::string DrawDisk(const std::string& title, const DiskView& view);

}  // namespace velkora_image
