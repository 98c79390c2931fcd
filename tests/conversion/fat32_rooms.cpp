#include "conversion/fat32_rooms.h"

#include <array>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "conversion/mbr_disk.h"
#include "conversion/tools.h"
#include "conversion/volumes.h"
#include "support/tools/run_tool.h"

namespace conversion {
namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t kFat32 = 48 * kSectorsPerMib;

void SetNextFree(const fs::path& volume, std::uint64_t cluster) {
  constexpr std::uint64_t kLastAllocated = 512 + 492;
  std::array<std::uint8_t, 4> bytes{};
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    bytes[i] = static_cast<std::uint8_t>((cluster - 1) >> (8 * i));
  }
  ImageFile(volume).Write(kLastAllocated, bytes);
}

void WriteTree(const fs::path& tree) {
  fs::create_directories(tree / "folder" / "sub");
  for (const char* name : {"first", "second", "folder/inner", "folder/sub/deep"}) {
    std::ofstream file(tree / name);
    for (int i = 0; i < 700; ++i) file << name << ' ' << i << '\n';
  }
}

// Makes the volume that gives: one file in front, all else behind the new end.
void PutRoom(const fs::path& image, Fat32Room& room, std::uint64_t cluster_sectors,
             const fs::path& scratch) {
  const fs::path volume = scratch / "room.img";
  const fs::path tree = scratch / "room";
  CreateImage(volume, room.partition.count() * kSectorBytes);
  Tool({"mkfs.fat", "-F", "32", "-s", std::to_string(cluster_sectors), "-i", "12345678", "-h",
        std::to_string(room.partition.first), volume});
  WriteTree(tree);
  Tool({"mcopy", "-i", volume, tree / "first", "::/"});
  // A little behind the boundary, which the tables shift down by some MiB at most.
  const std::uint64_t kept = (room.partition.count() - room.taken_off) / cluster_sectors;
  SetNextFree(volume, kept + 10);
  Tool({"mcopy", "-s", "-i", volume, tree / "folder", tree / "second", "::/"});
  room.tree = ReadTree(tree);
  PlaceVolume(image, room.partition, volume);
}

}  // namespace

Fat32Room MakeRoomForABootRecord(const fs::path& image, const fs::path& scratch, std::uint64_t mib,
                                 std::uint64_t cluster_sectors) {
  Fat32Room room;
  Partitions partitions = EvenPartitions(2, 1, 0);
  const std::uint64_t third = partitions[1].last + 1;
  const std::uint64_t fourth = third + mib * kSectorsPerMib;
  room.partition = {third, fourth - 1};
  room.taken_off = 5 * kSectorsPerMib;
  partitions.push_back(room.partition);
  partitions.push_back({fourth, fourth + 4 * kSectorsPerMib - 1});
  MakeGptDisk(image, (mib + 80) * kMib, partitions);
  room.others = {partitions[0], partitions[1], partitions[3]};
  PutRoom(image, room, cluster_sectors, scratch);
  return room;
}

Fat32Room MakeRoomForASecondGpt(const fs::path& image, const fs::path& scratch) {
  Fat32Room room;
  room.partition = {3 * kSectorsPerMib, 3 * kSectorsPerMib + kFat32 - 1, "c"};
  room.taken_off = kSectorsPerMib;
  room.others = {{kSectorsPerMib, 2 * kSectorsPerMib - 1, kMbrNtfs}};
  MakeMbrDisk(image, (room.partition.last + 1) * kSectorBytes,
              {{room.others[0], room.partition}, {}});
  PutRoom(image, room, 1, scratch);
  return room;
}

Fat32Room MakeRoomForAnEfiPartition(const fs::path& image, const fs::path& scratch) {
  Fat32Room room;
  const Partition system = {kSectorsPerMib, 17 * kSectorsPerMib - 1, kMbrNtfs};
  room.partition = {system.last + 1, system.last + 1100 * kSectorsPerMib, "c"};
  room.taken_off = 302 * kSectorsPerMib;
  room.others = {system};
  MakeMbrDisk(image, (room.partition.last + 1 + kSectorsPerMib) * kSectorBytes,
              {{system, room.partition}, {}});
  PutNtfs(image, system, MakeFiles(1), scratch);
  PutRoom(image, room, 8, scratch);
  return room;
}

void ExpectFilesOfRoom(const fs::path& image, const Fat32Room& room, const fs::path& scratch) {
  const fs::path volume = scratch / "volume.img";
  ExtractVolume(image, room.Shortened().range(), volume);
  const std::string output = testing_support::RunTool({"fsck.fat", "-n", volume}).output;
  EXPECT_THAT(output, ::testing::MatchesRegex(
                          "fsck.fat [^\n]*\n"
                          "There are differences between boot sector and its backup.\n"
                          "This is mostly harmless. Differences: .offset:original/backup.\n"
                          "[^\n]*\n  Not automatically fixing this.\n"
                          "Free cluster summary wrong [^\n]*\n  Auto-correcting.\n\n"
                          "Leaving filesystem unchanged.\n[^\n]*\n"));
  EXPECT_EQ(LostFiles(image, room.Shortened().range(), room.tree, scratch),
            std::vector<std::string>());
}

}  // namespace conversion
