// Which kind of disk, and which file system, the first bytes tell.
#pragma once

#include <cstddef>
#include <span>

#include "frame/velkora_sdk.h"

namespace velkora {

inline constexpr std::size_t kVolumeStartBytes = 2048;

enum class DiskStyle { kMbr = 1, kGpt = 2, kNeither = 3 };

// By the signature, the boot flag and the type of the first row of sector 0. A protective entry in
// a later row does not make a GPT disk.
DiskStyle DetectDiskStyle(std::span<const std::byte, 512> sector);

// By the marks that each format keeps at a fixed place; the first that matches decides.
VolumeFileSystem DetectFileSystem(std::span<const std::byte, kVolumeStartBytes> start);

}  // namespace velkora
