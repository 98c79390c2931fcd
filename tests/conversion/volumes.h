// Volumes with files in them, made and read by the tools of each file system.
#pragma once

#include <filesystem>
#include <map>
#include <string>

#include "conversion/gpt_disk.h"

namespace conversion {

// Name and contents of each file in the root folder.
using Files = std::map<std::string, std::string>;

// Three files from a few bytes to 300 KiB whose contents depend on `seed`.
Files MakeFiles(unsigned seed);

// Each makes a volume that fills the partition and puts it on the disk. `scratch` is a folder for
// the files in between. FAT32 needs 34 MiB to have clusters enough.
void PutNtfs(const std::filesystem::path& image, const Partition& partition, const Files& files,
             const std::filesystem::path& scratch);
void PutFat32(const std::filesystem::path& image, const Partition& partition, const Files& files,
              const std::filesystem::path& scratch);
void PutExt4(const std::filesystem::path& image, const Partition& partition, const Files& files,
             const std::filesystem::path& scratch);

// The file system's own checker finds nothing wrong, and its tools read the files back as they
// were.
void ExpectNtfs(const std::filesystem::path& image, const Partition& partition, const Files& files,
                const std::filesystem::path& scratch);
void ExpectFat32(const std::filesystem::path& image, const Partition& partition, const Files& files,
                 const std::filesystem::path& scratch);
void ExpectExt4(const std::filesystem::path& image, const Partition& partition, const Files& files,
                const std::filesystem::path& scratch);

// An NTFS volume that was shrunk or got boot code: whole but for the boot sector's second copy,
// which lay behind the new end or is still the old one.
void ExpectShrunkNtfs(const std::filesystem::path& image, const Partition& partition,
                      const Files& files, const std::filesystem::path& scratch);

}  // namespace conversion
