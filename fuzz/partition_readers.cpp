// The readers of both kinds of table, over a disk of any bytes.
#include "convert/partition_reader.h"
#include "fuzz/fuzz_disk.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // A boot record that neither links nor ends is read for ever; that many calls tell it.
  constexpr std::size_t kMostCalls = 5000;
  fuzz::FuzzDisk::Instance().Run({data, size}, kMostCalls, [](HANDLE disk) {
    velkora::GptPartitionList gpt_rows;
    velkora::ReadGptPartitions(disk, gpt_rows);
    velkora::MbrPartitionList mbr_rows;
    velkora::ReadMbrPartitions(disk, mbr_rows);
  });
  return 0;
}
