#include "logging/log.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <vector>

#include "platform/win32.h"
#include "support/machine_fixture.h"

namespace velkora {
namespace {

using namespace testing_support;

// What an observer of a test is told, the module included.
struct SeenLine {
  std::string module;
  int level = 0;
  std::string text;
  bool operator==(const SeenLine&) const = default;
};

void Record(void* context, const char* module, int level, const char* text) {
  static_cast<std::vector<SeenLine>*>(context)->push_back({module, level, text});
}

class Log : public MachineTest {
 protected:
  // 2023-11-14 22:13:20 UTC.
  static constexpr std::int64_t kTime = 1'700'000'000;

  Log() { machine_.SetTime(kTime); }

  void OpenFile(const char* name = "SDK") { InitLogEx("X:\\logs", name, &observer_, nullptr); }

  // The file's lines, whatever ends them.
  std::vector<std::string> FileLines(std::string_view name = "SDK.log") const {
    std::vector<std::string> lines;
    std::istringstream text(LogsFileText(name));
    for (std::string line; std::getline(text, line);) {
      if (!line.empty() && line.back() == '\r') line.pop_back();
      lines.push_back(line);
    }
    return lines;
  }

  std::vector<SeenLine> seen_;
  LogObserver observer_{&Record, &seen_};
};

TEST_F(Log, ObserverHearsModuleLevelAndFormattedText) {
  InitLogEx(nullptr, "SDK", &observer_, nullptr);
  LogEx("SDK", kLogWarning, "%s is %d of %llu", "this", 3, 1ULL << 40);
  EXPECT_EQ(seen_, (std::vector<SeenLine>{{"SDK", 2, "this is 3 of 1099511627776"}}));
}

TEST_F(Log, ObserverIsCopied) {
  InitLogEx(nullptr, "SDK", &observer_, nullptr);
  observer_ = LogObserver{nullptr, nullptr};
  LogEx("SDK", kLogProgress, "still seen");
  EXPECT_EQ(seen_.size(), 1U);
}

TEST_F(Log, FileLineHasTimeLevelModuleAndText) {
  OpenFile();
  LogEx("SDK", kLogError, "error %lu", 5UL);
  EXPECT_EQ(FileLines(), (Texts{"2023-11-14 22:13:20Z [3] [SDK] error 5"}));
}

TEST_F(Log, TimeIsThatOfEachLine) {
  OpenFile();
  machine_.SetTime(0);
  LogEx("SDK", kLogProgress, "first");
  machine_.SetTime(1'709'210'096);  // a leap day
  LogEx("SDK", kLogProgress, "second");
  EXPECT_EQ(FileLines(), (Texts{"1970-01-01 00:00:00Z [1] [SDK] first",
                                "2024-02-29 12:34:56Z [1] [SDK] second"}));
}

TEST_F(Log, FileIsNamedByTheNameGiven) {
  OpenFile("other");
  LogEx("SDK", kLogProgress, "text");
  EXPECT_EQ(FileLines("other.log").size(), 1U);
  EXPECT_TRUE(FileLines("SDK.log").empty());
}

TEST_F(Log, LinesAreAppendedToAnExistingFile) {
  std::ofstream(LogsFile("SDK.log"), std::ios::binary) << "an earlier line\n";
  OpenFile();
  LogEx("SDK", kLogProgress, "one");
  OpenFile();
  LogEx("SDK", kLogProgress, "two");
  EXPECT_EQ(FileLines(), (Texts{"an earlier line", "2023-11-14 22:13:20Z [1] [SDK] one",
                                "2023-11-14 22:13:20Z [1] [SDK] two"}));
}

TEST_F(Log, Utf8PassesUnchanged) {
  OpenFile();
  LogEx("SDK", kLogProgress, "%s",
        "D:\\Gr\xC3\xB6\xC3\x9F"
        "e");
  EXPECT_EQ(FileLines(), (Texts{"2023-11-14 22:13:20Z [1] [SDK] D:\\Gr\xC3\xB6\xC3\x9F"
                                "e"}));
}

TEST_F(Log, LinesOfOneCharacterAndOfNoneAreLogged) {
  OpenFile();
  LogEx("SDK", kLogProgress, "%s", "x");
  LogEx("SDK", kLogProgress, "%s", "");
  EXPECT_EQ(seen_, (std::vector<SeenLine>{{"SDK", 1, "x"}, {"SDK", 1, ""}}));
}

TEST_F(Log, LongLinesAreNotCut) {
  OpenFile();
  const std::string text(5000, 'x');
  LogEx("SDK", kLogProgress, "%s", text.c_str());
  EXPECT_EQ(seen_, (std::vector<SeenLine>{{"SDK", 1, text}}));
  EXPECT_EQ(FileLines(), (Texts{"2023-11-14 22:13:20Z [1] [SDK] " + text}));
}

TEST_F(Log, ObserverHearsALineBeforeTheFileHasIt) {
  std::vector<std::size_t> lines_in_file;
  std::function<void()> look = [&] { lines_in_file.push_back(FileLines().size()); };
  const LogObserver observer{[](void* context, const char*, int, const char*) {
                               (*static_cast<std::function<void()>*>(context))();
                             },
                             &look};
  InitLogEx("X:\\logs", "SDK", &observer, nullptr);
  LogEx("SDK", kLogProgress, "one");
  LogEx("SDK", kLogProgress, "two");
  EXPECT_EQ(lines_in_file, (std::vector<std::size_t>{0, 1}));
  EXPECT_EQ(FileLines().size(), 2U);
}

TEST_F(Log, OpeningReplacesTheEarlierLog) {
  OpenFile("first");
  InitLogEx("X:\\logs", "second", nullptr, nullptr);
  LogEx("SDK", kLogProgress, "text");
  EXPECT_TRUE(seen_.empty());
  EXPECT_TRUE(FileLines("first.log").empty());
  EXPECT_EQ(FileLines("second.log").size(), 1U);
}

TEST_F(Log, WithoutAFolderNoFileIsOpened) {
  InitLogEx(nullptr, "SDK", nullptr, nullptr);
  machine_.calls().Clear();
  LogEx("SDK", kLogProgress, "text");
  EXPECT_EQ(machine_.calls().Count("_wfopen_s"), 0U);
  EXPECT_TRUE(FileLines().empty());
}

TEST_F(Log, MissingFolderLosesTheLineSilently) {
  InitLogEx("X:\\missing", "SDK", &observer_, nullptr);
  LogEx("SDK", kLogProgress, "text");
  EXPECT_EQ(seen_.size(), 1U);
  EXPECT_FALSE(std::filesystem::exists(folder_.path() / "missing"));
}

TEST_F(Log, FailedWriteLosesOneLineSilently) {
  OpenFile();
  machine_.calls().FailOn("fwrite", 1, ERROR_DISK_FULL);
  LogEx("SDK", kLogProgress, "lost");
  LogEx("SDK", kLogProgress, "kept");
  EXPECT_EQ(seen_.size(), 2U);
  EXPECT_EQ(FileLines(), (Texts{"2023-11-14 22:13:20Z [1] [SDK] kept"}));
}

TEST_F(Log, LastErrorAndErrnoStayAsTheyWere) {
  OpenFile();
  win32::SetLastError(1234);
  errno = ERANGE;
  LogEx("SDK", kLogProgress, "text");
  EXPECT_EQ(errno, ERANGE);
  EXPECT_EQ(win32::GetLastError(), 1234U);
}

TEST_F(Log, LastErrorAndErrnoStayWhenTheFileCannotBeOpened) {
  InitLogEx("X:\\missing", "SDK", nullptr, nullptr);
  win32::SetLastError(1234);
  errno = ERANGE;
  LogEx("SDK", kLogProgress, "text");
  EXPECT_EQ(errno, ERANGE);
  EXPECT_EQ(win32::GetLastError(), 1234U);
}

TEST_F(Log, LastErrorAndErrnoStayWhenTheObserverChangesThem) {
  const LogObserver observer{[](void*, const char*, int, const char*) {
                               win32::SetLastError(99);
                               errno = EDOM;
                             },
                             nullptr};
  InitLogEx(nullptr, "SDK", &observer, nullptr);
  win32::SetLastError(1234);
  errno = ERANGE;
  LogEx("SDK", kLogProgress, "text");
  EXPECT_EQ(errno, ERANGE);
  EXPECT_EQ(win32::GetLastError(), 1234U);
}

}  // namespace
}  // namespace velkora
