// A disk of the simulated machine: its bytes, and what the system believes of its table.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>

#include "simulator/device_identity.h"
#include "simulator/storage/block_device.h"
#include "simulator/storage/partition_store.h"

namespace simulator {

class Disk {
 public:
  Disk(std::uint32_t number, const std::filesystem::path& image, std::uint32_t sector_size,
       Access access = Access::kReadWrite)
      : identity(DefaultIdentity(number)), number_(number), device_(image, sector_size, access) {}
  Disk(std::uint32_t number, const std::filesystem::path& image, std::uint32_t sector_size,
       ImageOverlay& overlay)
      : identity(DefaultIdentity(number)), number_(number), device_(image, sector_size, overlay) {}

  std::uint32_t number() const { return number_; }
  // For RenumberDisk, which takes the disk's volumes along.
  void set_number(std::uint32_t number) { number_ = number; }
  // `\\.\PhysicalDriveN`.
  std::string path() const { return "\\\\.\\PhysicalDrive" + std::to_string(number_); }
  BlockDevice& device() { return device_; }

  bool online() const { return online_; }
  void set_online(bool online) { online_ = online; }

  // The layout as the system believes it: read from the disk once, then kept until Forget. On
  // failure the Windows error of the read, and nothing is kept.
  DWORD Layout(DiskLayout& layout);
  void Forget() { cached_.reset(); }
  // Makes the system believe this layout, whatever the disk holds, until Forget.
  void Believe(DiskLayout layout) { cached_ = std::move(layout); }

  // How many more times the disk's volumes are not there yet when one is asked for.
  std::uint32_t mount_delay = 0;

  // Its interface path, and what its descriptor says.
  DeviceIdentity identity;

 private:
  std::uint32_t number_;
  BlockDevice device_;
  bool online_ = true;
  std::optional<DiskLayout> cached_;
};

}  // namespace simulator
