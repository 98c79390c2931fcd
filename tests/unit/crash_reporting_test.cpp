#include "frame/crash_reporting.h"

#include <algorithm>
#include <fstream>
#include <gtest/gtest.h>
#include <new>
#include <string>

#include "frame/global_context.h"
#include "frame/velkora_sdk.h"
#include "platform/guard.h"
#include "platform/win32.h"
#include "simulator/crash_sender.h"
#include "support/machine_fixture.h"

namespace velkora {
namespace {

using namespace testing_support;

constexpr char kDump[] = "VelkoraSDK_v1, 0, 0, 20-d-5130b0fa.dmp";

// ---- The sender ---------------------------------------------------------------------------------

class CrashSenderSetUp : public MachineTest {
 protected:
  const simulator::CrashSender& sender() const { return machine_.crash_sender; }
};

TEST_F(CrashSenderSetUp, TheSenderGetsTextsTypeAndCallback) {
  machine_.crash_sender.dump_type = 0x8002;
  EXPECT_EQ(InitCrashReporting("base \xC3\xA4", "program", "1.2"), 0);
  EXPECT_EQ(sender().senders_made, 1U);
  EXPECT_EQ(sender().database, "base \xC3\xA4");
  EXPECT_EQ(sender().application, "program");
  EXPECT_EQ(sender().version, "1.2");
  EXPECT_FALSE(sender().has_fourth_text);
  EXPECT_EQ(sender().flags, 21U);
  EXPECT_EQ(sender().dump_type, 0x8002U | 0x1174U);
  EXPECT_EQ(sender().callback, &OnCrashEvent);
  EXPECT_NE(crash_sender, nullptr);
  EXPECT_TRUE(log_.empty());
}

TEST_F(CrashSenderSetUp, TheCallsStandInThisOrder) {
  InitCrashReporting("base", "program", "1.2");
  Texts names;
  for (const simulator::Call& call : machine_.calls().calls()) names.push_back(call.name);
  EXPECT_EQ(names,
            (Texts{"NewMiniDmpSender", "getMiniDumpType", "setMiniDumpType", "setCallback"}));
}

TEST_F(CrashSenderSetUp, EachOfTheSixBitsIsAddedToTheType) {
  InitCrashReporting("base", "program", "1.2");
  EXPECT_EQ(sender().dump_type, 0x4U | 0x10U | 0x20U | 0x40U | 0x100U | 0x1000U);
}

TEST_F(CrashSenderSetUp, ASecondSetUpLeavesTheFirstSenderBehind) {
  InitCrashReporting("base", "program", "1.2");
  win32::MiniDmpSender* const first = crash_sender;
  InitCrashReporting("base", "program", "1.3");
  EXPECT_EQ(sender().senders_made, 2U);
  EXPECT_NE(crash_sender, first);
}

TEST_F(CrashSenderSetUp, TheLibrarysStartSetsItUpUnderItsOwnNames) {
  DestroyVelkoraSDK(InitVelkoraSDK(nullptr, "X:\\logs", nullptr, nullptr));
  EXPECT_EQ(sender().database, "Kestrix_Win");
  EXPECT_EQ(sender().application, "VelkoraSDK");
  EXPECT_EQ(sender().version, "1, 0, 0, 20-d-5130b0fa");
  EXPECT_EQ(sender().callback, &OnCrashEvent);
}

// ---- Attachments --------------------------------------------------------------------------------

class CrashAttachments : public MachineTest {
 protected:
  CrashAttachments() {
    InitCrashReporting("base", "program", "1.2");
    machine_.calls().Clear();
  }
  void AddFile(const std::string& name) const {
    std::ofstream(logs_folder_ / std::u8string(name.begin(), name.end())) << name;
  }
  Texts Attached() const {
    Texts files = machine_.crash_sender.attachments;
    std::sort(files.begin(), files.end());
    return files;
  }
  // The root of a drive of its own, which lists no "." and "..".
  void UseDriveRoot(const Texts& names) {
    const std::filesystem::path root = folder_.path() / "root";
    std::filesystem::create_directory(root);
    for (const std::string& name : names) std::ofstream(root / name) << name;
    machine_.MapFolder('Y', root);
    GetGlobalContext().logs_folder = "Y:";
  }
};

// The vendor's thread knows no exceptions of ours.
TEST_F(CrashAttachments, AFolderThatIsNoUtf8AttachesNothingAndRaisesNothing) {
  AddFile("a.log");
  GetGlobalContext().logs_folder = "X:\\logs\xFF";
  EXPECT_NO_THROW(AddLogFilesToReport());
  EXPECT_TRUE(Attached().empty());
  EXPECT_EQ(machine_.calls().Count("FindFirstFileW"), 0U);
}

TEST_F(CrashAttachments, TheOneCodeAttachesTheFolderAndIsAnsweredWithNo) {
  AddFile("a.log");
  EXPECT_FALSE(machine_.crash_sender.Tell(80));
  EXPECT_EQ(Attached(), (Texts{"X:\\logs\\a.log"}));
  EXPECT_EQ(machine_.crash_sender.reports, 0U);
}

TEST_F(CrashAttachments, EveryOtherCodeIsIgnored) {
  AddFile("a.log");
  for (const std::uint32_t code : {0u, 1u, 79u, 81u, 0x50u << 8, 0x100u + 80u, 0xFFFFFFFFu}) {
    EXPECT_FALSE(OnCrashEvent(code, nullptr, nullptr));
  }
  EXPECT_TRUE(machine_.calls().calls().empty());
}

TEST_F(CrashAttachments, FilesOfEveryKindAndFoldersAreAttached) {
  AddFile("DISKPART_result.log");
  AddFile("without extension");
  AddFile("\xC3\xA4.txt");
  AddFile(kDump);
  std::filesystem::create_directory(LogsFile("folder"));
  AddLogFilesToReport();
  EXPECT_EQ(Attached(),
            (Texts{"X:\\logs\\DISKPART_result.log", std::string("X:\\logs\\") + kDump,
                   "X:\\logs\\folder", "X:\\logs\\without extension", "X:\\logs\\\xC3\xA4.txt"}));
  EXPECT_EQ(machine_.calls().Count("FindFirstFileW/X:\\logs\\*"), 1U);
  EXPECT_EQ(machine_.calls().Count("FindClose"), 1U);
  EXPECT_TRUE(machine_.handles().Open().empty());
}

TEST_F(CrashAttachments, NamesThatBeginWithADotAreSkipped) {
  AddFile(".hidden");
  AddFile("..double");
  AddFile("visible.log");
  AddLogFilesToReport();
  EXPECT_EQ(Attached(), (Texts{"X:\\logs\\visible.log"}));
}

TEST_F(CrashAttachments, AnEmptyFolderAttachesNothing) {
  AddLogFilesToReport();
  EXPECT_TRUE(Attached().empty());
  EXPECT_TRUE(machine_.handles().Open().empty());
  EXPECT_TRUE(log_.empty());
}

TEST_F(CrashAttachments, AMissingFolderAttachesNothing) {
  GetGlobalContext().logs_folder = "X:\\missing";
  AddLogFilesToReport();
  EXPECT_TRUE(Attached().empty());
  EXPECT_EQ(machine_.calls().Count("FindNextFileW"), 0U);
  EXPECT_EQ(machine_.calls().Count("FindClose"), 0U);
  EXPECT_TRUE(log_.empty());
}

TEST_F(CrashAttachments, TheOnlyFileOfADrivesRootIsLost) {
  UseDriveRoot({"only.log"});
  AddLogFilesToReport();
  EXPECT_TRUE(Attached().empty());
  EXPECT_EQ(machine_.calls().Count("FindFirstFileW/Y:\\*"), 1U);
}

TEST_F(CrashAttachments, OfTheFilesInADrivesRootTheFirstIsLost) {
  UseDriveRoot({"a.log", "b.log", "c.log"});
  AddLogFilesToReport();
  EXPECT_EQ(Attached().size(), 2U);
}

TEST_F(CrashAttachments, AListingThatBreaksOffIsClosed) {
  AddFile("a.log");
  machine_.calls().FailOn("FindNextFileW", 1, 5);
  AddLogFilesToReport();
  EXPECT_TRUE(Attached().empty());
  EXPECT_TRUE(machine_.handles().Open().empty());
}

// ---- One dump -----------------------------------------------------------------------------------

class DumpOnce : public MachineTest {
 protected:
  DumpOnce() { pointers_.ExceptionRecord = &record_; }
  std::size_t Dumps() { return machine_.calls().Count("MiniDumpWriteDump"); }

  EXCEPTION_RECORD record_{};
  EXCEPTION_POINTERS pointers_{};
};

TEST_F(DumpOnce, TheFirstFaultIsWrittenUnderTheVersionsName) {
  EXPECT_EQ(DumpOnceFilter(&pointers_), 1);
  EXPECT_EQ(dump_written, 1);
  EXPECT_EQ(LogsFileText(kDump).substr(0, 4), "MDMP");
  EXPECT_EQ(machine_.calls().Count(std::string("CreateFileW/X:\\logs\\") + kDump), 1U);
  EXPECT_TRUE(log_.empty());
}

TEST_F(DumpOnce, ASecondFaultWritesNoSecondFile) {
  DumpOnceFilter(&pointers_);
  std::filesystem::remove(LogsFile(kDump));
  machine_.calls().Clear();
  EXPECT_EQ(DumpOnceFilter(&pointers_), 1);
  EXPECT_TRUE(machine_.calls().calls().empty());
  EXPECT_FALSE(std::filesystem::exists(LogsFile(kDump)));
  EXPECT_EQ(dump_written, 1);
}

TEST_F(DumpOnce, TheGuardsHandlerRunsAtEveryFault) {
  for (int i = 0; i < 3; ++i) {
    auto body = [] { win32::RaiseFault(EXCEPTION_ACCESS_VIOLATION); };
    EXPECT_FALSE(win32::Guarded(body, DumpOnceFilter)) << i;
  }
  EXPECT_EQ(Dumps(), 1U);
}

TEST_F(DumpOnce, AFaultAfterAFailedDumpTriesAgain) {
  machine_.calls().FailOn("MiniDumpWriteDump");
  EXPECT_EQ(DumpOnceFilter(&pointers_), 1);
  EXPECT_EQ(dump_written, 0);
  EXPECT_EQ(DumpOnceFilter(&pointers_), 1);
  EXPECT_EQ(Dumps(), 2U);
  EXPECT_EQ(dump_written, 1);
}

TEST_F(DumpOnce, AFaultAfterADumpThatNeverBeganTriesAgain) {
  for (const char* call : {"LoadLibraryW", "GetProcAddress", "CreateFileW"}) {
    machine_.calls().FailOn(call);
    EXPECT_EQ(DumpOnceFilter(&pointers_), 1) << call;
    EXPECT_EQ(dump_written, 0) << call;
  }
  EXPECT_EQ(Dumps(), 0U);
  EXPECT_EQ(DumpOnceFilter(&pointers_), 1);
  EXPECT_EQ(dump_written, 1);
  EXPECT_TRUE(log_.empty());
}

// Wherever it runs out, up to the writing itself.
TEST_F(DumpOnce, LackOfMemoryIsAFailedDumpAndTheGuardsHandlerRuns) {
  for (std::size_t call = 1; call <= 4; ++call) {
    SCOPED_TRACE(call);
    dump_written = 0;
    machine_.calls().Clear();
    machine_.calls().on_call = [call](std::size_t number) {
      if (number == call) throw std::bad_alloc();
    };
    auto body = [] { win32::RaiseFault(EXCEPTION_ACCESS_VIOLATION); };
    EXPECT_FALSE(win32::Guarded(body, DumpOnceFilter));
    EXPECT_EQ(dump_written, 0);
    machine_.calls().on_call = nullptr;
    EXPECT_FALSE(win32::Guarded(body, DumpOnceFilter)) << "the next fault tries again";
    EXPECT_EQ(dump_written, 1);
  }
  EXPECT_TRUE(log_.empty());
}

TEST_F(DumpOnce, AnEarlierProcesssFileIsReplaced) {
  std::ofstream(LogsFile(kDump)) << std::string(100'000, 'x');
  std::uint8_t written = 0;
  EXPECT_EQ(WriteDumpToLogsFolder(&pointers_, &written), 1);
  EXPECT_EQ(written, 1);
  EXPECT_EQ(dump_written, 0) << "the caller's flag is the one that is set";
  EXPECT_LT(LogsFileText(kDump).size(), 100'000U);
}

TEST_F(DumpOnce, ALogsFolderThatIsNoUtf8HasNoDump) {
  GetGlobalContext().logs_folder = "X:\\\xFF";
  std::uint8_t written = 7;
  EXPECT_EQ(WriteDumpToLogsFolder(&pointers_, &written), -1);
  EXPECT_EQ(written, 7);
  EXPECT_EQ(machine_.calls().Count("CreateFileW"), 0U);
}

TEST_F(DumpOnce, AMissingLogsFolderHasNoDump) {
  GetGlobalContext().logs_folder = "X:\\missing";
  std::uint8_t written = 7;
  EXPECT_EQ(WriteDumpToLogsFolder(&pointers_, &written), -1);
  EXPECT_EQ(written, 7);
  EXPECT_EQ(WriteDumpToLogsFolder(&pointers_, nullptr), -1);
}

}  // namespace
}  // namespace velkora
