// What a rollback leaves of a FAT32 volume whose files and folders have moved by then. Boot sector,
// tables and root directory are the old ones again; what was written elsewhere in the volume, the
// folders below the root among it, stays as the shrink left it.
#include <gmock/gmock.h>

#include "conversion/fat32_rooms.h"
#include "support/tools/run_tool.h"

namespace conversion {
namespace {

using Lines = std::vector<std::string>;
using testing_support::RunTool;

class Fat32Rollback : public ConversionTest {
 protected:
  // Converts a disk that was made for a failure, and expects the rollback.
  void ExpectRollback(ConversionRun& run) {
    EXPECT_EQ(run.Convert(), 1);
    EXPECT_THAT(run.Callbacks(), ::testing::ElementsAre("percent 0", "status 1", "status 5",
                                                        "status 9", "percent 100", "status 10"));
  }
  // What fsck.fat says of the volume in its old length, without version and name.
  std::string Fsck(const Fat32Room& room) {
    const std::filesystem::path volume = File("volume.img");
    ExtractVolume(image(), room.partition.range(), volume);
    std::string output = RunTool({"fsck.fat", "-n", volume}).output;
    output.erase(0, output.find('\n') + 1);
    const std::string name = volume.string() + ": ";
    for (std::size_t at; (at = output.find(name)) != std::string::npos;) {
      output.erase(at, name.size());
    }
    return output;
  }
  // The same when two files below the root have moved; `of_sub` is said of a folder.
  static std::string FsckOfMovedFiles(const std::string& of_sub) {
    return "/FOLDER/INNER\n"
           "  Contains a free cluster (17). Assuming EOF.\n"
           "/FOLDER/INNER\n"
           "  File size is 11790 bytes, cluster chain length is 0 bytes.\n"
           "  Truncating file to 0 bytes.\n" +
           of_sub +
           "/FOLDER/SUB/DEEP\n"
           "  Contains a free cluster (41). Assuming EOF.\n"
           "/FOLDER/SUB/DEEP\n"
           "  File size is 13890 bytes, cluster chain length is 0 bytes.\n"
           "  Truncating file to 0 bytes.\n"
           "Reclaimed 52 unused clusters (26624 bytes).\n"
           "Free cluster summary wrong (96676 vs. really 96728)\n"
           "  Auto-correcting.\n"
           "\n"
           "Leaving filesystem unchanged.\n"
           "6 files, 32/96760 clusters\n";
  }
  Lines Lost(const Fat32Room& room) {
    return LostFiles(image(), room.partition.range(), room.tree, folder_.path());
  }
};

// Only files have moved. The old clusters of those in the root still hold their data.
TEST_F(Fat32Rollback, AfterTheFilesHaveMoved) {
  const Fat32Room room = MakeRoomForABootRecord(image(), folder_.path());
  ConversionRun run(image());
  run.machine().calls().FailOn("DeviceIoControl/FSCTL_DISMOUNT_VOLUME");
  ExpectRollback(run);
  EXPECT_EQ(Fsck(room), FsckOfMovedFiles(""));
  EXPECT_EQ(Lost(room), Lines({"folder/inner", "folder/sub/deep"}));
}

// Everything has moved: the old folders are as they were when the file system had moved the files.
TEST_F(Fat32Rollback, AfterTheFoldersHaveMoved) {
  const Fat32Room room = MakeRoomForABootRecord(image(), folder_.path());
  ConversionRun run(image());
  run.machine().calls().FailOn("DeviceIoControl/IOCTL_DISK_SET_DRIVE_LAYOUT_EX");
  ExpectRollback(run);
  EXPECT_EQ(Fsck(room), FsckOfMovedFiles("/FOLDER/SUB\n"
                                         "  Invalid '..' entry in the second slot. Fixing.\n"));
  EXPECT_EQ(Lost(room), Lines({"folder/inner", "folder/sub/deep"}));
}

// The attributes are cleared by then, and nothing has moved.
TEST_F(Fat32Rollback, BeforeAFileHasMoved) {
  const Fat32Room room = MakeRoomForABootRecord(image(), folder_.path());
  ConversionRun run(image());
  run.machine().calls().FailOn("DeviceIoControl/FSCTL_MOVE_FILE");
  ExpectRollback(run);
  EXPECT_EQ(Fsck(room), "6 files, 84/96760 clusters\n");
  EXPECT_EQ(Lost(room), Lines());
}

// A cluster of 64 KiB has no end for the scan of a moved folder's parent: a fault, which the guard
// catches.
TEST_F(Fat32Rollback, AFolderToMoveInClustersOf64Kib) {
  const Fat32Room room = MakeRoomForABootRecord(image(), folder_.path(), 4200, 128);
  ConversionRun run(image());
  ExpectRollback(run);
  EXPECT_EQ(run.Errors(), Lines());
  EXPECT_EQ(Fsck(room),
            "/FOLDER/INNER\n"
            "  Contains a free cluster (10). Assuming EOF.\n"
            "/FOLDER/INNER\n"
            "  File size is 11790 bytes, cluster chain length is 0 bytes.\n"
            "  Truncating file to 0 bytes.\n"
            "/FOLDER/SUB\n"
            "  Invalid '..' entry in the second slot. Fixing.\n"
            "/FOLDER/SUB/DEEP\n"
            "  Contains a free cluster (11). Assuming EOF.\n"
            "/FOLDER/SUB/DEEP\n"
            "  File size is 13890 bytes, cluster chain length is 0 bytes.\n"
            "  Truncating file to 0 bytes.\n"
            "Reclaimed 2 unused clusters (131072 bytes).\n"
            "Free cluster summary wrong (67181 vs. really 67183)\n"
            "  Auto-correcting.\n"
            "\n"
            "Leaving filesystem unchanged.\n"
            "6 files, 5/67188 clusters\n");
  EXPECT_EQ(Lost(room), Lines({"folder/inner", "folder/sub/deep"}));
}

}  // namespace
}  // namespace conversion
