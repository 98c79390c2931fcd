// An open file or folder of a FAT32 volume.
#pragma once

#include <string>

#include "simulator/device_object.h"
#include "simulator/open_path.h"
#include "simulator/storage/fat32_files.h"
#include "simulator/volume.h"
#include "simulator/volume_path.h"

namespace simulator {

// Once its volume is dismounted or gone, everything fails with error 21. The content can be read;
// what changes it goes through VolumeFiles.
class VolumeFileDevice : public DeviceObject {
 public:
  VolumeFileDevice(System& system, const Volume& volume, const Fat32FileId& id, std::string path,
                   DWORD access);

  const Fat32FileId& id() const { return id_; }
  bool IsOn(const Volume& volume) const { return volume.arrival == arrival_; }
  bool IsUsable() const { return Files() != nullptr; }

  std::string Describe() const override { return "file " + path_; }
  DWORD Read(std::span<std::byte> buffer, DWORD& done) override;

 protected:
  DWORD Answer(DWORD code, std::span<const std::byte> in, std::span<std::byte> out,
               DWORD& returned) override;
  DWORD End(std::uint64_t& end) override;
  DWORD FlushWritten() override;

 private:
  // Null when the volume is no longer the one that the file was opened on.
  Fat32Files* Files() const;

  System& system_;
  std::string path_;
  Fat32FileId id_;
  std::uint64_t arrival_;
  std::uint32_t dismount_count_;  // of the volume, when the file was opened
};

// Opens what is there already. ERROR_PATH_NOT_FOUND on a volume that is not FAT32: its files are
// not the machine's to open. ERROR_ACCESS_DENIED for a folder without FILE_FLAG_BACKUP_SEMANTICS,
// and for write access to a read-only file.
DWORD OpenVolumeFile(System& system, const VolumePath& place, const OpenRequest& request,
                     std::unique_ptr<HandleObject>& object, bool& existed);

}  // namespace simulator
