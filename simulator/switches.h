// Behaviours in which real systems differ, or whose usual form is assumed.
#pragma once

#include "simulator/storage/store_switches.h"

namespace simulator {

struct Switches {
  bool automount = true;
  // IOCTL_DISK_CREATE_DISK makes the Microsoft reserved partition too.
  bool create_disk_makes_reserved_partition = false;
  // diskpart refuses `clean` on the disk of the running system.
  bool refuse_clean_of_system_disk = false;
  // The driver of a FAT32 volume keeps changed attributes and moves of clusters back for a while
  // and writes them together, as Fat32Files tells. Until then they are not in the image: let the
  // volume be dismounted or the machine end before another program looks at it.
  bool fat32_writes_late = false;
  // A CreateFile that fails gives null instead of INVALID_HANDLE_VALUE, as other ways to open do.
  bool failed_open_gives_null = false;
  StoreSwitches store;
};

}  // namespace simulator
