// Whole conversions for which a FAT32 volume gives the room: 5 MiB for a boot record, 1 MiB for the
// second copy of a GPT, 302 MiB for an EFI system partition.
#include "conversion/fat32_rooms.h"
#include "conversion/system_disk.h"

namespace conversion {
namespace {

using Lines = std::vector<std::string>;

class Fat32Conversion : public ConversionTest {
 protected:
  // The volume has its files, the other partitions have their bytes.
  void ExpectRoomMade(const Fat32Room& room, const std::map<std::uint64_t, std::uint64_t>& hashes) {
    ExpectFilesOfRoom(image(), room, folder_.path());
    EXPECT_EQ(PartitionHashes(image(), room.others), hashes);
  }
};

TEST_F(Fat32Conversion, ABootRecordTakesFiveMib) {
  const Fat32Room room = MakeRoomForABootRecord(image(), folder_.path());
  const auto hashes = PartitionHashes(image(), room.others);
  ConversionRun run(image());
  run.SetLetters('F');
  const auto letters = run.Letters();
  EXPECT_EQ(run.Convert(), 0);
  ExpectTranscript(run.transcript(), "fat32_boot_record");
  EXPECT_EQ(run.Letters(), letters);
  EXPECT_EQ(run.Errors(), Lines());
  Partitions rows = room.others;
  rows.insert(rows.begin() + 2, room.Shortened());
  ExpectMbr(image(), rows, kSignature);
  ExpectRoomMade(room, hashes);
}

TEST_F(Fat32Conversion, ASecondGptTakesOneMib) {
  const Fat32Room room = MakeRoomForASecondGpt(image(), folder_.path());
  const auto hashes = PartitionHashes(image(), room.others);
  ConversionRun run(image());
  const auto letters = run.Letters();
  EXPECT_EQ(run.Convert(), 0);
  ExpectTranscript(run.transcript(), "fat32_second_gpt");
  EXPECT_EQ(run.Letters(), letters);
  EXPECT_EQ(run.Errors(), Lines());
  ExpectGptRows(image(), ExpectedGptRows({room.others[0], room.Shortened()}));
  ExpectRoomMade(room, hashes);
}

// The machine runs from an NTFS volume that is too short to give anything.
TEST_F(Fat32Conversion, AnEfiSystemPartitionTakes302Mib) {
  const Fat32Room room = MakeRoomForAnEfiPartition(image(), folder_.path());
  const Partition& system = room.others[0];
  const Partition efi = EfiAt(room.partition.last + 1 - kEfiSectors);
  ConversionRun run(image());
  run.SetLetters('C');
  RunFrom(run, system);
  const auto hashes = PartitionHashes(image(), room.others);
  auto letters = run.Letters();
  letters[efi.offset()] = "E";
  EXPECT_EQ(run.Convert(), 0);
  ExpectTranscript(run.transcript(), "fat32_efi_partition");
  EXPECT_EQ(run.Letters(), letters);
  EXPECT_EQ(run.Errors(), Lines());
  ExpectGptRows(image(), ExpectedGptRows({system, room.Shortened(), efi}));
  ExpectEfiVolume(image(), efi, folder_.path());
  ExpectRoomMade(room, hashes);
}

}  // namespace
}  // namespace conversion
