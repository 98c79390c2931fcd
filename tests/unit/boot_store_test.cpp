#include "boot/boot_store.h"

#include <fstream>

#include "frame/global_context.h"
#include "platform/win32.h"
#include "support/machine_fixture.h"

namespace testing_support {
namespace {

const std::string kTail = " >> \"X:\\logs\\BCDBOOT_result.log\"";
const std::string kUefiLine = "bcdboot /v C:\\Windows /s X: /f uefi" + kTail;
const std::string kBiosLine = "bcdboot /v C:\\Windows /s X: /f bios" + kTail;
const std::string kPlainLine = "bcdboot /v C:\\Windows /s X:" + kTail;

// Drive X is the boot volume.
class RecoverBcd : public MachineTest {
 protected:
  RecoverBcd() {
    velkora::GetGlobalContext().is_system = 1;
    Script(0);
  }

  // Makes bcdboot end with `exit_status`, keep the arguments and see whether the stores are there.
  void Script(DWORD exit_status) {
    machine_.SetCommand("bcdboot", [this, exit_status](auto&, const Texts& arguments) {
      arguments_ = arguments;
      uefi_store_at_run_ = std::filesystem::exists(uefi_store_);
      bios_store_at_run_ = std::filesystem::exists(bios_store_);
      return simulator::CommandResult{exit_status, "Boot files successfully created.\r\n"};
    });
  }

  static void MakeFile(const std::filesystem::path& path) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path) << "store";
  }
  void MakeBothStores() {
    MakeFile(uefi_store_);
    MakeFile(bios_store_);
  }

  const std::filesystem::path uefi_store_ = folder_.path() / "EFI" / "Microsoft" / "Boot" / "BCD";
  const std::filesystem::path bios_store_ = folder_.path() / "Boot" / "BCD";
  Texts arguments_ = {"not run"};
  bool uefi_store_at_run_ = false;
  bool bios_store_at_run_ = false;
};

// ---- The line -----------------------------------------------------------------------------------

TEST_F(RecoverBcd, UefiForm) {
  MakeBothStores();
  EXPECT_TRUE(velkora::RecoverBcd("C", "X", true, false));
  EXPECT_EQ(arguments_, (Texts{"/v", "C:\\Windows", "/s", "X:", "/f", "uefi"}));
  EXPECT_EQ(shell_lines_, Texts{"system: " + kUefiLine});
  EXPECT_EQ(log_,
            (Log{{1, "RecoverBcd Begin..."}, {1, "cmd=" + kUefiLine}, {1, "RecoverBcd Success!"}}));
}

TEST_F(RecoverBcd, BiosForm) {
  MakeBothStores();
  EXPECT_TRUE(velkora::RecoverBcd("C", "X", false, false));
  EXPECT_EQ(arguments_, (Texts{"/v", "C:\\Windows", "/s", "X:", "/f", "bios"}));
  EXPECT_EQ(log_,
            (Log{{1, "RecoverBcd Begin..."}, {1, "cmd=" + kBiosLine}, {1, "RecoverBcd Success!"}}));
}

TEST_F(RecoverBcd, PlainFormNamesNoFirmware) {
  MakeBothStores();
  EXPECT_TRUE(velkora::RecoverBcd("C", "X", false, true));
  EXPECT_EQ(arguments_, (Texts{"/v", "C:\\Windows", "/s", "X:"}));
  EXPECT_EQ(shell_lines_, Texts{"system: " + kPlainLine});
}

TEST_F(RecoverBcd, UefiOutweighsPlain) {
  MakeBothStores();
  EXPECT_TRUE(velkora::RecoverBcd("C", "X", true, true));
  EXPECT_EQ(shell_lines_, Texts{"system: " + kUefiLine});
  EXPECT_FALSE(uefi_store_at_run_);
}

// ---- The old store ------------------------------------------------------------------------------

TEST_F(RecoverBcd, UefiStoreIsGoneWhenTheToolRuns) {
  MakeBothStores();
  EXPECT_TRUE(velkora::RecoverBcd("C", "X", true, false));
  EXPECT_FALSE(uefi_store_at_run_);
  EXPECT_TRUE(bios_store_at_run_);
}

TEST_F(RecoverBcd, BiosStoreIsGoneWhenTheToolRuns) {
  MakeBothStores();
  EXPECT_TRUE(velkora::RecoverBcd("C", "X", false, false));
  EXPECT_TRUE(uefi_store_at_run_);
  EXPECT_FALSE(bios_store_at_run_);
}

TEST_F(RecoverBcd, MissingStoreIsAWarning) {
  std::filesystem::create_directories(uefi_store_.parent_path());
  EXPECT_TRUE(velkora::RecoverBcd("C", "X", true, false));
  EXPECT_EQ(log_, (Log{{1, "RecoverBcd Begin..."},
                       {2, "Delete Bcd Error! error_code: 2"},
                       {1, "cmd=" + kUefiLine},
                       {1, "RecoverBcd Success!"}}));
}

TEST_F(RecoverBcd, MissingFolderOfTheStoreIsAWarning) {
  EXPECT_TRUE(velkora::RecoverBcd("C", "X", true, false));
  EXPECT_EQ(Lines(2), Texts{"Delete Bcd Error! error_code: 3"});
}

TEST_F(RecoverBcd, StoreThatCannotBeDeletedStopsNothing) {
  MakeBothStores();
  machine_.calls().FailOn("DeleteFileA", 1, ERROR_ACCESS_DENIED);
  EXPECT_TRUE(velkora::RecoverBcd("C", "X", true, false));
  EXPECT_TRUE(uefi_store_at_run_);
  EXPECT_EQ(log_, (Log{{1, "RecoverBcd Begin..."},
                       {2, "Delete Bcd Error! error_code: 5"},
                       {1, "cmd=" + kUefiLine},
                       {1, "RecoverBcd Success!"}}));
}

TEST_F(RecoverBcd, StoreIsLookedForBehindTheBootLetter) {
  velkora::RecoverBcd("X", "Q", true, false);
  EXPECT_EQ(machine_.calls().Count("DeleteFileA/Q:\\EFI\\Microsoft\\Boot\\BCD"), 1U);
  velkora::RecoverBcd("X", "Q", false, false);
  EXPECT_EQ(machine_.calls().Count("DeleteFileA/Q:\\Boot\\BCD"), 1U);
}

// ---- Failures and routes ------------------------------------------------------------------------

TEST_F(RecoverBcd, FailedToolIsAFailureAndTheOldStoreIsGone) {
  MakeBothStores();
  Script(2);
  EXPECT_FALSE(velkora::RecoverBcd("C", "X", true, false));
  EXPECT_EQ(log_,
            (Log{{1, "RecoverBcd Begin..."}, {1, "cmd=" + kUefiLine}, {3, "RecoverBcd fail!"}}));
  EXPECT_FALSE(std::filesystem::exists(uefi_store_));
}

TEST_F(RecoverBcd, NoSecondFirmwareIsTried) {
  Script(1);
  EXPECT_FALSE(velkora::RecoverBcd("C", "X", false, false));
  EXPECT_EQ(shell_lines_, Texts{"system: " + kBiosLine});
}

TEST_F(RecoverBcd, ShellThatCannotBeStartedIsAFailure) {
  machine_.calls().FailOn("system");
  EXPECT_FALSE(velkora::RecoverBcd("C", "X", true, false));
  EXPECT_EQ(arguments_, Texts{"not run"});
  EXPECT_EQ(log_.back(), (LogLine{3, "RecoverBcd fail!"}));
}

TEST_F(RecoverBcd, ResultLogIsAppendedTo) {
  EXPECT_TRUE(velkora::RecoverBcd("C", "X", true, false));
  EXPECT_TRUE(velkora::RecoverBcd("C", "X", true, false));
  EXPECT_EQ(LogsFileText("BCDBOOT_result.log"),
            "Boot files successfully created.\r\nBoot files successfully created.\r\n");
}

// The exit status alone decides, whatever the file says and whether it is there or not.
TEST_F(RecoverBcd, ResultLogIsNeverRead) {
  std::ofstream(LogsFile("BCDBOOT_result.log")) << "Failure when attempting to copy boot files.\n";
  EXPECT_TRUE(velkora::RecoverBcd("C", "X", true, false));
  Script(1);
  EXPECT_FALSE(velkora::RecoverBcd("C", "X", true, false));
  machine_.SetCommand("bcdboot", [this](auto&, const Texts&) {
    std::error_code in_use;  // Windows keeps a file that the line's redirection has open
    std::filesystem::remove(LogsFile("BCDBOOT_result.log"), in_use);
    return simulator::CommandResult{0, ""};
  });
  EXPECT_TRUE(velkora::RecoverBcd("C", "X", true, false));
  for (const std::string open : {"CreateFileA", "CreateFileW", "fopen", "_wfopen_s", "fread"}) {
    EXPECT_EQ(machine_.calls().Count(open), 0U) << open;
  }
  EXPECT_EQ(machine_.calls().Count("DeleteFileA"), 3U);
  EXPECT_EQ(machine_.calls().Count("system"), 3U);
  EXPECT_EQ(machine_.calls().Count("command/bcdboot"), 3U);
  EXPECT_EQ(machine_.calls().calls().size(), 9U);  // so nothing else crosses the seam
}

TEST_F(RecoverBcd, ElevatedInterpreterGetsTheBareLine) {
  velkora::GetGlobalContext().is_system = 0;
  machine_.SetCommand("cmd", [](auto&, const Texts&) { return simulator::CommandResult{0, ""}; });
  EXPECT_TRUE(velkora::RecoverBcd("C", "X", true, false));
  EXPECT_EQ(shell_lines_, Texts{"elevated: " + kUefiLine});
  EXPECT_EQ(arguments_, Texts{"not run"});
}

TEST_F(RecoverBcd, RefusedElevationIsAFailure) {
  MakeBothStores();
  velkora::GetGlobalContext().is_system = 0;
  machine_.calls().FailOn("ShellExecuteExW", 1, ERROR_CANCELLED);
  EXPECT_FALSE(velkora::RecoverBcd("C", "X", true, false));
  EXPECT_EQ(log_, (Log{{1, "RecoverBcd Begin..."},
                       {1, "cmd=" + kUefiLine},
                       {3, "ShellExecuteExW fail"},
                       {3, "RecoverBcd fail!"}}));
}

}  // namespace
}  // namespace testing_support
