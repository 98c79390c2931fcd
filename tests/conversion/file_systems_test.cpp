// Disks with real file systems and files in them.
#include "conversion/converted_disk_fixture.h"
#include "conversion/volumes.h"

namespace conversion {
namespace {

constexpr std::uint64_t kSize = 240 * kMib;

class FileSystems : public ConversionTest {};

// Primary and logical volumes of each kind.
TEST_F(FileSystems, FilesReadBackAsTheyWere) {
  Partitions partitions = EvenPartitions(6, 36, 1);
  partitions[4].type = kLinux;
  MakeGptDisk(image(), kSize, partitions);
  const std::filesystem::path& scratch = folder_.path();
  PutNtfs(image(), partitions[0], MakeFiles(1), scratch);
  PutFat32(image(), partitions[1], MakeFiles(2), scratch);
  PutExt4(image(), partitions[2], MakeFiles(3), scratch);
  PutFat32(image(), partitions[3], MakeFiles(4), scratch);
  PutExt4(image(), partitions[4], MakeFiles(5), scratch);
  PutNtfs(image(), partitions[5], MakeFiles(6), scratch);

  ExpectConversion(image(), partitions, "six_file_systems");

  ExpectNtfs(image(), partitions[0], MakeFiles(1), scratch);
  ExpectFat32(image(), partitions[1], MakeFiles(2), scratch);
  ExpectExt4(image(), partitions[2], MakeFiles(3), scratch);
  ExpectFat32(image(), partitions[3], MakeFiles(4), scratch);
  ExpectExt4(image(), partitions[4], MakeFiles(5), scratch);
  ExpectNtfs(image(), partitions[5], MakeFiles(6), scratch);
}

// The first two need no room behind them, and nothing needs any behind the last.
TEST_F(FileSystems, PackedVolumesUpToTheThirdKeepTheirSize) {
  const Partitions partitions = EvenPartitions(3, 36, 0);
  MakeGptDisk(image(), kSize, partitions);
  const std::filesystem::path& scratch = folder_.path();
  PutFat32(image(), partitions[0], MakeFiles(7), scratch);
  PutNtfs(image(), partitions[1], MakeFiles(8), scratch);
  PutExt4(image(), partitions[2], MakeFiles(9), scratch);

  ExpectConversion(image(), partitions, "three_packed_file_systems");

  ExpectFat32(image(), partitions[0], MakeFiles(7), scratch);
  ExpectNtfs(image(), partitions[1], MakeFiles(8), scratch);
  ExpectExt4(image(), partitions[2], MakeFiles(9), scratch);
}

}  // namespace
}  // namespace conversion
