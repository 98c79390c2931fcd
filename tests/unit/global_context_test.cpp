#include "frame/global_context.h"

#include <gtest/gtest.h>
#include <thread>
#include <type_traits>
#include <vector>

#include "frame/velkora.h"
#include "support/machine_fixture.h"

namespace velkora {
namespace {

using namespace testing_support;

static_assert(std::has_virtual_destructor_v<GlobalContext>);

// Taken before any test has run.
struct FirstSight {
  bool folder_empty = GetGlobalContext().logs_folder.empty();
  int is_system = GetGlobalContext().is_system;
  int stop_requested = GetGlobalContext().stop_requested;
};
const FirstSight first_sight;

TEST(GlobalContextOfTheProcess, StartsEmpty) {
  EXPECT_TRUE(first_sight.folder_empty);
  EXPECT_EQ(first_sight.is_system, 0);
  EXPECT_EQ(first_sight.stop_requested, 0);
}

TEST(GlobalContextOfTheProcess, IsOneForAllThreads) {
  std::vector<GlobalContext*> seen(4);
  std::vector<std::thread> threads;
  for (GlobalContext*& place : seen) {
    threads.emplace_back([&place] { place = &GetGlobalContext(); });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(seen, std::vector<GlobalContext*>(4, &GetGlobalContext()));
}

class StopFlag : public MachineTest {};

TEST_F(StopFlag, IsSetByStopAndStays) {
  EXPECT_FALSE(StopRequested());
  Velkora converter;
  converter.Stop();
  EXPECT_TRUE(StopRequested());
  EXPECT_EQ(GetGlobalContext().stop_requested, 1);
  converter.Stop();
  EXPECT_EQ(GetGlobalContext().stop_requested, 1);
}

TEST_F(StopFlag, StopLogsOneLine) {
  Velkora converter;
  converter.Stop();
  EXPECT_EQ(AllLines(), (std::vector<std::string>{"1 Set Convert Stop!"}));
}

TEST_F(StopFlag, IsSeenFromAnotherThread) {
  Velkora converter;
  std::thread([&converter] { converter.Stop(); }).join();
  EXPECT_TRUE(StopRequested());
}

}  // namespace
}  // namespace velkora
