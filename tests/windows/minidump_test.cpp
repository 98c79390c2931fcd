// The library's own dump, written by DbgHelp.
#include "frame/minidump.h"

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>

#include "frame/crash_reporting.h"
#include "frame/global_context.h"
#include "platform/guard.h"
#include "support/temp_folder.h"

namespace {

class Minidump : public ::testing::Test {
 protected:
  Minidump() {
    velkora::GetGlobalContext().logs_folder = folder_.path().string();
    velkora::dump_written = 0;
  }

  std::size_t FilesInFolder() const {
    const std::filesystem::directory_iterator files(folder_.path());
    return static_cast<std::size_t>(std::distance(begin(files), end(files)));
  }
  std::string Dump() const {
    return testing_support::TextOf(folder_.path() / "VelkoraSDK_v1, 0, 0, 20-d-5130b0fa.dmp");
  }
  // Writes where no memory is, below the guard and filter of the library.
  static bool Crash() {
    return !win32::Guarded(
        [] {
          static volatile std::uintptr_t address = 16;
          *reinterpret_cast<volatile int*>(address) = 1;
        },
        velkora::DumpOnceFilter);
  }

  testing_support::TempFolder folder_;
};

TEST_F(Minidump, TwoFaultsLeaveOneDump) {
  ASSERT_TRUE(Crash());
  const std::string dump = Dump();
  ASSERT_GE(dump.size(), 32u);
  EXPECT_EQ(dump.substr(0, 4), "MDMP");
  EXPECT_EQ(velkora::dump_written, 1);
  ASSERT_TRUE(Crash());
  EXPECT_EQ(Dump(), dump);
  EXPECT_EQ(FilesInFolder(), 1u);
}

TEST_F(Minidump, WithoutAnExceptionItIsWrittenToo) {
  std::uint8_t written = 0;
  const std::string path = (folder_.path() / "plain.dmp").string();
  EXPECT_EQ(velkora::WriteDump(nullptr, path.c_str(), &written), 1);
  EXPECT_EQ(written, 1);
  std::ifstream file(path, std::ios::binary);
  char mark[4] = {};
  file.read(mark, sizeof mark);
  EXPECT_EQ(std::string(mark, sizeof mark), "MDMP");
}

TEST_F(Minidump, WithoutItsFolderNothingIsWritten) {
  std::uint8_t written = 7;
  const std::string path = (folder_.path() / "absent" / "plain.dmp").string();
  EXPECT_EQ(velkora::WriteDump(nullptr, path.c_str(), &written), -1);
  EXPECT_EQ(written, 7);
}

}  // namespace
