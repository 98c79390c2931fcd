// An open disk.
#pragma once

#include "simulator/device_object.h"
#include "simulator/disk.h"

namespace simulator {

class System;

class DiskDevice : public DeviceObject {
 public:
  DiskDevice(System& system, Disk& disk, DWORD access)
      : DeviceObject(access), system_(system), disk_(disk) {}

  std::string Describe() const override { return "disk " + std::to_string(disk_.number()); }
  DWORD Read(std::span<std::byte> buffer, DWORD& done) override;
  DWORD Write(std::span<const std::byte> data, DWORD& done) override;

 protected:
  DWORD Answer(DWORD code, std::span<const std::byte> in, std::span<std::byte> out,
               DWORD& returned) override;
  DWORD FlushWritten() override;

 private:
  DWORD CheckRange(std::size_t length);
  DWORD GetPartitionInfo(std::span<std::byte> out, DWORD& returned);
  DWORD GetDriveLayout(std::span<std::byte> out, DWORD& returned);
  DWORD SetDriveLayout(std::span<const std::byte> in, std::span<std::byte> out, DWORD& returned);
  DWORD CreateDisk(std::span<const std::byte> in);

  System& system_;
  Disk& disk_;
};

}  // namespace simulator
