#include "platform/guard.h"

#include <new>
#include <stdexcept>
#include <vector>

#include "simulator/seam_fixture.h"

namespace testing_support {
namespace {

constexpr DWORD kCxxThrow = 0x20474343;

std::vector<DWORD> codes;

LONG Filter(EXCEPTION_POINTERS* pointers) {
  codes.push_back(pointers->ExceptionRecord->ExceptionCode);
  EXPECT_NE(pointers->ExceptionRecord->ExceptionAddress, nullptr);
  return EXCEPTION_EXECUTE_HANDLER;
}

class GuardTest : public SeamTest {
 protected:
  GuardTest() { codes.clear(); }
};

TEST_F(GuardTest, AFaultCarriesItsCode) {
  try {
    win32::RaiseFault(EXCEPTION_ACCESS_VIOLATION);
  } catch (const win32::Fault& fault) {
    EXPECT_EQ(fault.code, DWORD{EXCEPTION_ACCESS_VIOLATION});
  }
}

TEST_F(GuardTest, ABodyThatReturnsIsTrueAndAsksNoFilter) {
  int runs = 0;
  EXPECT_TRUE(win32::Guarded([&runs] { ++runs; }, &Filter));
  EXPECT_EQ(runs, 1);
  EXPECT_TRUE(codes.empty());
}

TEST_F(GuardTest, AFaultGoesToTheFilterOnce) {
  EXPECT_FALSE(win32::Guarded([] { win32::RaiseFault(EXCEPTION_ACCESS_VIOLATION); }, &Filter));
  EXPECT_EQ(codes, std::vector<DWORD>{EXCEPTION_ACCESS_VIOLATION});
}

TEST_F(GuardTest, EveryOtherExceptionHasTheCodeOfAThrow) {
  EXPECT_FALSE(win32::Guarded([] { throw std::bad_alloc(); }, &Filter));
  EXPECT_FALSE(win32::Guarded([] { throw std::runtime_error("text"); }, &Filter));
  EXPECT_FALSE(win32::Guarded([] { throw 5; }, &Filter));
  EXPECT_EQ(codes, (std::vector<DWORD>{kCxxThrow, kCxxThrow, kCxxThrow}));
}

TEST_F(GuardTest, TheInnerGuardTakesItAndTheOuterGoesOn) {
  bool inner = true;
  EXPECT_TRUE(win32::Guarded(
      [&inner] { inner = win32::Guarded([] { throw std::runtime_error("text"); }, &Filter); },
      &Filter));
  EXPECT_FALSE(inner);
  EXPECT_EQ(codes.size(), 1u);
}

TEST_F(GuardTest, AFilterThatThrowsTakesItAllTheSame) {
  const win32::GuardFilter filter = [](EXCEPTION_POINTERS* pointers) -> LONG {
    Filter(pointers);
    throw std::bad_alloc();
  };
  EXPECT_FALSE(win32::Guarded([] { win32::RaiseFault(EXCEPTION_ACCESS_VIOLATION); }, filter));
  EXPECT_FALSE(win32::Guarded([] { throw 5; }, filter));
  EXPECT_EQ(codes, (std::vector<DWORD>{EXCEPTION_ACCESS_VIOLATION, kCxxThrow}));
}

TEST_F(GuardTest, TheEndOfTheCallBudgetPassesTheFilterToo) {
  machine_.calls().SetBudget(0);
  const win32::GuardFilter filter = [](EXCEPTION_POINTERS*) -> LONG {
    win32::GetLogicalDrives();
    return EXCEPTION_EXECUTE_HANDLER;
  };
  EXPECT_THROW(win32::Guarded([] { throw 5; }, filter), simulator::CallBudgetSpent);
}

TEST_F(GuardTest, TheEndOfTheCallBudgetPasses) {
  machine_.calls().SetBudget(3);
  auto walk_for_ever = [] {
    for (;;) win32::GetLogicalDrives();
  };
  EXPECT_THROW(win32::Guarded(walk_for_ever, &Filter), simulator::CallBudgetSpent);
  EXPECT_TRUE(codes.empty());
}

TEST_F(GuardTest, CatchingHandsBackWhatWasThrown) {
  int runs = 0;
  EXPECT_EQ(win32::Catching([&runs] { ++runs; }), nullptr);
  EXPECT_EQ(runs, 1);
  const std::exception_ptr thrown = win32::Catching([] { throw std::runtime_error("text"); });
  ASSERT_NE(thrown, nullptr);
  EXPECT_THROW(std::rethrow_exception(thrown), std::runtime_error);
}

TEST_F(GuardTest, CatchingLetsAFaultPass) {
  EXPECT_THROW(win32::Catching([] { win32::RaiseFault(EXCEPTION_ACCESS_VIOLATION); }),
               win32::Fault);
}

TEST_F(GuardTest, CatchingLetsTheEndOfTheCallBudgetPass) {
  machine_.calls().SetBudget(0);
  EXPECT_THROW(win32::Catching([] { win32::GetLogicalDrives(); }), simulator::CallBudgetSpent);
}

}  // namespace
}  // namespace testing_support
