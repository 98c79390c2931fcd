#include "boot/boot_rec.h"

#include <fstream>

#include "frame/global_context.h"
#include "simulator/memory_files.h"
#include "support/machine_fixture.h"

namespace testing_support {
namespace {

const char kFixMbr[] = "X:\\logs\\BootRec.exe /fixmbr >> \"X:\\logs\\BOOTREC_result.log\"";
const char kFixBoot[] = "X:\\logs\\BootRec.exe /fixboot >> \"X:\\logs\\BOOTREC_result.log\"";
const char kRebuildBcd[] = "X:\\logs\\BootRec.exe /rebuildbcd >> \"X:\\logs\\BOOTREC_result.log\"";

class FixWithBootRec : public MachineTest {
 protected:
  // Puts a BootRec.exe into the logs folder that ends with these statuses, run by run.
  void PutTool(std::vector<DWORD> statuses = {0, 0, 0}) {
    std::ofstream(logs_folder_ / "BootRec.exe") << "a program";
    machine_.SetCommand("bootrec", [this, statuses](auto&, const Texts& arguments) {
      arguments_.push_back(arguments.front());
      return simulator::CommandResult{statuses.at(arguments_.size() - 1),
                                      arguments.front() + " done\r\n"};
    });
  }

  Texts arguments_;
};

TEST_F(FixWithBootRec, RunsTheThreeStepsInOrder) {
  PutTool();
  EXPECT_TRUE(velkora::FixWithBootRec());
  EXPECT_EQ(arguments_, (Texts{"/fixmbr", "/fixboot", "/rebuildbcd"}));
  EXPECT_EQ(shell_lines_,
            (Texts{std::string("system: ") + kFixMbr, std::string("system: ") + kFixBoot,
                   std::string("system: ") + kRebuildBcd}));
  EXPECT_EQ(log_, (Log{{1, "FixWithBootRec Begin..."}, {1, "FixWithBootRec Success!"}}));
}

TEST_F(FixWithBootRec, WithoutTheToolAllStepsFailAndTheClosingLineSaysSuccess) {
  EXPECT_FALSE(velkora::FixWithBootRec());
  EXPECT_EQ(log_, (Log{{1, "FixWithBootRec Begin..."},
                       {3, std::string(kFixMbr) + " Failed!"},
                       {3, std::string(kFixBoot) + " Failed!"},
                       {3, std::string(kRebuildBcd) + " Failed!"},
                       {1, "FixWithBootRec Success!"}}));
}

TEST_F(FixWithBootRec, FailedStepDoesNotStopTheNext) {
  PutTool({0, 1, 0});
  EXPECT_FALSE(velkora::FixWithBootRec());
  EXPECT_EQ(arguments_, (Texts{"/fixmbr", "/fixboot", "/rebuildbcd"}));
  EXPECT_EQ(log_, (Log{{1, "FixWithBootRec Begin..."},
                       {3, std::string(kFixBoot) + " Failed!"},
                       {1, "FixWithBootRec Success!"}}));
}

TEST_F(FixWithBootRec, FailureOfTheFirstStepIsNotForgotten) {
  PutTool({1, 0, 0});
  EXPECT_FALSE(velkora::FixWithBootRec());
}

TEST_F(FixWithBootRec, ShellThatCannotBeStartedIsAFailure) {
  PutTool();
  machine_.calls().FailOn("system", 3);
  EXPECT_FALSE(velkora::FixWithBootRec());
  EXPECT_EQ(Lines(3), Texts{std::string(kRebuildBcd) + " Failed!"});
}

TEST_F(FixWithBootRec, BlankInTheLogsFolderBreaksThePathOfTheTool) {
  PutTool();
  std::filesystem::create_directory(folder_.path() / "my logs");
  std::ofstream(folder_.path() / "my logs" / "BootRec.exe") << "a program";
  velkora::GetGlobalContext().logs_folder = "X:\\my logs";
  EXPECT_FALSE(velkora::FixWithBootRec());
  EXPECT_EQ(arguments_, Texts{});
  EXPECT_EQ(shell_lines_.front(),
            "system: X:\\my logs\\BootRec.exe /fixmbr >> \"X:\\my logs\\BOOTREC_result.log\"");
  // The redirection's path has quotes, so the file comes into being.
  EXPECT_TRUE(std::filesystem::exists(folder_.path() / "my logs" / "BOOTREC_result.log"));
  EXPECT_EQ(Lines(3).size(), 3U);
}

TEST_F(FixWithBootRec, ResultLogGathersAllRunsAndIsNotRead) {
  std::ofstream(LogsFile("BOOTREC_result.log"), std::ios::binary) << "earlier\r\n";
  PutTool();
  EXPECT_TRUE(velkora::FixWithBootRec());
  EXPECT_EQ(LogsFileText("BOOTREC_result.log"),
            "earlier\r\n/fixmbr done\r\n/fixboot done\r\n/rebuildbcd done\r\n");
  for (const char* open : {"CreateFileA", "CreateFileW", "fopen", "_wfopen_s"}) {
    EXPECT_EQ(machine_.calls().Count(open), 0U) << open;
  }
}

TEST_F(FixWithBootRec, GoesToTheShellOnAnyDisk) {
  for (const bool is_system : {false, true}) {
    arguments_.clear();
    PutTool();
    velkora::GetGlobalContext().is_system = is_system;
    EXPECT_TRUE(velkora::FixWithBootRec());
  }
  EXPECT_EQ(machine_.calls().Count("system"), 6U);
  EXPECT_EQ(machine_.calls().Count("ShellExecuteExW"), 0U);
}

TEST_F(FixWithBootRec, FolderIsNotProbed) {
  PutTool();
  EXPECT_TRUE(velkora::FixWithBootRec());
  EXPECT_FALSE(std::filesystem::exists(LogsFile("testdir.log")));
}

// With the machine's own BootRec, on a disk that starts from an active NTFS partition.
TEST_F(FixWithBootRec, PutsBootCodeOntoTheSystemDiskAndAStoreBesideIt) {
  simulator::Disk& disk = NewDisk(1, 64 << 20);
  WriteMbr(disk, {{7, 2048, 30720, /*active=*/true}});
  WriteNtfsBootSector(disk, 2048, 30719);
  machine_.UpdateProperties(disk);
  machine_.SetLetter(1, 2048 * 512, 'C');
  machine_.SetSystemDisk(1);
  machine_.AddFile(1, 2048 * 512, "Windows\\System32\\winload.exe");
  std::ofstream(logs_folder_ / "BootRec.exe") << "a program";
  const auto record = ReadSector(disk, 0);
  const auto boot = ReadSector(disk, 2048);
  EXPECT_TRUE(velkora::FixWithBootRec()) << LogsFileText("BOOTREC_result.log");
  EXPECT_NE(ReadSector(disk, 0), record);
  EXPECT_NE(ReadSector(disk, 2048), boot);
  EXPECT_TRUE(machine_.memory_files(1, 2048 * 512).Exists("Boot\\BCD"));
}

}  // namespace
}  // namespace testing_support
