// The walk over a mounted volume, and what is asked of the file system for the files it finds.
#include <filesystem>
#include <system_error>

#include "fat32_file_walk_fixture.h"
#include "platform/win32.h"

namespace velkora {
namespace {

using namespace testing_support;

using Runs = std::vector<ClusterRun>;
using Pieces = std::vector<FileExtent>;

constexpr char kSetAttributes[] = "SetFileAttributesW";
constexpr char kGetPointers[] = "DeviceIoControl/FSCTL_GET_RETRIEVAL_POINTERS";

// ---- EnumFilePath ------------------------------------------------------------------------------

class EnumFilePathTest : public FileWalk {};

TEST_F(EnumFilePathTest, ParentStandsBeforeItsChildrenAndTheRootNowhere) {
  Add("\\first", 1);
  Add("\\folder\\inner\\deep", 1);
  Add("\\folder\\file", 0);
  Add("\\last", 1);
  Add("\\other\\file", 1);
  EXPECT_TRUE(Enum());
  EXPECT_EQ(Names(files_), (Texts{"\\first", "\\folder\\inner\\deep", "\\folder\\file", "\\last",
                                  "\\other\\file"}));
  EXPECT_EQ(Names(directories_), (Texts{"\\folder", "\\folder\\inner", "\\other"}));
  EXPECT_EQ(machine_.handles().Open(), Texts{});
  EXPECT_EQ(log_, Log{});
}

TEST_F(EnumFilePathTest, EmptyVolumeHasNothing) {
  EXPECT_TRUE(Enum());
  EXPECT_EQ(Names(files_), Texts{});
  EXPECT_EQ(Names(directories_), Texts{});
}

TEST_F(EnumFilePathTest, NamesThatBeginWithADotAreFollowed) {
  Add("\\.file", 1);
  Add("\\..two", 1);
  Add("\\...", 1);
  Add("\\.folder\\.x", 1);
  EXPECT_TRUE(Enum());
  EXPECT_EQ(Names(files_), (Texts{"\\.file", "\\..two", "\\...", "\\.folder\\.x"}));
  EXPECT_EQ(Names(directories_), Texts{"\\.folder"});
}

TEST_F(EnumFilePathTest, NamesOfOtherScriptsAreFollowed) {
  Add("\\журнал\\файл", 1);
  EXPECT_TRUE(Enum());
  EXPECT_EQ(Names(files_), Texts{"\\журнал\\файл"});
}

TEST_F(EnumFilePathTest, AttributesAreGoneForGood) {
  constexpr DWORD kMarks = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;
  Add("\\folder\\file", 1);
  EXPECT_EQ(Files().SetAttributes("\\folder\\file", kMarks), ERROR_SUCCESS);
  EXPECT_EQ(Files().SetAttributes("\\folder", kMarks), ERROR_SUCCESS);
  ASSERT_EQ(AttributesOf("\\folder\\file") & kMarks, kMarks);
  EXPECT_TRUE(Enum());
  for (const simulator::Call& call : machine_.calls().calls()) {
    if (call.name == kSetAttributes) {
      EXPECT_EQ(call.arguments, "attributes 0x80");
    }
  }
  EXPECT_EQ(machine_.calls().Count(kSetAttributes), 2U);
  EXPECT_EQ(Names(directories_), Texts{"\\folder"});
  EXPECT_EQ(Names(files_), Texts{"\\folder\\file"});
  constexpr DWORD kAll = kMarks | FILE_ATTRIBUTE_ARCHIVE;
  EXPECT_EQ(AttributesOf("\\folder\\file") & kAll, 0U);
  EXPECT_EQ(AttributesOf("\\folder") & kAll, 0U);
}

TEST_F(EnumFilePathTest, SystemVolumeInformationIsSkippedWithEverythingUnderIt) {
  Add("\\System Volume Information\\file", 1);
  Add("\\a\\b\\My System Volume Information 2\\c\\file", 1);
  Add("\\a\\System Volume Information", 1);
  machine_.calls().Clear();
  EXPECT_TRUE(Enum());
  EXPECT_EQ(Names(directories_), (Texts{"\\a", "\\a\\b"}));
  EXPECT_EQ(Names(files_), Texts{"\\a\\System Volume Information"}) << "a file of that name counts";
  EXPECT_EQ(machine_.calls().Count(kSetAttributes), 3U);
}

TEST_F(EnumFilePathTest, SystemVolumeInformationInOtherCaseIsAFolderLikeAnyOther) {
  MakeFolder("\\SYSTEM VOLUME INFORMATION");
  EXPECT_TRUE(Enum());
  EXPECT_EQ(Names(directories_), Texts{"\\SYSTEM VOLUME INFORMATION"});
}

class EntriesThatAreSkipped : public EnumFilePathTest {
 protected:
  void ExpectSkipped(DWORD error) {
    Add("\\first", 1);
    Add("\\folder\\inner", 1);
    Add("\\last", 1);
    machine_.calls().FailOn(kSetAttributes, 1, error);
    machine_.calls().FailOn(kSetAttributes, 2, error);
    EXPECT_TRUE(Enum());
    EXPECT_EQ(Names(files_), Texts{"\\last"});
    EXPECT_EQ(Names(directories_), Texts{}) << "a folder is not entered then";
    EXPECT_EQ(log_, Log{});
  }
};

TEST_F(EntriesThatAreSkipped, WhenTheyVanish) {
  ExpectSkipped(ERROR_FILE_NOT_FOUND);
}

TEST_F(EntriesThatAreSkipped, WhenTheyAreCorrupt) {
  ExpectSkipped(ERROR_FILE_CORRUPT);
}

TEST_F(EnumFilePathTest, OtherErrorEndsTheWalkAtAnyDepth) {
  Add("\\a\\b\\file", 1);
  Add("\\a\\b\\folder\\file", 1);
  // The neighbours of the errors that skip an entry are among them.
  constexpr DWORD kErrors[] = {ERROR_PATH_NOT_FOUND, ERROR_ACCESS_DENIED, 32, 1391, 1393};
  for (std::size_t call = 1; call <= std::size(kErrors); ++call) {
    const DWORD error = kErrors[call - 1];
    log_.clear();
    machine_.calls().FailOn(kSetAttributes, call, error);
    EXPECT_FALSE(Enum()) << error;
    EXPECT_EQ(log_, (Log{{3, "Set File Attributes Error! error_code: " + std::to_string(error)}}));
    EXPECT_EQ(machine_.handles().Open(), Texts{});
  }
}

template <typename Body>
std::string ErrorText(Body body, int code) {
  try {
    body();
  } catch (const std::filesystem::filesystem_error& error) {
    EXPECT_EQ(error.code().value(), code);
    return error.what();
  }
  return "";
}

TEST_F(EnumFilePathTest, ListingThatBreaksOffThrows) {
  Add("\\first", 1);
  Add("\\last", 1);
  machine_.calls().FailOn("FindNextFileW", 1, 1117);
  const std::string text = ErrorText([this] { Enum(); }, 1117);
  EXPECT_NE(text.find("directory_iterator::operator++"), std::string::npos) << text;
  EXPECT_EQ(Names(files_), Texts{"\\first"});
  EXPECT_EQ(machine_.handles().Open(), Texts{}) << "the listing's own handle is closed";
}

TEST_F(EnumFilePathTest, FolderThatCannotBeListedThrowsAndLeavesTheListingsAboveOpen) {
  Add("\\folder\\file", 1);
  machine_.calls().FailOn("FindFirstFileW", 2, ERROR_PATH_NOT_FOUND);
  const std::string text = ErrorText([this] { Enum(); }, ERROR_PATH_NOT_FOUND);
  EXPECT_NE(text.find("directory_iterator::directory_iterator"), std::string::npos) << text;
  EXPECT_EQ(machine_.handles().Open().size(), 1U);
}

TEST_F(EnumFilePathTest, FolderWhosePathTheCodePageLacksThrowsBeforeItIsTouched) {
  Add("\\folder\\file", 1);
  machine_.calls().FailOn("WideCharToMultiByte", 1, ERROR_NO_UNICODE_TRANSLATION);
  try {
    Enum();
    FAIL() << "nothing has been thrown";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code().value(), ERROR_NO_UNICODE_TRANSLATION);
  }
  EXPECT_EQ(machine_.calls().Count(kSetAttributes), 0U);
}

TEST_F(EnumFilePathTest, PathsOfFilesAreNotMadeNarrow) {
  Add("\\file", 1);
  machine_.calls().Clear();
  machine_.calls().FailOn("WideCharToMultiByte", 1, ERROR_NO_UNICODE_TRANSLATION);
  EXPECT_TRUE(Enum());
  EXPECT_EQ(files_.size(), 1U);
}

TEST_F(EnumFilePathTest, EachFolderIsListedWhenItIsReached) {
  Add("\\a\\file", 1);
  Add("\\b\\file", 1);
  machine_.calls().Clear();
  EXPECT_TRUE(Enum());
  Texts names;
  for (const simulator::Call& call : machine_.calls().calls()) {
    if (call.name == "FindFirstFileW" || call.name == kSetAttributes) {
      names.push_back(call.name.substr(0, 3) + call.detail.substr(Path().size()));
    }
  }
  EXPECT_EQ(names, (Texts{"Fin\\*", "Set\\a", "Fin\\a\\*", "Set\\a\\file", "Set\\b", "Fin\\b\\*",
                          "Set\\b\\file"}));
}

// ---- GetFileDebris -----------------------------------------------------------------------------

class GetFileDebrisTest : public FileWalk {
 protected:
  bool Get(std::uint64_t boundary) {
    EXPECT_TRUE(Enum());
    machine_.calls().Clear();
    return GetFileDebris(files_, boundary, debris_);
  }

  std::vector<FileDebris> debris_;
};

TEST_F(GetFileDebrisTest, FilesBehindTheBoundaryAreListedInOrder) {
  Add("\\low", 10);
  Add("\\across", 10);
  Add("\\high", 10);
  const std::uint64_t across = Chain("\\across").front() - 2;  // LCN
  ASSERT_TRUE(Get(across + 5));
  ASSERT_EQ(debris_.size(), 2U);
  EXPECT_EQ(debris_[0].extents, (Pieces{{4, 6}}));
  EXPECT_EQ(debris_[1].extents, (Pieces{{0, 10}}));
  EXPECT_EQ(log_, Log{});
}

TEST_F(GetFileDebrisTest, AllHandlesStayOpen) {
  Add("\\low", 1);
  Add("\\empty", 0);
  Add("\\high", 9);
  ASSERT_TRUE(Get(Chain("\\high").front() - 2));
  EXPECT_EQ(debris_.size(), 1U);
  EXPECT_EQ(machine_.handles().Open(),
            (Texts{"file " + Path() + "\\low", "file " + Path() + "\\empty",
                   "file " + Path() + "\\high"}));
}

TEST_F(GetFileDebrisTest, FileOfNoClustersCostsOneHandleAndNoRow) {
  Add("\\empty", 0);
  ASSERT_TRUE(Get(0));
  EXPECT_TRUE(debris_.empty());
  EXPECT_EQ(machine_.handles().Open().size(), 1U);
}

TEST_F(GetFileDebrisTest, FileWhoseLastLcnIsTheBoundaryGetsARowWithoutExtents) {
  Add("\\file", 10);
  const std::uint64_t last = Chain("\\file").back() - 2;
  ASSERT_TRUE(Get(last));
  ASSERT_EQ(debris_.size(), 1U);
  EXPECT_EQ(debris_[0].extents, Pieces{});
}

TEST_F(GetFileDebrisTest, FileWhoseLastLcnIsOneBelowTheBoundaryIsLeftThoughItLiesBehind) {
  Add("\\file", 10);
  ASSERT_TRUE(Get(Chain("\\file").back() - 2 + 1));
  EXPECT_TRUE(debris_.empty());
}

// Every second one-cluster file goes, and one file fills the holes.
class FragmentedFiles : public GetFileDebrisTest {
 protected:
  void AddFragmented(int extents) {
    for (int i = 0; i < 2 * extents; ++i) Add("\\" + std::to_string(i), 1);
    for (int i = 0; i < 2 * extents; i += 2) Remove("\\" + std::to_string(i));
    Add("\\fragmented", static_cast<std::size_t>(extents));
  }
};

TEST_F(FragmentedFiles, FileOf51ExtentsIsListed) {
  AddFragmented(51);
  ASSERT_TRUE(Get(0));
  EXPECT_EQ(debris_.back().extents.size() + debris_.front().extents.size(), 52U);
}

TEST_F(FragmentedFiles, FileOfMoreThan51ExtentsFailsThoughItLiesBelowTheBoundary) {
  AddFragmented(52);
  EXPECT_FALSE(Get(Boundary()));
  EXPECT_EQ(win32::GetLastError(), ERROR_MORE_DATA);
  EXPECT_EQ(log_, Log{});
}

TEST_F(GetFileDebrisTest, FileThatCannotBeOpenedFailsWhereverItLies) {
  Add("\\low", 1);
  EXPECT_TRUE(Enum());
  machine_.calls().FailOn("CreateFileW", 1, 32);
  EXPECT_FALSE(GetFileDebris(files_, Boundary(), debris_));
  EXPECT_EQ(log_, Log{});
}

TEST_F(GetFileDebrisTest, FailedQueryFails) {
  Add("\\low", 1);
  EXPECT_TRUE(Enum());
  machine_.calls().FailOn(kGetPointers, 1, 1117);
  EXPECT_FALSE(GetFileDebris(files_, Boundary(), debris_));
  EXPECT_EQ(log_, Log{});
  EXPECT_EQ(machine_.handles().Open(), Texts{"file " + Path() + "\\low"});
}

TEST_F(GetFileDebrisTest, FilesAreOpenedWithoutFlagsAndAskedWith832Bytes) {
  Add("\\low", 1);
  ASSERT_TRUE(Get(Boundary()));
  ASSERT_EQ(machine_.calls().calls().size(), 2U);
  EXPECT_EQ(machine_.calls().calls()[0].arguments,
            "access 0xc0000000 share 0x3 disposition 3 flags 0x0");
  EXPECT_TRUE(machine_.calls().calls()[1].arguments.ends_with(" in 8 out 832"));
}

// ---- MoveFileDebris ----------------------------------------------------------------------------

class MoveFileDebrisTest : public GetFileDebrisTest {
 protected:
  MoveFileDebrisTest() {
    FillUpTo(3000);
    Add("\\high", 20, 'h');
    Remove("\\filler");
    volume_ = GetDeviceHandleById(Path().c_str());
    EXPECT_TRUE(Enum());
    EXPECT_TRUE(GetFileDebris(files_, kBoundary, debris_));
  }
  ~MoveFileDebrisTest() override { CloseDeviceHandle(volume_); }

  static constexpr std::uint64_t kBoundary = 2000;
  HANDLE volume_ = INVALID_HANDLE_VALUE;
};

TEST_F(MoveFileDebrisTest, FileSystemMovesTheDataToTheFreeRuns) {
  ASSERT_EQ(Chain("\\high").front(), 3000U);
  Runs runs = {{100, 15}, {200, 1000}};
  EXPECT_TRUE(MoveFileDebris(volume_, runs, debris_, kBoundary));
  const simulator::Fat32Chain chain = Chain("\\high");
  EXPECT_EQ(chain.front(), 100U);
  EXPECT_EQ(chain[14], 114U);
  EXPECT_EQ(chain[15], 200U);
  EXPECT_EQ(chain.back(), 204U);
  EXPECT_EQ(runs, (Runs{{100, 0}, {205, 995}}));
  EXPECT_EQ(Content("\\high"), std::string(20 * 512, 'h'));
}

TEST_F(MoveFileDebrisTest, RequestNamesTheLcnAndHasNoAnswer) {
  machine_.calls().Clear();
  Runs runs = {{100, 50}};
  EXPECT_TRUE(MoveFileDebris(volume_, runs, debris_, kBoundary));
  ASSERT_EQ(machine_.calls().calls().size(), 1U);
  EXPECT_EQ(machine_.calls().calls()[0].arguments,
            "volume " + Path() + " in 32 out 0 vcn 0 lcn 98 clusters 20");
}

TEST_F(MoveFileDebrisTest, FailedRequestIsLoggedAndWhatHasMovedStaysMoved) {
  Runs runs = {{100, 15}, {200, 1000}};
  machine_.calls().FailOn("DeviceIoControl/FSCTL_MOVE_FILE", 2, 1117);
  EXPECT_FALSE(MoveFileDebris(volume_, runs, debris_, kBoundary));
  EXPECT_EQ(log_, (Log{{3, "Move File Failed! error_code: 1117"}}));
  EXPECT_EQ(Chain("\\high").front(), 100U);
  EXPECT_EQ(Chain("\\high").back(), 3019U);
  EXPECT_EQ(Content("\\high"), std::string(20 * 512, 'h'));
}

TEST_F(MoveFileDebrisTest, RequestOfNoClustersIsRefusedByTheFileSystem) {
  Runs runs = {{100, 20}, {200, 1000}};
  EXPECT_FALSE(MoveFileDebris(volume_, runs, debris_, kBoundary));
  EXPECT_EQ(log_, (Log{{3, "Move File Failed! error_code: 87"}}));
  EXPECT_EQ(Chain("\\high").back(), 119U);
}

}  // namespace
}  // namespace velkora
