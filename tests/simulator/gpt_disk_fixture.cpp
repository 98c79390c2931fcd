#include "simulator/gpt_disk_fixture.h"

#include <zlib.h>

namespace storage_testing {

std::uint32_t Crc(const std::vector<std::byte>& bytes, std::size_t length) {
  return static_cast<std::uint32_t>(
      crc32_z(0, reinterpret_cast<const Bytef*>(bytes.data()), length));
}

simulator::GptHeader Header(StorageDisk& disk, std::uint64_t sector) {
  return simulator::Load<simulator::GptHeader>(disk.Sector(sector));
}

void Seal(StorageDisk& disk, std::uint64_t sector, simulator::GptHeader header) {
  header.header_crc = 0u;
  std::vector<std::byte> bytes = disk.Sector(sector);
  simulator::Store(header, bytes);
  header.header_crc = Crc(bytes, header.header_size);
  ASSERT_TRUE(disk.Put(sector, header));
}

void GptDiskFixture::SetUp() {
  ASSERT_EQ(simulator::CreateDisk(disk_.device(), GptRequest(1, 128)), ERROR_SUCCESS);
}

}  // namespace storage_testing
