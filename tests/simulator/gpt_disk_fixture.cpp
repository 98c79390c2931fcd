#include "simulator/gpt_disk_fixture.h"

#include <zlib.h>

namespace simulator::storage_testing {

std::uint32_t Crc(const std::vector<std::byte>& bytes, std::size_t length) {
  return static_cast<std::uint32_t>(
      crc32_z(0, reinterpret_cast<const Bytef*>(bytes.data()), length));
}

GptHeader Header(StorageDisk& disk, std::uint64_t sector) {
  return Load<GptHeader>(disk.Sector(sector));
}

void Seal(StorageDisk& disk, std::uint64_t sector, GptHeader header) {
  header.header_crc = 0u;
  std::vector<std::byte> bytes = disk.Sector(sector);
  Store(header, bytes);
  header.header_crc = Crc(bytes, header.header_size);
  ASSERT_TRUE(disk.Put(sector, header));
}

void GptDiskFixture::SetUp() {
  ASSERT_EQ(CreateDisk(disk_.device(), GptRequest(1, 128)), ERROR_SUCCESS);
}

}  // namespace simulator::storage_testing
