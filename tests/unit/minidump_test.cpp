#include "frame/minidump.h"

#include <fstream>
#include <gtest/gtest.h>
#include <string>

#include "platform/win32.h"
#include "support/machine_fixture.h"

namespace velkora {
namespace {

using namespace testing_support;

constexpr char kPath[] = "X:\\logs\\crash.dmp";

class Minidump : public MachineTest {
 protected:
  Minidump() {
    record_.ExceptionCode = EXCEPTION_ACCESS_VIOLATION;
    pointers_.ExceptionRecord = &record_;
  }
  std::int32_t Write() { return WriteDump(&pointers_, kPath, &written_); }
  Texts CallNames() {
    Texts names;
    for (const simulator::Call& call : machine_.calls().calls()) names.push_back(call.name);
    return names;
  }
  std::uint64_t Number(std::size_t offset, std::size_t width) const {
    const std::string text = LogsFileText("crash.dmp");
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < width; ++i) {
      value |= std::uint64_t{static_cast<unsigned char>(text.at(offset + i))} << (8 * i);
    }
    return value;
  }

  EXCEPTION_RECORD record_{};
  EXCEPTION_POINTERS pointers_{};
  std::uint8_t written_ = 7;
};

TEST_F(Minidump, LoadsTheWriterOpensTheFileAndClosesBoth) {
  EXPECT_EQ(Write(), 1);
  EXPECT_EQ(written_, 1);
  const Texts calls = machine_.calls().Lines();
  ASSERT_EQ(calls.size(), 6U);
  EXPECT_EQ(calls[0], "LoadLibraryW/DbgHelp.dll");
  EXPECT_EQ(calls[1], "GetProcAddress/MiniDumpWriteDump");
  EXPECT_EQ(calls[2],
            "CreateFileW/X:\\logs\\crash.dmp access 0xc0000000 share 0x3 disposition 2 flags 0x0");
  EXPECT_EQ(machine_.calls().calls()[3].name, "MiniDumpWriteDump");
  EXPECT_TRUE(calls[3].ends_with("type 0x8")) << calls[3];
  EXPECT_EQ(CallNames()[4], "CloseHandle");
  EXPECT_EQ(calls[5], "FreeLibrary/DbgHelp.dll");
  EXPECT_TRUE(machine_.handles().Open().empty());
  EXPECT_TRUE(log_.empty());
}

TEST_F(Minidump, NamesTheFaultAndTheThreadThatTookIt) {
  EXPECT_EQ(Write(), 1);
  EXPECT_EQ(LogsFileText("crash.dmp").substr(0, 4), "MDMP");
  EXPECT_EQ(Number(8, 4), 1U) << "one stream";
  EXPECT_EQ(Number(24, 8), 8U) << "filtered memory";
  EXPECT_EQ(Number(44, 4), win32::GetCurrentThreadId());
  EXPECT_EQ(Number(52, 4), EXCEPTION_ACCESS_VIOLATION);
}

TEST_F(Minidump, WithoutPointersThereIsNoException) {
  EXPECT_EQ(WriteDump(nullptr, kPath, &written_), 1);
  EXPECT_EQ(written_, 1);
  EXPECT_EQ(Number(8, 4), 0U);
}

TEST_F(Minidump, TheResultNeedNotBeAskedFor) {
  EXPECT_EQ(WriteDump(&pointers_, kPath, nullptr), 1);
  EXPECT_EQ(LogsFileText("crash.dmp").substr(0, 4), "MDMP");
}

TEST_F(Minidump, AFormerFileIsReplaced) {
  std::ofstream(LogsFile("crash.dmp")) << std::string(100'000, 'x');
  EXPECT_EQ(Write(), 1);
  const std::string text = LogsFileText("crash.dmp");
  EXPECT_EQ(text.substr(0, 4), "MDMP");
  EXPECT_LT(text.size(), 100'000U);
}

TEST_F(Minidump, ThePathIsUtf8) {
  EXPECT_EQ(WriteDump(&pointers_, "X:\\logs\\\xC3\xA4.dmp", &written_), 1);
  EXPECT_EQ(machine_.calls().Count("CreateFileW/X:\\logs\\\xC3\xA4.dmp"), 1U);
}

// ---- Steps that fail ----------------------------------------------------------------------------

TEST_F(Minidump, WithoutTheLibraryNothingIsOpened) {
  machine_.libraries.clear();
  EXPECT_EQ(Write(), -1);
  EXPECT_EQ(CallNames(), (Texts{"LoadLibraryW"}));
  EXPECT_EQ(written_, 7);
  EXPECT_TRUE(log_.empty());
}

TEST_F(Minidump, WithoutTheFunctionTheLibraryIsFreed) {
  machine_.libraries["dbghelp.dll"].clear();
  EXPECT_EQ(Write(), -1);
  EXPECT_EQ(CallNames(), (Texts{"LoadLibraryW", "GetProcAddress", "FreeLibrary"}));
  EXPECT_EQ(written_, 7);
  EXPECT_TRUE(machine_.handles().Open().empty());
}

TEST_F(Minidump, WithoutTheFileTheLibraryIsFreed) {
  EXPECT_EQ(WriteDump(&pointers_, "X:\\missing\\crash.dmp", &written_), -1);
  EXPECT_EQ(CallNames(), (Texts{"LoadLibraryW", "GetProcAddress", "CreateFileW", "FreeLibrary"}));
  EXPECT_EQ(written_, 7);
  EXPECT_TRUE(machine_.handles().Open().empty());
}

TEST_F(Minidump, APathThatIsNoUtf8OpensNothing) {
  EXPECT_EQ(WriteDump(&pointers_, "X:\\logs\\\xFF.dmp", &written_), -1);
  EXPECT_EQ(CallNames(), (Texts{"LoadLibraryW", "GetProcAddress", "FreeLibrary"}));
  EXPECT_EQ(written_, 7);
}

TEST_F(Minidump, EachFailingCallInFrontOfTheWriterGivesTheSame) {
  for (const char* call : {"LoadLibraryW", "GetProcAddress", "CreateFileW"}) {
    machine_.calls().FailOn(call);
    EXPECT_EQ(Write(), -1) << call;
    EXPECT_EQ(written_, 7) << call;
    EXPECT_TRUE(machine_.handles().Open().empty()) << call;
  }
  EXPECT_EQ(machine_.calls().Count("MiniDumpWriteDump"), 0U);
  EXPECT_EQ(Write(), 1);
}

TEST_F(Minidump, AWriterThatFailsWasCalled) {
  machine_.calls().FailOn("MiniDumpWriteDump");
  EXPECT_EQ(Write(), 1);
  EXPECT_EQ(written_, 0);
  EXPECT_TRUE(machine_.handles().Open().empty());
  EXPECT_TRUE(log_.empty());
}

}  // namespace
}  // namespace velkora
