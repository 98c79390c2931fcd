// The fragments of the directories of a mounted volume.
#include "fat32_file_walk_fixture.h"
#include "platform/win32.h"

namespace velkora {
namespace {

using namespace testing_support;

constexpr char kGetPointers[] = "DeviceIoControl/FSCTL_GET_RETRIEVAL_POINTERS";

class GetDirectoryDebrisTest : public FileWalk {
 protected:
  bool Get() {
    EXPECT_TRUE(Enum());
    machine_.calls().Clear();
    return GetDirectoryDebris(directories_, debris_);
  }

  std::vector<DirectoryDebris> debris_;
};

TEST_F(GetDirectoryDebrisTest, EachDirectoryHasARowForEachExtent) {
  MakeFolder("\\small");
  MakeFolder("\\large");
  Add("\\wedge", 1);
  // Names of two slots each: 14 entries fill a cluster.
  for (int i = 0; i < 10; ++i) Add("\\large\\file number " + std::to_string(i), 0);
  ASSERT_TRUE(Get());
  const std::uint64_t small = Chain("\\small").front();
  const simulator::Fat32Chain large = Chain("\\large");
  ASSERT_EQ(large.size(), 2U);
  ASSERT_NE(large[1], large[0] + 1);
  EXPECT_EQ(debris_, (std::vector<DirectoryDebris>{{0, small, 0, 1, 0},
                                                   {0, large[0], 0, 1, large[1]},
                                                   {large[0], large[1], 1, 1, 0}}));
  EXPECT_EQ(machine_.handles().Open(), Texts{});
}

TEST_F(GetDirectoryDebrisTest, DirectoriesAreOpenedPastTheCache) {
  MakeFolder("\\folder");
  ASSERT_TRUE(Get());
  EXPECT_EQ(machine_.calls().calls()[0].arguments,
            "access 0xc0000000 share 0x3 disposition 3 flags 0xa2000000");
}

TEST_F(GetDirectoryDebrisTest, DirectoriesAreAskedWith832BytesAndClosed) {
  MakeFolder("\\folder");
  MakeFolder("\\other");
  ASSERT_TRUE(Get());
  Texts names;
  for (const simulator::Call& call : machine_.calls().calls()) {
    names.push_back(call.name);
    if (call.name == "DeviceIoControl") {
      EXPECT_TRUE(call.arguments.ends_with(" in 8 out 832")) << call.arguments;
    }
  }
  EXPECT_EQ(names, (Texts{"CreateFileW", "DeviceIoControl", "CloseHandle", "CreateFileW",
                          "DeviceIoControl", "CloseHandle"}));
}

// A folder that grows cluster by cluster, with another file's cluster behind each of its own.
class FragmentedDirectory : public GetDirectoryDebrisTest {
 protected:
  void MakeFragmented(std::size_t extents) {
    MakeFolder("\\folder");
    Add("\\wedge", 1);
    for (int i = 0; Chain("\\folder").size() < extents; ++i) {
      const std::size_t clusters = Chain("\\folder").size();
      Add("\\folder\\" + std::to_string(i), 0);
      if (Chain("\\folder").size() != clusters) Add("\\w" + std::to_string(i), 1);
    }
  }
};

TEST_F(FragmentedDirectory, DirectoryOf51ExtentsIsListed) {
  MakeFragmented(51);
  ASSERT_TRUE(Get());
  EXPECT_EQ(debris_.size(), 51U);
  EXPECT_EQ(debris_.back().start_vcn, 50U);
  EXPECT_EQ(debris_.back().next, 0U);
}

TEST_F(FragmentedDirectory, DirectoryOfMoreThan51ExtentsFails) {
  MakeFragmented(52);
  EXPECT_FALSE(Get());
  EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_MORE_DATA});
  EXPECT_EQ(machine_.handles().Open(), Texts{});
  EXPECT_EQ(log_, Log{});
}

TEST_F(GetDirectoryDebrisTest, DirectoryThatCannotBeOpenedFails) {
  MakeFolder("\\folder");
  EXPECT_TRUE(Enum());
  machine_.calls().FailOn("CreateFileW", 1, 32);
  EXPECT_FALSE(GetDirectoryDebris(directories_, debris_));
  EXPECT_EQ(log_, Log{});
}

TEST_F(GetDirectoryDebrisTest, FailedQueryClosesTheHandleAndFails) {
  MakeFolder("\\folder");
  EXPECT_TRUE(Enum());
  machine_.calls().FailOn(kGetPointers, 1, ERROR_HANDLE_EOF);
  EXPECT_FALSE(GetDirectoryDebris(directories_, debris_));
  EXPECT_EQ(machine_.handles().Open(), Texts{});
  EXPECT_EQ(log_, Log{});
}

}  // namespace
}  // namespace velkora
