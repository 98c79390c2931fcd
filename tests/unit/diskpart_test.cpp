#include "tools/diskpart.h"

#include <filesystem>
#include <stdexcept>

#include "frame/global_context.h"
#include "platform/win32.h"
#include "support/machine_fixture.h"

namespace testing_support {
namespace {

constexpr char kLine[] =
    "diskpart /s \"X:\\logs\\DISKPART_cmd.log\" >> \"X:\\logs\\DISKPART_result.log\"";

class DiskpartTest : public MachineTest {
 protected:
  // Replaces diskpart by one that ends with `exit_status` and writes `output`.
  void ScriptDiskpart(DWORD exit_status, const std::string& output = "done\r\n") {
    machine_.SetCommand("diskpart", [exit_status, output](auto&, const auto&) {
      return simulator::CommandResult{exit_status, output};
    });
  }
  void RunAsSystem() { velkora::GetGlobalContext().is_system = 1; }

  // The host's path of a file that is named the Windows way.
  std::filesystem::path HostFile(std::string_view windows_path) {
    return machine_.HostPath(windows_path).value();
  }
};

// ---- The ten verbs -----------------------------------------------------------------------------

struct Verb {
  const char* name;
  bool (*run)();
  const char* script;
  bool logs_script = false;
};

void PrintTo(const Verb& verb, std::ostream* out) {
  *out << verb.name;
}

constexpr Verb kVerbs[] = {
    {"DISKPART_Active", [] { return velkora::DISKPART_Active(3, 12); },
     "select disk 3\r\nselect part 12\r\nactive\r\n"},
    {"DISKPART_Assign", [] { return velkora::DISKPART_Assign(3, 2, "S"); },
     "select disk 3\r\nlist part\r\nselect part 2\r\nassign letter=S\r\n", true},
    {"DISKPART_Clean", [] { return velkora::DISKPART_Clean(4294967295); },
     "select disk 4294967295\r\nclean\r\n"},
    {"DISKPART_Convert", [] { return velkora::DISKPART_Convert(1, "gpt"); },
     "select disk 1\r\nconvert gpt\r\n"},
    {"DISKPART_CreateEFI", [] { return velkora::DISKPART_CreateEFI(1, 18446744073709551615ULL); },
     "select disk 1\r\ncreate part efi size=18446744073709551615\r\n"},
    {"DISKPART_Format", [] { return velkora::DISKPART_Format(1, 4294967295, "fat32", true); },
     "select disk 1\r\nselect part 4294967295\r\nformat fs=fat32 quick override\r\n"},
    {"DISKPART_Remove", [] { return velkora::DISKPART_Remove(1, 2, "S"); },
     "select disk 1\r\nselect part 2\r\nremove letter=S\r\n"},
    {"DISKPART_Rescan", [] { return velkora::DISKPART_Rescan(); }, "rescan\r\n"},
    {"DISKPART_offlinedisk", [] { return velkora::DISKPART_offlinedisk(7); },
     "select disk 7\r\noffline disk\r\n"},
    {"DISKPART_onlinedisk", [] { return velkora::DISKPART_onlinedisk(7); },
     "select disk 7\r\nonline disk\r\n"},
};

class DiskpartVerb : public DiskpartTest, public ::testing::WithParamInterface<Verb> {
 protected:
  // What every run of the verb logs before diskpart starts.
  static Log Opening() {
    const Verb& verb = GetParam();
    Log lines = {{1, std::string(verb.name) + " Begin..."}};
    if (verb.logs_script) lines.push_back({1, std::string("cmd: ") + verb.script});
    return lines;
  }
  static LogLine Success() { return {1, std::string(GetParam().name) + " Success!"}; }
  static LogLine Failed() { return {3, std::string(GetParam().name) + " Failed!"}; }
};

INSTANTIATE_TEST_SUITE_P(Verbs, DiskpartVerb, ::testing::ValuesIn(kVerbs), [](const auto& test) {
  std::string name = test.param.name;
  std::erase(name, '_');
  return name;
});

TEST_P(DiskpartVerb, WritesItsScriptAndSucceedsWithStatusZero) {
  ScriptDiskpart(0);
  RunAsSystem();
  EXPECT_TRUE(GetParam().run());
  EXPECT_EQ(LogsFileText("DISKPART_cmd.log"), GetParam().script);
  EXPECT_EQ(shell_lines_, Texts{std::string("system: ") + kLine});
  Log expected = Opening();
  expected.push_back(Success());
  EXPECT_EQ(log_, expected);
}

TEST_P(DiskpartVerb, FailsWithAnyOtherStatus) {
  ScriptDiskpart(0x80042405);
  RunAsSystem();
  EXPECT_FALSE(GetParam().run());
  Log expected = Opening();
  expected.push_back(Failed());
  EXPECT_EQ(log_, expected);
}

TEST_P(DiskpartVerb, FailsOnTheElevatedRouteWithTheLineOfTheRun) {
  ScriptDiskpart(87);
  EXPECT_FALSE(GetParam().run());
  const std::string last_error = std::to_string(win32::GetLastError());
  EXPECT_EQ(shell_lines_, Texts{std::string("elevated: /c ") + kLine});
  Log expected = Opening();
  expected.push_back({3, "GetExitCodeProcess fail, error: 87, last error: " + last_error});
  expected.push_back(Failed());
  EXPECT_EQ(log_, expected);
}

TEST_P(DiskpartVerb, RunsNothingWhenTheScriptCannotBeOpened) {
  machine_.calls().FailOn("_wfopen_s/DISKPART_cmd.log", 1, 13);
  EXPECT_FALSE(GetParam().run());
  EXPECT_EQ(shell_lines_, Texts{});
  Log expected = Opening();
  expected.push_back({3, "File not open: X:\\logs\\DISKPART_cmd.log"});
  expected.push_back(Failed());
  EXPECT_EQ(log_, expected);
}

// ---- The driver --------------------------------------------------------------------------------

class DiskpartRunScript : public DiskpartTest {};

TEST_F(DiskpartRunScript, GoesThroughTheShellForASystemDisk) {
  ScriptDiskpart(0);
  RunAsSystem();
  EXPECT_TRUE(velkora::DISKPART_RunScript("rescan\r\n"));
  EXPECT_EQ(shell_lines_, Texts{std::string("system: ") + kLine});
  EXPECT_EQ(machine_.calls().Count("ShellExecuteExW"), 0U);
  EXPECT_EQ(machine_.handles().Open(), Texts{});
  EXPECT_EQ(log_, Log{});
}

TEST_F(DiskpartRunScript, GoesThroughRunasForADataDisk) {
  ScriptDiskpart(0);
  EXPECT_TRUE(velkora::DISKPART_RunScript("rescan\r\n"));
  EXPECT_EQ(shell_lines_, Texts{std::string("elevated: /c ") + kLine});
  EXPECT_EQ(machine_.calls().Count("system"), 0U);
  EXPECT_EQ(machine_.calls().Count("ShellExecuteExW/cmd.exe"), 1U);
  EXPECT_EQ(machine_.handles().Open(), Texts{"process"});
  EXPECT_EQ(log_, Log{});
}

TEST_F(DiskpartRunScript, HandsTheScriptOverUnchanged) {
  RunAsSystem();
  EXPECT_TRUE(velkora::DISKPART_RunScript("rescan\r\n"));
  EXPECT_EQ(scripts_, Texts{"rescan\r\n"});
}

TEST_F(DiskpartRunScript, WritesTheScriptWithOneCallIntoAnEmptiedFile) {
  ScriptDiskpart(0);
  EXPECT_TRUE(velkora::DISKPART_RunScript("rescan\r\n"));
  const std::vector<std::string> lines = machine_.calls().Lines();
  ASSERT_GE(lines.size(), 3U);
  EXPECT_EQ(lines[0], "_wfopen_s/DISKPART_cmd.log wb+");
  EXPECT_EQ(lines[1], "fwrite 8 of 1 bytes");
  EXPECT_EQ(lines[2], "fclose");
}

TEST_F(DiskpartRunScript, LaterRunReplacesTheScriptAndAddsToTheResult) {
  RunAsSystem();
  ScriptDiskpart(0, "first\r\n");
  EXPECT_TRUE(velkora::DISKPART_Clean(1));
  ScriptDiskpart(0, "second\r\n");
  EXPECT_TRUE(velkora::DISKPART_Rescan());
  EXPECT_EQ(LogsFileText("DISKPART_cmd.log"), "rescan\r\n");
  EXPECT_EQ(LogsFileText("DISKPART_result.log"), "first\r\nsecond\r\n");
}

TEST_F(DiskpartRunScript, ErrorTextWithStatusZeroIsASuccess) {
  ScriptDiskpart(0, "Virtual Disk Service error:\r\nThe object is not found.\r\n");
  EXPECT_TRUE(velkora::DISKPART_RunScript("rescan\r\n"));
  EXPECT_EQ(LogsFileText("DISKPART_result.log"),
            "Virtual Disk Service error:\r\nThe object is not found.\r\n");
}

TEST_F(DiskpartRunScript, RejectedLastLineFailsThoughEarlierLinesTookEffect) {
  simulator::Disk& disk = NewDisk(1, 64 * kMiB);
  WriteMbr(disk, {{7, 2048, 30720}});
  machine_.UpdateProperties(disk);
  RunAsSystem();
  EXPECT_FALSE(velkora::DISKPART_RunScript("select disk 1\r\nclean\r\nselect part 9\r\n"));
  EXPECT_EQ(ReadSector(disk, 0), Sector{});
}

TEST_F(DiskpartRunScript, FolderThatDoesNotExistRunsNothing) {
  velkora::GetGlobalContext().logs_folder = "X:\\missing";
  EXPECT_FALSE(velkora::DISKPART_Rescan());
  EXPECT_EQ(shell_lines_, Texts{});
  EXPECT_EQ(log_, (Log{{1, "DISKPART_Rescan Begin..."},
                       {3, "File not open: X:\\missing\\DISKPART_cmd.log"},
                       {3, "DISKPART_Rescan Failed!"}}));
}

TEST_F(DiskpartRunScript, ResultFileThatCannotBeOpenedIsSilentThroughTheShell) {
  std::filesystem::create_directory(LogsFile("DISKPART_result.log"));
  RunAsSystem();
  EXPECT_FALSE(velkora::DISKPART_Rescan());
  EXPECT_EQ(scripts_, Texts{});
  EXPECT_EQ(log_, (Log{{1, "DISKPART_Rescan Begin..."}, {3, "DISKPART_Rescan Failed!"}}));
}

TEST_F(DiskpartRunScript, ResultFileThatCannotBeOpenedIsTheInterpretersStatusElsewhere) {
  std::filesystem::create_directory(LogsFile("DISKPART_result.log"));
  EXPECT_FALSE(velkora::DISKPART_Rescan());
  const std::string last_error = std::to_string(win32::GetLastError());
  EXPECT_EQ(scripts_, Texts{});
  EXPECT_EQ(log_, (Log{{1, "DISKPART_Rescan Begin..."},
                       {3, "GetExitCodeProcess fail, error: 1, last error: " + last_error},
                       {3, "DISKPART_Rescan Failed!"}}));
}

TEST_F(DiskpartRunScript, ShellThatCannotBeStartedIsSilent) {
  ScriptDiskpart(0);
  RunAsSystem();
  machine_.calls().FailOn("system", 1, 2);
  EXPECT_FALSE(velkora::DISKPART_Rescan());
  EXPECT_EQ(shell_lines_, Texts{});
  EXPECT_EQ(log_, (Log{{1, "DISKPART_Rescan Begin..."}, {3, "DISKPART_Rescan Failed!"}}));
}

TEST_F(DiskpartRunScript, RefusedRunasIsLogged) {
  ScriptDiskpart(0);
  machine_.calls().FailOn("ShellExecuteExW", 1, ERROR_CANCELLED);
  EXPECT_FALSE(velkora::DISKPART_Rescan());
  EXPECT_EQ(log_, (Log{{1, "DISKPART_Rescan Begin..."},
                       {3, "ShellExecuteExW fail"},
                       {3, "DISKPART_Rescan Failed!"}}));
}

TEST_F(DiskpartRunScript, ResultsOfWritingAndClosingAreNotLookedAt) {
  ScriptDiskpart(0);
  machine_.calls().FailOn("fwrite", 1, 112);
  machine_.calls().FailOn("fclose", 1, 112);
  EXPECT_TRUE(velkora::DISKPART_RunScript("rescan\r\n"));
  EXPECT_EQ(LogsFileText("DISKPART_cmd.log"), "");
  EXPECT_EQ(shell_lines_.size(), 1U);
}

TEST_F(DiskpartRunScript, DoesNotLookAtAStop) {
  ScriptDiskpart(0);
  velkora::GetGlobalContext().stop_requested = 1;
  EXPECT_TRUE(velkora::DISKPART_Rescan());
}

// ---- Texts and folders -------------------------------------------------------------------------

class DiskpartTexts : public DiskpartTest {
 protected:
  // Runs a rescan with `folder` as the logs folder on both routes and compares their lines.
  void ExpectLineOnBothRoutes(const std::string& folder, const std::string& line) {
    velkora::GetGlobalContext().logs_folder = folder;
    RunAsSystem();
    EXPECT_TRUE(velkora::DISKPART_Rescan());
    velkora::GetGlobalContext().is_system = 0;
    EXPECT_TRUE(velkora::DISKPART_Rescan());
    EXPECT_EQ(shell_lines_, (Texts{"system: " + line, "elevated: /c " + line}));
    EXPECT_EQ(scripts_, (Texts{"rescan\r\n", "rescan\r\n"}));
  }
};

TEST_F(DiskpartTexts, SlowFormatLeavesOutQuick) {
  ScriptDiskpart(0);
  EXPECT_TRUE(velkora::DISKPART_Format(1, 2, "ntfs", false));
  EXPECT_EQ(LogsFileText("DISKPART_cmd.log"),
            "select disk 1\r\nselect part 2\r\nformat fs=ntfs override\r\n");
}

TEST_F(DiskpartTexts, EmptyLetterIsSentAsItIs) {
  ScriptDiskpart(0);
  EXPECT_TRUE(velkora::DISKPART_Assign(1, 2, ""));
  EXPECT_EQ(LogsFileText("DISKPART_cmd.log"),
            "select disk 1\r\nlist part\r\nselect part 2\r\nassign letter=\r\n");
}

TEST_F(DiskpartTexts, LetterIsNotChecked) {
  ScriptDiskpart(0);
  EXPECT_TRUE(velkora::DISKPART_Remove(1, 2, "Z: all"));
  EXPECT_EQ(LogsFileText("DISKPART_cmd.log"),
            "select disk 1\r\nselect part 2\r\nremove letter=Z: all\r\n");
}

TEST_F(DiskpartTexts, FolderWithATrailingBackslashGivesDoubledOnes) {
  ExpectLineOnBothRoutes("X:\\logs\\",
                         "diskpart /s \"X:\\logs\\\\DISKPART_cmd.log\" >> "
                         "\"X:\\logs\\\\DISKPART_result.log\"");
  EXPECT_EQ(LogsFileText("DISKPART_cmd.log"), "rescan\r\n");
}

TEST_F(DiskpartTexts, EmptyFolderIsTheRootOfTheCurrentDrive) {
  ExpectLineOnBothRoutes("", "diskpart /s \"\\DISKPART_cmd.log\" >> \"\\DISKPART_result.log\"");
  EXPECT_TRUE(std::filesystem::exists(HostFile("X:\\DISKPART_cmd.log")));
  EXPECT_TRUE(std::filesystem::exists(HostFile("X:\\DISKPART_result.log")));
}

TEST_F(DiskpartTexts, FolderWithBlanksStaysWhole) {
  std::filesystem::create_directory(HostFile("X:\\all logs"));
  ExpectLineOnBothRoutes("X:\\all logs",
                         "diskpart /s \"X:\\all logs\\DISKPART_cmd.log\" >> "
                         "\"X:\\all logs\\DISKPART_result.log\"");
}

TEST_F(DiskpartTexts, FolderThatIsNotAsciiReachesBothRoutes) {
  const std::string folder =
      "X:\\gr\xC3\xBC\xC3\x9F"
      "e";
  std::filesystem::create_directory(HostFile(folder));
  ExpectLineOnBothRoutes(folder, "diskpart /s \"" + folder + "\\DISKPART_cmd.log\" >> \"" + folder +
                                     "\\DISKPART_result.log\"");
  EXPECT_TRUE(std::filesystem::exists(HostFile(folder + "\\DISKPART_result.log")));
}

TEST_F(DiskpartTexts, FolderThatIsNotUtf8RaisesARangeError) {
  velkora::GetGlobalContext().logs_folder = "X:\\gr\xFC";
  EXPECT_THROW(velkora::DISKPART_Rescan(), std::range_error);
  EXPECT_EQ(shell_lines_, Texts{});
}

}  // namespace
}  // namespace testing_support
