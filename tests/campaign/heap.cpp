// A campaign makes and frees the blocks of thousands of backups, megabytes each: given back to the
// system and fetched again every time, they cost more than the conversions.
#include <gtest/gtest.h>
#include <malloc.h>

namespace campaign {
namespace {

class KeptHeap : public ::testing::Environment {
  void SetUp() override {
    constexpr int kLargest = 1 << 29;  // bytes
    EXPECT_EQ(mallopt(M_MMAP_THRESHOLD, kLargest), 1);
    EXPECT_EQ(mallopt(M_TRIM_THRESHOLD, kLargest), 1);
  }
};

const ::testing::Environment* const kept_heap = ::testing::AddGlobalTestEnvironment(new KeptHeap);

}  // namespace
}  // namespace campaign
