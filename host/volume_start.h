// What the first bytes of a volume say of its file system.
//
// Public sources: Microsoft's FAT32 File System Specification and exFAT file system specification;
// the boot sectors of NTFS and ReFS as Windows documents them for its format command; the ext
// superblock of the Linux kernel's documentation.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "frame/velkora_sdk.h"

namespace velkora_host {

inline constexpr std::size_t kVolumeStartBytes = 4096;

struct VolumeStart {
  VolumeFileSystem filesystem = VolumeFileSystem::kUnknown;
  std::uint32_t cluster_size = 0;  // bytes; 0 where the file system is unknown
};

// `bytes` are the volume's first kVolumeStartBytes. Values that no file system of its kind has make
// it unknown.
VolumeStart ReadVolumeStart(std::span<const std::byte, kVolumeStartBytes> bytes);

}  // namespace velkora_host
