// A disk with an empty GPT, and its headers.
#pragma once

#include <cstdint>
#include <gtest/gtest.h>

#include "simulator/storage/gpt_table.h"
#include "simulator/storage_disk.h"

namespace simulator::storage_testing {

inline constexpr std::uint64_t kDiskSize = 64 * kMiB;
inline constexpr std::uint64_t kSectors = kDiskSize / 512;

// By zlib, which the machine does not use for it.
std::uint32_t Crc(const std::vector<std::byte>& bytes, std::size_t length);

GptHeader Header(StorageDisk& disk, std::uint64_t sector);

// Gives a header its right checksum after a change.
void Seal(StorageDisk& disk, std::uint64_t sector, GptHeader header);

class GptDiskFixture : public ::testing::Test {
 protected:
  void SetUp() override;

  StorageDisk disk_{kDiskSize};
};

}  // namespace simulator::storage_testing
