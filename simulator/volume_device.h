// An open volume.
#pragma once

#include "simulator/device_object.h"
#include "simulator/volume.h"

namespace simulator {

class System;

// The volume may be dismounted by another handle or leave with its partition while this one is
// open; every transfer fails with error 21 then.
class VolumeDevice : public DeviceObject {
 public:
  VolumeDevice(System& system, const Volume& volume, DWORD access);
  ~VolumeDevice() override;  // gives up a lock that it holds

  std::string Describe() const override { return "volume " + path_; }
  DWORD Read(std::span<std::byte> buffer, DWORD& done) override;
  DWORD Write(std::span<const std::byte> data, DWORD& done) override;

 protected:
  DWORD Answer(DWORD code, std::span<const std::byte> in, std::span<std::byte> out,
               DWORD& returned) override;
  DWORD FlushWritten() override;

 private:
  struct Range {
    class BlockDevice* device = nullptr;
    std::uint64_t offset = 0;  // on the disk
    std::size_t length = 0;    // what is left of it up to the end of the volume
  };

  // Null for a volume that has left.
  Volume* Find() const;
  bool IsUsable(const Volume* volume) const;
  DWORD FindRange(const Volume& volume, std::size_t length, Range& range) const;

  template <typename Operation>
  DWORD OnFat32(const Operation& operation) const;
  DWORD GetDeviceNumber(std::span<std::byte> out, DWORD& returned) const;
  DWORD GetExtents(std::span<std::byte> out, DWORD& returned) const;
  DWORD Lock();
  DWORD Unlock();
  DWORD Dismount();

  System& system_;
  std::string path_;
  std::uint64_t arrival_;
  std::uint32_t dismount_count_;  // of the volume, when this handle was last good
  bool holds_lock_ = false;
};

// Flushes each disk that the volume lies on. A Windows error.
DWORD FlushDisksOf(System& system, const Volume& volume);

}  // namespace simulator
